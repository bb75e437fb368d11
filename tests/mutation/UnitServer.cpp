// The unit tests as a server of mutants: started once, it runs tests in a child of its own for each mutant.
//
// $HWREG_SERVE=serve: each line "NUMBER SECONDS CPU_SECONDS FILTER" of standard input is answered by a line:
// "survived", "killed NAME" or "timeout NAME" with the test that was the last one. $HWREG_SERVE=record: all
// tests are run, and a line "NAME CPU_MILLISECONDS PASSED NUMBER..." for each one tells which mutants it
// reaches. Without it, these are the ordinary unit tests.
#include "tests/unit/UnitRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Mutants.h"

constexpr int COMMANDS = 900; // descriptors that no test takes for one of its own
constexpr int ANSWERS = 901;
constexpr size_t NAME_LENGTH = 400;

static void KeepStreams() {
    dup3(STDIN_FILENO, COMMANDS, O_CLOEXEC);
    dup3(STDOUT_FILENO, ANSWERS, O_CLOEXEC);
    int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    close(null);
}

// In a process of its own: what a test leaves behind must not spare the next one a step.
static void RecordTest(const testing::TestInfo *info, FILE *answers) {
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
    for (int i = 0; i < Mutants::MOST; ++i)
        Mutants::gReached[i] = 0;
    fflush(answers);
    pid_t child = fork();
    if (child == 0) {
        Mutants::Switch(Mutants::MOST - 1); // no mutant has it; what fails by the switch alone is not asked
        TakeSignalsAsUsual();
        testing::GTEST_FLAG(filter) = name;
        _exit(RUN_ALL_TESTS() == 0 ? 0 : 1);
    }
    int status = 0;
    rusage usage = {};
    wait4(child, &status, 0, &usage);
    long milliseconds = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
                        (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
    fprintf(answers, "%s %ld %d", name.c_str(), milliseconds, status == 0 ? 1 : 0);
    for (int i = 0; i < Mutants::MOST; ++i) {
        if (Mutants::gReached[i] != 0)
            fprintf(answers, " %d", i);
    }
    fprintf(answers, "\n");
}

static int Record() {
    Mutants::ShareReached();
    FILE *answers = fdopen(ANSWERS, "w");
    testing::UnitTest *unit = testing::UnitTest::GetInstance();
    for (int i = 0; i < unit->total_test_suite_count(); ++i) {
        const testing::TestSuite *suite = unit->GetTestSuite(i);
        for (int j = 0; j < suite->total_test_count(); ++j)
            RecordTest(suite->GetTestInfo(j), answers);
    }
    fclose(answers);
    return 0;
}

// Tells the parent which test is run, up to the first one that fails: those behind it are skipped.
struct Teller : testing::EmptyTestEventListener {
    char *name;
    bool failed = false;

    void OnTestPartResult(const testing::TestPartResult &result) override {
        failed = failed || result.failed();
    }
    void OnTestStart(const testing::TestInfo &info) override {
        if (!failed)
            snprintf(name, NAME_LENGTH, "%s.%s", info.test_suite_name(), info.name());
    }
};

static void RunChild(int number, unsigned seconds, const char *filter) {
    setpgid(0, 0);
    rlimit limit = {seconds, seconds};
    setrlimit(RLIMIT_CPU, &limit);
    testing::GTEST_FLAG(filter) = filter;
    testing::GTEST_FLAG(fail_fast) = true;
    Mutants::Switch(number);
    TakeSignalsAsUsual(); // not before: what is found out once must be found out by the mutant
    _exit(RUN_ALL_TESTS() == 0 ? 0 : 1);
}

// The tests hold no more than their own group of processes, which ends with them.
static const char *WaitFor(pid_t child, unsigned seconds) {
    int status = 0;
    unsigned left = seconds * 1000;
    for (; left > 0 && waitpid(child, &status, WNOHANG) == 0; --left)
        usleep(1000);
    kill(-child, SIGKILL);
    if (left > 0)
        return status == 0 ? "survived" : "killed";
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return "timeout";
}

static int Serve() {
    FILE *commands = fdopen(COMMANDS, "r");
    char *line = nullptr;
    size_t room = 0;
    Teller *teller = new Teller;
    teller->name = static_cast<char *>(
        mmap(nullptr, NAME_LENGTH, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    testing::UnitTest::GetInstance()->listeners().Append(teller);
    while (getline(&line, &room, commands) > 0) {
        char *rest = nullptr;
        int number = static_cast<int>(strtol(line, &rest, 10));
        unsigned seconds = static_cast<unsigned>(strtoul(rest, &rest, 10));
        unsigned cpuSeconds = static_cast<unsigned>(strtoul(rest, &rest, 10));
        rest[strcspn(rest, "\n")] = 0;
        pid_t child = fork();
        if (child == 0)
            RunChild(number, cpuSeconds, rest + 1);
        setpgid(child, child);
        const char *answer = WaitFor(child, seconds);
        dprintf(ANSWERS, "%s %s\n", answer, teller->name);
    }
    free(line);
    return 0;
}

int main(int argc, char **argv) {
    const char *serve = getenv("HWREG_SERVE");
    if (serve != nullptr)
        KeepStreams();
    BeginUnitTests(&argc, argv);
    if (serve != nullptr)
        return strcmp(serve, "record") == 0 ? Record() : Serve();
    TakeSignalsAsUsual();
    return RUN_ALL_TESTS();
}
