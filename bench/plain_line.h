// SPDX-License-Identifier: Apache-2.0
/* The basic formatter's line for the benchmarks' statement (traceMIN of
   "value %ld of %s" at bench.c, function, line 42), made by hand with
   snprintf: the floor the library is measured against. */
#ifndef ARDEL_BENCH_PLAIN_LINE_H
#define ARDEL_BENCH_PLAIN_LINE_H

#include <time.h>

#include <cstdio>

inline int plainLine(char* buf, size_t size, long i) {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  long off = tm.tm_gmtoff / 60;
  char sign = off < 0 ? '-' : '+';
  if (off < 0) off = -off;
  return std::snprintf(buf, size,
                       "%04d-%02d-%02d %02d:%02d:%02d.%03ld%c%02ld:%02ld bench.c function 42 "
                       "value %ld of %s\n",
                       tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                       tm.tm_sec, ts.tv_nsec / 1000000, sign, off / 60, off % 60, i, "name");
}

#endif
