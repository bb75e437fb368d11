#include "tools/check/machine/Path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// What dash, Debian's /bin/sh, takes without PATH.
constexpr const char *SHELLS_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

static bool IsProgram(const char *path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return errno == EACCES && access(path, X_OK) == 0;
    struct stat file;
    bool is = fstat(fd, &file) == 0 && S_ISREG(file.st_mode) && (file.st_mode & 0111) != 0;
    close(fd);
    return is;
}

bool InPath(const char *program, char *where, size_t size) {
    const char *path = getenv("PATH");
    if (path == nullptr)
        path = SHELLS_PATH;
    for (;;) {
        size_t length = strcspn(path, ":");
        int put = snprintf(where, size, "%.*s%s%s", static_cast<int>(length), path, length == 0 ? "./" : "/",
                           program);
        if (put >= 0 && static_cast<size_t>(put) < size && IsProgram(where))
            return true;
        if (path[length] == 0)
            return false;
        path += length + 1;
    }
}
