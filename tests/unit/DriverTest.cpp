#include "BasicLib/Driver.h"

#include <fcntl.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "TestHelp.h"

static const char *const OPEN_MEM = "open /dev/mem rdwr sync cloexec -> ok";
static const char *const OPEN_MSR = "open /dev/cpu/0/msr rdonly cloexec -> ok";
static const char *const NO_MSR = "open /dev/cpu/0/msr rdonly cloexec -> ENOENT";
static const char *const CLOSE_MSR = "close /dev/cpu/0/msr";

TEST(Driver, OpeningRaisesThePrivilegeOpensMemoryAndProbesTheMsrNode) {
    LoadBoard("intel");
    EXPECT_EQ(Printed([] { EXPECT_EQ(OpenLinuxDriver(), 0u); }), "");
    EXPECT_EQ(TakeLog(), (Log{"iopl 3", OPEN_MEM, OPEN_MSR, CLOSE_MSR}));
    EXPECT_GE(gMemFd, 0);
}

TEST(Driver, NoCommandRunThroughTheShellInheritsTheMemoryDevice) {
    OpenBoard("intel");
    EXPECT_NE(fcntl(gMemFd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(Driver, WithoutThePrivilegeNothingElseIsTouched) {
    LoadBoard("noiopl");
    EXPECT_EQ(Printed([] { EXPECT_EQ(OpenLinuxDriver(), 0x8000000Fu); }), "");
    EXPECT_EQ(TakeLog(), (Log{"iopl 3 -> EPERM"}));
}

TEST(Driver, AMissingMemoryDeviceIsSilentAndNoFailure) {
    LoadBoard("nomem");
    EXPECT_EQ(Printed([] { EXPECT_EQ(OpenLinuxDriver(), 0u); }), "");
    EXPECT_EQ(TakeLog(), (Log{"iopl 3", "open /dev/mem rdwr sync cloexec -> ENOENT", OPEN_MSR, CLOSE_MSR}));
    EXPECT_EQ(static_cast<uint16_t>(gMemFd), 0xFFFF);
}

TEST(Driver, AForbiddenMemoryDeviceIsSilentAndNoFailure) {
    LoadBoard("intel", "mem EACCES");
    EXPECT_EQ(OpenLinuxDriver(), 0u);
    EXPECT_EQ(gMemFd, MEM_FD_NONE);
}

TEST(Driver, AMemoryDescriptorBeyond16BitsIsClosedAndNoFailure) {
    LoadBoard("intel");
    OpenGives(32767);
    EXPECT_EQ(OpenLinuxDriver(), 0u);
    EXPECT_EQ(gMemFd, 32767);
    EXPECT_EQ(GivenAndNotClosed(), 1);
    OpenGives(32768);
    EXPECT_EQ(OpenLinuxDriver(), 0u);
    EXPECT_EQ(gMemFd, MEM_FD_NONE);
    EXPECT_EQ(GivenAndNotClosed(), 0);
}

TEST(Driver, TheMsrModuleIsLoadedWhenItsNodeIsMissing) {
    LoadBoard("latemsr");
    EXPECT_EQ(OpenLinuxDriver(), 0u);
    EXPECT_EQ(TakeLog(), (Log{"iopl 3", OPEN_MEM, NO_MSR, "system modprobe msr", OPEN_MSR, CLOSE_MSR}));
}

TEST(Driver, AMissingMsrNodeIsTriedTwiceAndIsNoFailure) {
    LoadBoard("nomsr");
    EXPECT_EQ(Printed([] { EXPECT_EQ(OpenLinuxDriver(), 0u); }), "");
    EXPECT_EQ(TakeLog(), (Log{"iopl 3", OPEN_MEM, NO_MSR, "system modprobe msr", NO_MSR}));
}

TEST(Driver, ClosingLowersThePrivilegeAndThenClosesMemory) {
    OpenBoard("intel");
    EXPECT_EQ(CloseLinuxDriver(), 0u);
    EXPECT_EQ(TakeLog(), (Log{"iopl 0", "close /dev/mem"}));
    EXPECT_NE(gMemFd, MEM_FD_NONE); // not reset: a run opens and closes once
    gMemFd = MEM_FD_NONE;
}

TEST(Driver, ClosingWithoutAMemoryDeviceClosesNothing) {
    OpenBoard("nomem");
    EXPECT_EQ(CloseLinuxDriver(), 0u);
    EXPECT_EQ(TakeLog(), (Log{"iopl 0"}));
}

TEST(Driver, AProbeOfThePrivilegeGivesItBack) {
    LoadBoard("intel");
    EXPECT_EQ(ProbeIoPrivilege(), 0);
    EXPECT_EQ(TakeLog(), (Log{"iopl 3", "iopl 0"}));
    LoadBoard("noiopl");
    EXPECT_EQ(ProbeIoPrivilege(), EPERM);
    EXPECT_EQ(TakeLog(), (Log{"iopl 3 -> EPERM"}));
}
