/* What `strings` shows of the library: its name and version. */
extern "C" {
__attribute__((used)) const char mlist_identification[] = "@(#) mlist " MLIST_VERSION;
}
