#include "Common/ComFunc/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "TestHelp.h"

static std::string PrintedColor(uint16_t number) {
    return Printed([&] { setColor(number); });
}

TEST(Console, EveryColourNumberHasItsSequence) {
    const char *const sequences[] = {"\033[0;30m", "\033[0;34m", "\033[0;32m", "\033[0;36m", "\033[0;31m",
                                     "\033[0;31m", "\033[0;33m", "\033[0m",    "\033[1;37m", "\033[1;34m",
                                     "\033[1;32m", "\033[1;36m", "\033[1;31m", "\033[1;31m", "\033[1;33m"};
    for (uint16_t number = 0; number < 15; ++number)
        EXPECT_EQ(PrintedColor(number), sequences[number]) << number;
    const uint16_t others[] = {15, 16, 27, 0x103, 0xFFFF};
    for (uint16_t number : others)
        EXPECT_EQ(PrintedColor(number), "\033[0m") << number;
}

TEST(Console, TextModeWritesNoSequence) {
    SetCommand({"hwreg", "/TEXT"});
    for (uint16_t number = 0; number < 16; ++number)
        EXPECT_EQ(PrintedColor(number), "") << number;
    SetCommand({"hwreg", "/DUMP", "/LOG"});
    EXPECT_EQ(PrintedColor(6), "\033[0;33m");
}

TEST(Console, GetchReadsOneByteAtATime) {
    FeedInput("a\033[A\xFF");
    EXPECT_EQ(getch(), 'a');
    EXPECT_EQ(getch(), 27); // an arrow key comes byte by byte
    EXPECT_EQ(getch(), '[');
    EXPECT_EQ(getch(), 'A');
    EXPECT_EQ(getch(), 0xFF);
    EXPECT_EQ(getch(), EOF);
}

static termios TerminalModes() {
    termios modes = {};
    EXPECT_EQ(tcgetattr(STDIN_FILENO, &modes), 0);
    return modes;
}

static bool SameModes(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag;
}

static void Type(int keyboard, const char *keys) {
    ASSERT_EQ(write(keyboard, keys, strlen(keys)), static_cast<ssize_t>(strlen(keys)));
}

// What the terminal has echoed so far.
static std::string Echoed(int keyboard) {
    pollfd waiting = {keyboard, POLLIN, 0};
    char text[64];
    ssize_t count = poll(&waiting, 1, 100) == 1 ? read(keyboard, text, sizeof(text)) : 0;
    return std::string(text, count > 0 ? static_cast<size_t>(count) : 0);
}

TEST(Console, GetchTakesAKeyWithoutEnterAndWithoutEcho) {
    int keyboard = OpenKeyboard();
    termios before = TerminalModes();
    termios during = {};
    std::thread typist([&] {
        // The key is typed once getch has changed the modes and waits.
        do {
            usleep(1000);
            during = TerminalModes();
        } while ((during.c_lflag & ICANON) != 0);
        Type(keyboard, "q");
    });
    EXPECT_EQ(getch(), 'q');
    typist.join();
    termios expected = before;
    expected.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    EXPECT_TRUE(SameModes(during, expected)); // these two modes and nothing else
    EXPECT_TRUE(SameModes(TerminalModes(), before));
    EXPECT_EQ(Echoed(keyboard), "");
}

TEST(Console, IsKeyBoardHitDoesNotWait) {
    OpenKeyboard();
    EXPECT_EQ(isKeyBoardHit(), 0);
    EXPECT_EQ(isKeyBoardHit(), 0);
}

// The key is typed in the mode without lines, so that it is there at once.
static void TypeWithoutLines(int keyboard, const char *keys) {
    termios raw = TerminalModes();
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    Type(keyboard, keys);
    pollfd waiting = {STDIN_FILENO, POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 1000), 1);
}

