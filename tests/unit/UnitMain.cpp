#include <gtest/gtest.h>

#include "UnitRun.h"

int main(int argc, char **argv) {
    TakeSignalsAsUsual();
    BeginUnitTests(&argc, argv);
    return RUN_ALL_TESTS();
}
