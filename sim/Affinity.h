// Which of the board's CPUs the process runs on: the first one that it is bound to by sched_setaffinity(2),
// whose door this module is.
#pragma once

// Back to all of the board's CPUs.
void AffinityReset();

// The number of the CPU; 0 when the board has none.
int CpuOfProcess();
