#include "Common/ComFunc/Output.h"

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Common/ComFunc/Signals.h"
#include "TestHelp.h"

// Standard output is a pipe as long as this lives.
struct OutputPipe {
    int reader;
    int before;

    OutputPipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        fflush(stdout);
        before = dup(STDOUT_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        reader = ends[0];
        fcntl(reader, F_SETFL, O_NONBLOCK);
    }

    ~OutputPipe() {
        fflush(stdout);
        dup2(before, STDOUT_FILENO);
        close(before);
        close(reader);
    }

    // What is in the pipe now.
    std::string Taken() const {
        std::string text;
        char piece[4096];
        for (ssize_t count; (count = read(reader, piece, sizeof(piece))) > 0;)
            text.append(piece, static_cast<size_t>(count));
        return text;
    }

    // Fills the pipe up to its last byte and returns how many it took.
    size_t Fill() const {
        fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        size_t filled = 0;
        while (write(STDOUT_FILENO, "#", 1) == 1)
            ++filled;
        fcntl(STDOUT_FILENO, F_SETFL, 0);
        return filled;
    }
};

TEST(Output, WhatIsPrintedInAHoldComesWithItsRelease) {
    OutputPipe pipe;
    HoldOutput();
    puts("one");
    fflush(stdin); // nothing that is done with another stream lets it out
    EXPECT_EQ(pipe.Taken(), "");
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "one\n");
}

TEST(Output, WhatWasPrintedBeforeAHoldIsOut) {
    OutputPipe pipe;
    fputs("before", stdout);
    HoldOutput();
    EXPECT_EQ(pipe.Taken(), "before");
    ReleaseOutput();
}

static size_t HeapBehindARelease() {
    OutputPipe pipe;
    HoldOutput();
    puts("one");
    ReleaseOutput();
    return mallinfo2().uordblks;
}

TEST(Output, AReleaseGivesTheStreamBack) {
    size_t before = HeapBehindARelease();
    EXPECT_LT(HeapBehindARelease() - before, 1024u); // the library keeps a few bytes for itself
}

TEST(Output, TheViewsOfAWholeSuperIoChipAreKept) {
    OutputPipe pipe;
    std::string text(60000, 'v');
    HoldOutput();
    fputs(text.c_str(), stdout);
    EXPECT_EQ(pipe.Taken(), "");
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), text);
}

TEST(Output, WhoeverIsAskedForAKeySeesWhatIsKept) {
    OutputPipe pipe;
    HoldOutput();
    fputs("page 1\n", stdout);
    ShowHeldOutput();
    EXPECT_EQ(pipe.Taken(), "page 1\n");
    fputs("page 2\n", stdout);
    EXPECT_EQ(pipe.Taken(), "");
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "page 2\n");
}

TEST(Output, OutsideOfAHoldThereIsNothingToShow) {
    OutputPipe pipe;
    HoldOutput();
    fputs("one", stdout);
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "one");
    ShowHeldOutput();
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "");
}

TEST(Output, WhereNobodyReadsASignalEndsTheShowAndTheRestComesWithTheRelease) {
    OutputPipe pipe;
    size_t filled = pipe.Fill();
    signal(SIGINT, [](int) {});
    HoldOutput();
    HoldSignals();
    fputs("page 1\n", stdout);
    raise(SIGINT);
    ShowHeldOutput();
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(pipe.Taken(), std::string(filled, '#'));
    ReleaseSignals();
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "page 1\n");
    signal(SIGINT, SIG_DFL);
}

static unsigned mIdleWrites = 0;
static bool mNextWriteFails = false;

extern "C" ssize_t __real_write(int descriptor, const void *bytes, size_t count);

// So many of the next writes take nothing; or the next one fails.
extern "C" ssize_t __wrap_write(int descriptor, const void *bytes, size_t count) {
    if (mIdleWrites == 0 && !mNextWriteFails)
        return __real_write(descriptor, bytes, count);
    errno = EIO; // where the write takes nothing, of an earlier call: it says nothing of this one
    if (std::exchange(mNextWriteFails, false))
        return -1;
    --mIdleWrites;
    return 0;
}

TEST(Output, AShowThatTakesNothingIsTriedAgain) {
    OutputPipe pipe;
    HoldOutput();
    puts("one");
    mIdleWrites = 2;
    ShowHeldOutput();
    EXPECT_EQ(mIdleWrites, 0u);
    EXPECT_EQ(pipe.Taken(), "one\n");
    ReleaseOutput();
    EXPECT_EQ(pipe.Taken(), "");
    EXPECT_FALSE(OutputIsLost());
}

