// The marks between which bench_counter counts: no-operations with an address that nothing else has
// (nopl disp32(%rax), Intel SDM volume 2, NOP), so that they do nothing wherever they run.
#ifndef BENCH_MARKS_H
#define BENCH_MARKS_H

#define MARK_SIZE 7
#define MARK_BEGIN "\x0F\x1F\x80HWR1"
#define MARK_END "\x0F\x1F\x80HWR2"

#endif
