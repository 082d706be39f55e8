/* Buffered file layer: line reading block by block, direct writes, sync on close.  Diagnostics keep
   the platform call names that this layer was first written for.

   A file is handed out in blocks of 8,176 bytes, and where one ends shows in the lines: a CR and an
   LF on its two sides are no pair, and a zero byte hides the rest of its own block.  What is asked
   of the kernel is more: a file that has more than one block is read many at a time. */
#ifndef STORE_NTIO_H
#define STORE_NTIO_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#define FILE_BUFFER_SIZE 8192
#define FILE_READ_SIZE 8176  /* a block of line reading */
#define FILE_MORE_BLOCKS 40  /* what the second read(2) of a file brings in, some 320 KiB */
#define FILE_MOST_BLOCKS 352 /* and the later ones, 2.75 MiB: 100,000 members are one of those */

/* Record and buffers are host memory; only f_close() (or Fclose()) releases them. */
struct FileRecord {
    int32_t fd;        /* -1 once closed */
    char *buffer;      /* the block that is being read */
    uint32_t position; /* next unread byte */
    int32_t state;     /* 0 good, 1 error, -1 last unterminated line handed out */
    uint32_t count;    /* valid bytes, byte reading only */
    /* private: */
    uint32_t line_end; /* end of the text in the block: its first zero byte, or its end */
    char *area;        /* what was read: the blocks up to this one, this one, those behind it */
    uint32_t area_size;
    uint32_t ahead;       /* bytes in the area behind the block */
    char *write_buffer;   /* null: Fputs() writes straight through */
    uint32_t write_size;  /* room in write_buffer */
    uint32_t write_count; /* bytes waiting in it */
    uint64_t written;     /* bytes that Fputs() put into the file */
    uint32_t block_size;  /* bytes of the last block */
    uint32_t blocks;      /* how many there were */
};

/* Types: "r" read, "w" create and truncate (mode 0660), "r+" read and write, "a" append to an
   existing file, "rx" read with O_EXCL.  Null on failure: errno as open() left it and nothing
   logged; an unknown type logs 715 with errno 0.  errno 0 on success. */
FileRecord *f_open(const char *path, const char *type);

/* Drains the write buffer, syncs, closes and releases; a file only read is synced too.  1, or 0
   with the first errno of draining, fsync and close.  Null: 1. */
int f_close(FileRecord *record);

/* Wraps a descriptor, which must be neither -1 nor 0; null on failure.  Fclose() releases the
   record without touching the descriptor. */
FileRecord *Fopen(int fd);
void Fclose(FileRecord *record);

/* One line, at most size - 1 bytes, ended CR LF whatever ending the file has; a longer line comes
   in pieces.  Null at the end or on an error: ask Ferror(). */
char *Fgets(char *destination, int size, FileRecord *record);

/* The state; a state of -1 is reset first, so that only an error reads as true. */
int Ferror(FileRecord *record);

/* Writes the text: bytes written; -1 argument missing, -2 write failed, -3 short write; the last
   two mark a temporary failure. */
int Fputs(const char *text, FileRecord *record);

/* One byte: Putc 1, -1, -2, -3 as Fputs; Getc 0 to 255, or -1 at the end (errno 0) or on error. */
int Putc(int byte, FileRecord *record);
int Getc(FileRecord *record);

/* Gives what was read and not handed out back to the descriptor's position, after draining the
   write buffer; 0 or -1.  A block of bytes ends at its first zero byte, as one of lines does. */
int Fflush(FileRecord *record);

/* Fflush() and lseek(); 0 or -1. */
int Fseek(FileRecord *record, off_t offset, int whence);

/* Formats at most 4,094 characters straight to a descriptor. */
int Fprintf(int fd, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* -- our own additions -- */

/* A new file, as f_open() with "w" makes it; what is there already is never opened (EEXIST). */
FileRecord *f_create(const char *path);

/* Where Fseek(record, 0, SEEK_CUR) would go on, with the read-ahead as it is; -1. */
off_t Ftell(const FileRecord *record);

/* As many bytes as there are, up to size; fewer at the end (errno 0) or on an error, as Getc()
   would tell them.  What is read past the buffer is not in it afterwards. */
size_t Fread(void *data, size_t size, FileRecord *record);

/* Gives a record opened for writing a buffer of size bytes: from now on Fputs() and Putc() collect
   and write when the buffer is full, and report a failed write of earlier text as their own (-2 or
   -3; the length printed is the block's, which is given up).  0, or -1 without memory or when
   draining an earlier buffer failed (writes stay as they were). */
int Fbuffer(FileRecord *record, uint32_t size);

/* Fputs() of so many bytes. */
int Fputb(const char *bytes, size_t size, FileRecord *record);

/* Writes what Fputs() collected.  0, or -2, -3 as Fputs(). */
int Fdrain(FileRecord *record);

/* Puts the descriptor behind the block, as if no more had been read.  0 or -1. */
int Funread(FileRecord *record);

/* The file as it lies on the disk, when it was read by lines, to its end, and was one block (8,176
   bytes) or nothing; valid until the record is closed.  Null for a larger one. */
const char *Fcontents(const FileRecord *record, size_t *size_out);

#endif
