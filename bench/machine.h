/* The machine that a benchmark runs on: its clocks, its places, its own durable files. */
#ifndef BENCH_MACHINE_H
#define BENCH_MACHINE_H

#include <string>
#include <vector>

enum Place { DISK, MEMORY };

/* MLIST_BENCH_DISK or /tmp; /dev/shm. */
std::string directory_of(int place);

double seconds_now();
double processor_seconds(); /* user and system, of this process */
double user_seconds();      /* user only; the kernel may know it by the tick */
long peak_kilobytes();      /* largest resident size so far */
double median(std::vector<double> values);

/* A file of 4 KiB written, synced, renamed, and its directory synced. */
void make_durable_file(const std::string &directory, int directory_fd);

/* So that what is measured next does not pay for what was made before. */
void sync_file_system(const std::string &directory);

#endif
