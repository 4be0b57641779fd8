/* SPDX-License-Identifier: MIT */
/* What the benchmarks set in their HW library, as info items. */
#ifndef BENCHHW_H
#define BENCHHW_H

enum {
    BENCH_WORK,   /* u32, set: BENCH_COPY_... and BENCH_TIME, all else costs nothing */
    BENCH_FRAME,  /* i16[pixels], set: the prepared frame */
    BENCH_STARTS, /* u32, set: exposures that start before one fails, 0: all */
    BENCH_TIMES,  /* double[2], get, with BENCH_TIME: seconds from start to stop of the last exposure, and from the
                     start of the one before it to its own */
    BENCH_ITEMS
};

enum { BENCH_COPY_STREAM = 1, BENCH_COPY_FRAME = 2, BENCH_COPY_BOTH = 3, BENCH_TIME = 4 };

/* Device i has 1 << i chips. */
enum { BENCH_DEVICES = 5 };

#endif /* BENCHHW_H */
