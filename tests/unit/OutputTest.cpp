#include "Common/ComFunc/Output.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

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
