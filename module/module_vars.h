/* Module-wide variables that are not exported; written by ModuleInitialize(), then read-only. */
#ifndef MODULE_MODULE_VARS_H
#define MODULE_MODULE_VARS_H

#include <stdint.h>

extern char g_mlfqdn[256];
extern int32_t g_max_mllist;

/* The local configuration file; a test may point it elsewhere. */
extern const char *local_conf_path;

/* Reads the twelve numbers of the local configuration; all 0 without a file; null: nothing. */
void local_conf2(int32_t *values_out);

#endif