TEST(Console, IsKeyBoardHitSeesAKeyAndLeavesIt) {
    int keyboard = OpenKeyboard();
    TypeWithoutLines(keyboard, "x");
    EXPECT_EQ(isKeyBoardHit(), 1);
    EXPECT_EQ(isKeyBoardHit(), 1);
    EXPECT_EQ(getch(), 'x');
    EXPECT_EQ(isKeyBoardHit(), 0);
}

TEST(Console, IsKeyBoardHitRestoresModesAndDescriptorFlags) {
    int keyboard = OpenKeyboard();
    termios modes = TerminalModes();
    int flags = fcntl(STDIN_FILENO, F_GETFL);
    EXPECT_EQ(isKeyBoardHit(), 0);
    EXPECT_TRUE(SameModes(TerminalModes(), modes));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL), flags);
    EXPECT_EQ(flags & O_NONBLOCK, 0);
    Type(keyboard, "y\n");
    while (isKeyBoardHit() == 0)
        usleep(1000);
    EXPECT_TRUE(SameModes(TerminalModes(), modes));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL), flags);
    EXPECT_EQ(getch(), 'y');
}

TEST(Console, AWaitForAKeyAfterATestThatFoundNoneStillWaits) {
    int keyboard = OpenKeyboard();
    EXPECT_EQ(isKeyBoardHit(), 0);
    std::thread typist([&] {
        usleep(20000);
        Type(keyboard, "k\n");
    });
    EXPECT_EQ(getch(), 'k');
    typist.join();
}

TEST(Console, IsKeyBoardHitDoesNotWaitForAPipeEither) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    FeedInput(""); // input is put back behind the test
    dup2(ends[0], STDIN_FILENO);
    ASSERT_EQ(fcntl(STDIN_FILENO, F_GETFL), 0); // no flag at all is set before
    std::thread typist([&] {
        usleep(200000);
        Type(ends[1], "k");
    });
    EXPECT_EQ(isKeyBoardHit(), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL), 0);
    EXPECT_EQ(getch(), 'k');
    typist.join();
    close(ends[0]);
    close(ends[1]);
}

TEST(Console, IsKeyBoardHitIsZeroAtTheEndOfInput) {
    FeedInput("");
    EXPECT_EQ(isKeyBoardHit(), 0);
    EXPECT_EQ(getch(), EOF);
}

TEST(Console, AnEndOfInputThatIsKeyBoardHitSawIsNotRemembered) {
    FeedInput("");
    EXPECT_EQ(isKeyBoardHit(), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "k", 1), 1);
    dup2(ends[0], STDIN_FILENO); // input goes on, behind the stream's back
    EXPECT_EQ(getch(), 'k');
    close(ends[0]);
    close(ends[1]);
}

TEST(Console, GetKBKeyGivesTheWaitingKeyOrZero) {
    FeedInput("ab");
    EXPECT_EQ(GetKBKey(), 'a');
    EXPECT_EQ(GetKBKey(), 'b');
    EXPECT_EQ(GetKBKey(), 0);
}

TEST(Console, ASignalDuringTheWaitEndsTheProgramWithTheTerminalAsItWas) {
    OpenKeyboard();
    termios before = TerminalModes();
    pid_t child = fork();
    if (child == 0) {
        getch();
        _exit(0);
    }
    while ((TerminalModes().c_lflag & ICANON) != 0)
        usleep(1000);
    kill(child, SIGINT);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    EXPECT_TRUE(SameModes(TerminalModes(), before));
}

TEST(Console, AStopDuringTheWaitLeavesTheTerminalAsItWasUntilTheProgramGoesOn) {
    int keyboard = OpenKeyboard();
    termios before = TerminalModes();
    pid_t child = fork();
    if (child == 0) {
        close(keyboard); // the terminal ends with the test, whatever becomes of it
        setpgid(0, 0);   // the kernel stops no group that nobody of another group would let go on
        _exit(getch());
    }
    while ((TerminalModes().c_lflag & ICANON) != 0)
        usleep(1000);
    kill(child, SIGTSTP);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_TRUE(SameModes(TerminalModes(), before));
    kill(child, SIGCONT);
    while ((TerminalModes().c_lflag & ICANON) != 0)
        usleep(1000);
    Type(keyboard, "k");
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 'k');
}

