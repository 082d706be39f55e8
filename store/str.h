/* Bounded string helpers.  ASCII only: no helper looks at the locale. */
#ifndef STORE_STR_H
#define STORE_STR_H

#include <stddef.h>
#include <stdint.h>

#include "module/ascii.h"

/* Formats with room for size - 1 bytes, so at most size - 2 characters, and always stores a zero
   in the last byte.  What the formatter returned (may exceed size: never an offset).  size 0: 0,
   nothing written. */
int snprintf_(char *buffer, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* The same, into an empty buffer only; else 0 and nothing written. */
int seprintf_(char *buffer, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

/* Copies at most size - 1 bytes and stores a zero in the last byte of the destination. */
char *strncpy_(char *destination, const char *source, size_t size);

/* Appends at most n - 1 bytes and stores a zero at old length + n - 1: n bounds what is appended,
   not the destination.  n 0: nothing. */
char *strncat_(char *destination, const char *source, size_t n);

char *strcpy_(char *destination, const char *source);

/* Appends, and stores a second zero at length of the joined string + length of source: the
   destination must have that room. */
char *strcat_(char *destination, const char *source);

/* A copy on the C heap, or null. */
char *strdup_(const char *text);

/* First byte that is neither space nor tab; "" for a missing text. */
const char *skip_space_tab(const char *text);
char *skip_space_tab(char *text);

/* First byte that is no ASCII digit. */
const char *skipdigit(const char *text);

/* Skips spaces and tabs, then reads digits modulo 2^32; no digits give 0. */
uint32_t atodw(const char *text);

/* The last byte, or the text itself when it is empty. */
char *jumpend(char *text);

/* Cuts the text at its first CR or LF. */
void chop(char *text);

/* Removes trailing spaces, tabs, CRs and LFs. */
void strip_endchar(char *text);

/* Removes every space, tab, CR and LF. */
void strip_space_tab_endchar(char *text);

/* First occurrence of pattern, case-sensitive, or null. */
const char *findstr(const char *text, const char *pattern);

#endif
