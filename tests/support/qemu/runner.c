// Runs commands one after the other and records how each really ended.
//
//   runner COMMANDS RESULTS
//
// COMMANDS/0000, 0001 ... are folders with the files
//   argv      the words of the command, each ended by NUL
//   seconds   its time limit, in decimal
//   user      the user and group it runs as, in decimal
//   stdin     what it reads
// RESULTS/0000 ... receive the files stdout, stderr and status; status holds "exit N", "signal N" or
// "timeout". A shell cannot tell the first two apart when N is above 128; an exit status here is often a
// register's low byte, so that matters.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { MAX_WORDS = 256, MAX_BYTES = 1 << 17 };

static void fail(const char *what) {
    fprintf(stderr, "runner: %s: %s\n", what, strerror(errno));
    exit(1);
}

static const char *path_of(const char *folder, int number, const char *name) {
    static char path[4096];
    snprintf(path, sizeof path, "%s/%04d/%s", folder, number, name);
    return path;
}

// Reads a whole file into `buffer` and ends it with NUL; gives the length, or -1 when there is no such file.
static ssize_t read_file(const char *path, char *buffer, size_t size) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    ssize_t length = read(fd, buffer, size - 1);
    if (length < 0)
        fail(path);
    if ((size_t)length == size - 1) {
        errno = EFBIG;
        fail(path);
    }
    close(fd);
    buffer[length] = 0;
    return length;
}

static int read_number(const char *path) {
    char text[32];
    if (read_file(path, text, sizeof text) < 0)
        fail(path);
    return atoi(text);
}

static void redirect(const char *path, int flags, int target) {
    int fd = open(path, flags, 0644);
    if (fd < 0 || dup2(fd, target) < 0)
        fail(path);
    close(fd);
}

static void become(unsigned user) {
    if (user && (setgroups(0, NULL) || setgid(user) || setuid(user)))
        fail("setuid");
}

static void run_child(const char *commands, const char *results, int number, char *const words[]) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    setsid();
    unsigned user = (unsigned)read_number(path_of(commands, number, "user"));
    redirect(path_of(commands, number, "stdin"), O_RDONLY, 0);
    redirect(path_of(results, number, "stdout"), O_WRONLY | O_CREAT, 1);
    redirect(path_of(results, number, "stderr"), O_WRONLY | O_CREAT, 2);
    if (chdir("/tmp"))
        fail("/tmp");
    become(user);
    execvp(words[0], words);
    perror(words[0]);
    _exit(127); // as a shell does
}

// Waits for the child until the time is up, then ends its whole session.
static void wait_for(pid_t child, int seconds, char *verdict, size_t size) {
    sigset_t ended;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    time_t end = time(NULL) + seconds;
    int status;
    while (waitpid(child, &status, WNOHANG) == 0) {
        struct timespec left = {end - time(NULL), 0};
        if (left.tv_sec <= 0) {
            kill(-child, SIGKILL);
            waitpid(child, &status, 0);
            snprintf(verdict, size, "timeout");
            return;
        }
        sigtimedwait(&ended, NULL, &left);
    }
    if (WIFEXITED(status))
        snprintf(verdict, size, "exit %d", WEXITSTATUS(status));
    else
        snprintf(verdict, size, "signal %d", WTERMSIG(status));
}

static void write_text(const char *path, const char *text) {
    FILE *stream = fopen(path, "w");
    if (!stream || fputs(text, stream) < 0 || fclose(stream))
        fail(path);
}

static int run_one(const char *commands, const char *results, int number) {
    static char argv_text[MAX_BYTES];
    ssize_t length = read_file(path_of(commands, number, "argv"), argv_text, sizeof argv_text);
    if (length < 0)
        return 0;
    char *words[MAX_WORDS + 1];
    int count = 0;
    for (char *word = argv_text; word < argv_text + length; word += strlen(word) + 1) {
        if (count == MAX_WORDS) {
            errno = E2BIG;
            fail("argv");
        }
        words[count++] = word;
    }
    words[count] = NULL;
    if (mkdir(path_of(results, number, ""), 0755))
        fail("results");
    int seconds = read_number(path_of(commands, number, "seconds"));
    pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child == 0)
        run_child(commands, results, number, words);
    char verdict[32];
    wait_for(child, seconds, verdict, sizeof verdict);
    write_text(path_of(results, number, "status"), verdict);
    printf("command %d: %s\n", number, verdict);
    fflush(stdout);
    return 1;
}

int main(int argc, char **argv) {
    if (argc != 3)
        return 2;
    sigset_t ended;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, NULL);
    for (int number = 0; run_one(argv[1], argv[2], number); number++)
        ;
    return 0;
}