// As long as this lives, no descriptor from this number on can be had.
struct DescriptorLimit {
    rlimit before;

    explicit DescriptorLimit(int first) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
        rlimit limit = {static_cast<rlim_t>(first), before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    ~DescriptorLimit() {
        setrlimit(RLIMIT_NOFILE, &before);
    }
};

TEST(Console, WhereNoWaitIsPossibleTheKeyIsReadAllTheSame) {
    FeedInput("k");
    DescriptorLimit limit(1); // poll takes no more places than that
    EXPECT_EQ(getch(), 'k');
}

static volatile sig_atomic_t mInterruptions = 0;

TEST(Console, AWaitThatIsInterruptedStillWaitsForKeysAndSignals) {
    OpenKeyboard();
    for (int number : {SIGWINCH, SIGUSR1})
        signal(number, [](int) { mInterruptions = mInterruptions + 1; });
    mInterruptions = 0;
    HoldSignals();
    std::thread other([waiting = pthread_self()] {
        for (int i = 0; i < 50; ++i) { // the first ones may come before the wait begins
            usleep(2000);
            pthread_kill(waiting, SIGWINCH);
        }
        pthread_kill(waiting, SIGUSR1);
    });
    EXPECT_EQ(getch(), KEY_ESC);
    other.join();
    EXPECT_GE(mInterruptions, 1);
    mInterruptions = 0;
    ReleaseSignals();
    EXPECT_EQ(mInterruptions, 1);
    for (int number : {SIGWINCH, SIGUSR1})
        signal(number, SIG_DFL);
}

TEST(Console, AContinueIsNoEndOfAWaitInAHold) {
    FeedInput("k");
    HoldSignals();
    raise(SIGCONT); // comes before the key
    EXPECT_EQ(getch(), 'k');
    ReleaseSignals();
}

TEST(Console, AWaitThatAContinueInterruptsStillWaitsWhereNothingCanBeRead) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    FeedInput(""); // input is put back behind the test
    dup2(ends[1], STDIN_FILENO);
    signal(SIGINT, [](int) {});
    HoldSignals();
    raise(SIGCONT);
    std::thread other([] {
        usleep(100000);
        kill(getpid(), SIGINT);
    });
    EXPECT_EQ(getch(), KEY_ESC);
    other.join();
    ReleaseSignals();
    signal(SIGINT, SIG_DFL);
    close(ends[0]);
    close(ends[1]);
}

TEST(Console, DisplayPositionXYPrintsItsTextWhereverThatIs) {
    EXPECT_EQ(Printed([] { DisplayPositionXY(10, 20, "%s: %02X %%", "status", 5); }), "status: 05 %");
    EXPECT_EQ(Printed([] { GotoXY(0x00140010); }), "");
}

TEST(Console, DisplayPositionXYKeepsToItsBuffer) {
    const std::string text(100000, 'x');
    EXPECT_EQ(Printed([&] { DisplayPositionXY(0, 0, "%s", text.c_str()); }), std::string(255, 'x'));
}

TEST(Console, ShowTitlePrintsTheHeadingAfterAKey) {
    FeedInput("\n");
    int key = 0;
    EXPECT_EQ(Printed([&] { key = ShowTitle(); }),
              "*********Press Enter to continue!*********\nNumber\tType\tI/O\tLevel\n");
    EXPECT_EQ(key, '\n');
}

TEST(Console, ShowTitlePrintsNoHeadingAfterEsc) {
    FeedInput("\033");
    int key = 0;
    EXPECT_EQ(Printed([&] { key = ShowTitle(); }), "*********Press Enter to continue!*********\n");
    EXPECT_EQ(key, 27);
}

