// hwreg-check: tells what hwreg can do on this machine, without doing it.
#include <cstdio>

#include "tools/check/Findings.h"

int main() {
    FindAll();
    for (int i = FINDING_NONE + 1; i < FINDINGS; ++i) {
        const Finding *finding = FindingOf(static_cast<FindingName>(i));
        printf("%-16s %d %s\n", finding->name, finding->state, finding->found);
    }
    return 0;
}