TEST(Output, AShowWaitsForAReaderWhoComesLate) {
    OutputPipe pipe;
    size_t filled = pipe.Fill();
    pid_t late = fork();
    if (late == 0) {
        usleep(50000);
        std::string text(filled, 0);
        _exit(read(pipe.reader, text.data(), filled) == static_cast<ssize_t>(filled) ? 0 : 1);
    }
    HoldOutput();
    fputs("page 1\n", stdout);
    ShowHeldOutput();
    ReleaseOutput();
    int status = -1;
    waitpid(late, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(pipe.Taken(), "page 1\n");
}

// Ends the process: 0 when nothing is lost, 1 when something is.
[[noreturn]] static void EndTelling(const char *path, void (*print)()) {
    dup2(open(path, O_WRONLY), STDOUT_FILENO);
    print();
    bool lost = OutputIsLost();
    EndOutput();
    _exit(lost ? 1 : 0);
}

static void PrintAndFlush() {
    puts("text");
    fflush(stdout);
}

static void PrintHeldAndShow() {
    HoldOutput();
    puts("text");
    ShowHeldOutput();
}

TEST(OutputDeathTest, OutputThatCannotBeWrittenIsLostAndSaidToBe) {
    EXPECT_EXIT(EndTelling("/dev/full", PrintAndFlush), testing::ExitedWithCode(1),
                "^hwreg: output was lost\n$");
    EXPECT_EXIT(EndTelling("/dev/full", PrintHeldAndShow), testing::ExitedWithCode(1),
                "^hwreg: output was lost\n$");
    EXPECT_EXIT(EndTelling("/dev/full", [] { puts("text"); }), testing::ExitedWithCode(0),
                "^hwreg: output was lost\n$");
}

static void PrintMoreThanIsKept() {
    HoldOutput();
    fputs(std::string(200000, 'v').c_str(), stdout);
    ReleaseOutput();
}

TEST(OutputDeathTest, WhatDoesNotFitIntoWhatIsKeptIsSaidToBeLost) {
    EXPECT_EXIT(EndTelling("/dev/null", PrintMoreThanIsKept), testing::ExitedWithCode(1),
                "^hwreg: output was lost\n$");
}

TEST(OutputDeathTest, OutputThatIsWrittenIsNotLost) {
    EXPECT_EXIT(EndTelling("/dev/null", PrintAndFlush), testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(EndTelling("/dev/null", PrintHeldAndShow), testing::ExitedWithCode(0), "^$");
}

static void LoseAPageAndReleaseTheNext() {
    HoldOutput();
    fputs("page 1\n", stdout);
    mNextWriteFails = true;
    ShowHeldOutput();
    fputs("page 2\n", stdout);
    ReleaseOutput();
}

TEST(OutputDeathTest, WhatIsLostInAShowDoesNotComeLaterOutOfItsPlace) {
    EnterScratchFolder();
    WriteFile("out", "");
    EXPECT_EXIT(EndTelling("out", LoseAPageAndReleaseTheNext), testing::ExitedWithCode(1),
                "^hwreg: output was lost\n$");
    EXPECT_EQ(FileText("out"), "page 2\n");
}

static void ShowWhereNothingCanBeWritten() {
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[0], STDOUT_FILENO) == -1 || fcntl(STDOUT_FILENO, F_GETFL) != 0)
        _exit(2); // no flag at all is set before,
    PrintHeldAndShow();
    if (fcntl(STDOUT_FILENO, F_GETFL) != 0)
        _exit(3); // nor behind it
}

TEST(OutputDeathTest, AShowThatFailsPutsTheFlagsBack) {
    EXPECT_EXIT(EndTelling("/dev/null", ShowWhereNothingCanBeWritten), testing::ExitedWithCode(1),
                "^hwreg: output was lost\n$");
}

// The path and the access mode of the file that EnsureStandardDescriptors puts in the place of a closed
// descriptor; "and more" when it opens others, too.
static std::string PutInPlace(int closed, bool nullFails) {
    int before = fcntl(closed, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    unsigned open = OpenDescriptors();
    close(closed);
    FailOpen(nullFails ? 1 : 0);
    EnsureStandardDescriptors();
    FailOpen(0);
    char path[64] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(closed);
    ssize_t length = readlink(link.c_str(), path, sizeof(path));
    int mode = fcntl(closed, F_GETFL) & O_ACCMODE;
    bool others = OpenDescriptors() != open;
    dup2(before, closed);
    close(before);
    return std::string(path, length > 0 ? static_cast<size_t>(length) : 0) +
           (mode == O_RDWR ? " rw" : " not rw") + (others ? " and more" : "");
}

TEST(Output, ADescriptorThatIsClosedTakesAndGivesNothing) {
    fflush(stdout);
    for (int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        EXPECT_EQ(PutInPlace(closed, false), "/dev/null rw") << closed;
        EXPECT_EQ(PutInPlace(closed, true), "/ not rw") << closed;
    }
}

TEST(Output, WhereNoDescriptorIsClosedNothingIsOpened) {
    pid_t child = fork();
    if (child == 0) {
        close_range(STDERR_FILENO + 1, 99, 0);
        EnsureStandardDescriptors();
        _exit(static_cast<int>(OpenDescriptors()));
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}