TEST(Console, ShowTitlePrintsAnotherHeadingAsText) {
    FeedInput("a");
    gTitle = "100%d\n";
    EXPECT_EQ(Printed([] { ShowTitle(); }), "*********Press Enter to continue!*********\n100%d\n");
}

static unsigned mLooks = 0;
static unsigned mLooksWithoutHold = 0;
static unsigned mLooksElsewhere = 0; // so many find another job in the foreground

extern "C" pid_t __real_tcgetpgrp(int fd);

// The program's look whether it is in the foreground.
extern "C" pid_t __wrap_tcgetpgrp(int fd) {
    ++mLooks;
    mLooksWithoutHold += SignalsAreHeld() ? 0 : 1;
    pid_t foreground = __real_tcgetpgrp(fd);
    if (mLooksElsewhere == 0)
        return foreground;
    --mLooksElsewhere;
    return foreground + 1;
}

TEST(Console, NoStopComesBetweenTheLookForTheForegroundAndTheModes) {
    int keyboard = OpenKeyboard();
    mLooks = mLooksWithoutHold = 0;
    isKeyBoardHit();
    ASSERT_EQ(write(keyboard, "k", 1), 1);
    EXPECT_EQ(getch(), 'k');
    EXPECT_GE(mLooks, 2u);
    EXPECT_EQ(mLooksWithoutHold, 0u);
}

// The exit status of a job of a session of its own, which has standard input as its terminal and its shell as
// parent. 0 unless SIGTTIN has stopped it once.
static int StatusOfAJobThatStops(const std::function<int()> &work) {
    pid_t shell = fork();
    if (shell != 0) {
        int status = 0;
        EXPECT_EQ(waitpid(shell, &status, 0), shell);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    }
    setsid();
    ioctl(STDIN_FILENO, TIOCSCTTY, 0);
    signal(SIGTTOU, SIG_IGN); // whoever gives the terminal away
    pid_t job = fork();
    if (job == 0) {
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpgrp());
        _exit(work());
    }
    int stop = 0;
    waitpid(job, &stop, WUNTRACED);
    kill(job, SIGCONT);
    int status = 0;
    waitpid(job, &status, 0);
    _exit(WIFSTOPPED(stop) && WSTOPSIG(stop) == SIGTTIN && WIFEXITED(status) ? WEXITSTATUS(status) : 0);
}

TEST(Console, WhereAReadDoesNotStopABackgroundJobItStopsItself) {
    Type(OpenKeyboard(), "k\n");
    EXPECT_EQ(StatusOfAJobThatStops([] {
                  mLooksElsewhere = 2; // before the read and behind it, but not when it goes on
                  return getch();
              }),
              'k');
}

TEST(Console, ABackgroundJobThatCannotBeStoppedGetsTheEndOfInput) {
    Type(OpenKeyboard(), "k\n");
    pid_t job = fork();
    if (job == 0) {
        setsid();
        ioctl(STDIN_FILENO, TIOCSCTTY, 0);
        signal(SIGTTIN, SIG_IGN);
        mLooksElsewhere = 3; // before the wait, before the signal and behind it
        _exit(getch() == EOF ? 0 : 1);
    }
    int status = -1;
    waitpid(job, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(Console, WithoutADescriptorForSignalsAWaitLooksForThemNowAndThen) {
    int keyboard = OpenKeyboard();
    DescriptorLimit limit(STDERR_FILENO + 1);
    std::thread typist([&] {
        while ((TerminalModes().c_lflag & ICANON) != 0)
            usleep(1000);
        usleep(200000);
        Type(keyboard, "k");
    });
    EXPECT_EQ(getch(), 'k');
    typist.join();
    signal(SIGINT, [](int) {});
    HoldSignals();
    raise(SIGINT);
    EXPECT_EQ(getch(), KEY_ESC);
    ReleaseSignals();
    signal(SIGINT, SIG_DFL);
}
