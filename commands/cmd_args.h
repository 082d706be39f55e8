/* Message-number arguments of "get", "summary" and "push": items separated by commas, each a
   number, a range of two numbers in either order, "all" or "*". */
#ifndef COMMANDS_CMD_ARGS_H
#define COMMANDS_CMD_ARGS_H

#include <stddef.h>
#include <stdint.h>

#include "mlist/archive.h"
#include "module/job.h"

/* Normalises in place: line end, leading and trailing blanks and those around commas and hyphens
   go.  Always 0. */
int correct_argstr(char *text);

/* An argument with an item "all" or "*" becomes the whole archive's range, or "" for an empty
   archive.  out when it was written, text otherwise. */
const char *expand_argstr(IndexRecord *index, const char *text, char *out, size_t size);

/* The set of the numbers named by text that can be in the open archive: one bit for each number
   from the first to the last.  0 with host memory of size bytes, the caller's; -1 without memory
   (logged). */
int conv_argstr(DeliveryJob *job, const char *text, unsigned char **bitmap_out, size_t *size_out);

/* Sets a number's bit.  0, or -1 when the set has none for it. */
int id_to_bit(DeliveryJob *job, unsigned char *bitmap, size_t size, uint32_t number);

/* The number of bit (0 to 7) of a byte of the set; 0 for an empty archive. */
uint32_t bit_to_id(DeliveryJob *job, size_t byte, int bit);

/* Whether the set holds the number. */
bool is_in_set(DeliveryJob *job, const unsigned char *bitmap, size_t size, uint32_t number);

/* First and last position of a "summary" argument in the archive; they may lie outside it.  0, or
   -1 for a malformed argument. */
int summconv_argstr(const char *text, IndexRecord *index, int *first_out, int *last_out);

/* A list of numbers separated by blanks in the short form 1-4,7,9 of at most size - 1 characters;
   out, or list when that is too little. */
const char *short_argstr(const char *list, char *out, size_t size);

#endif
