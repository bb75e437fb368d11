// Runs commands in turn, again and again, and prints what each run took.
//
//   bench_timer ROUNDS -- [NAME=VALUE...] COMMAND WORD... [-- COMMAND...]...
//
// One line a run: number of the command, nanoseconds from fork to the end, microseconds of processor time
// (user and system), peak memory in KiB, page faults, exit status (minus the signal if one ended it). A first
// round is not printed. All runs are bound to one processor, read nothing, and write to /dev/null.
#define _GNU_SOURCE
#include <fcntl.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { MAX_COMMANDS = 16 };

static void BindToOneProcessor(void) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(sched_getcpu(), &set);
    sched_setaffinity(0, sizeof set, &set);
}

// Cuts the words at each "--"; gives the number of commands.
static int CutCommands(char **words, char ***commands) {
    int count = 0;
    for (; *words; words++) {
        if (strcmp(*words, "--") != 0)
            continue;
        *words = NULL;
        if (words[1] && count < MAX_COMMANDS)
            commands[count++] = words + 1;
    }
    return count;
}

static void Become(char **words) {
    int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    close(nothing);
    for (; *words && strchr(*words, '='); words++)
        putenv(*words);
    execvp(words[0], words);
    perror(words[0]);
    _exit(127);
}

static int64_t Nanoseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

static long Microseconds(const struct rusage *usage) {
    return (usage->ru_utime.tv_sec + usage->ru_stime.tv_sec) * 1000000L + usage->ru_utime.tv_usec +
           usage->ru_stime.tv_usec;
}

static void RunOne(int number, char **command, int print) {
    struct rusage usage;
    int status;
    int64_t begin = Nanoseconds();
    pid_t child = fork();
    if (child == 0)
        Become(command);
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        perror("bench_timer");
        exit(1);
    }
    int64_t end = Nanoseconds();
    if (print)
        printf("%d %lld %ld %ld %ld %d\n", number, (long long)(end - begin), Microseconds(&usage),
               usage.ru_maxrss, usage.ru_minflt, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

int main(int argc, char **argv) {
    char **commands[MAX_COMMANDS];
    int rounds = argc > 2 ? atoi(argv[1]) : 0;
    int count = argc > 2 ? CutCommands(argv + 2, commands) : 0;
    if (rounds < 1 || count < 1)
        return 2;
    BindToOneProcessor();
    setvbuf(stdout, NULL, _IOFBF, 1 << 16);
    for (int round = 0; round <= rounds; round++)
        for (int i = 0; i < count; i++)
            RunOne(i, commands[i], round > 0);
    return 0;
}
