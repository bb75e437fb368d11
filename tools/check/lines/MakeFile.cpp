#include "tools/check/lines/MakeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"

constexpr unsigned MOST_LINKS = 40; // that the kernel follows

static bool No(char reason[FILE_REASON], const char *path, const char *text) {
    snprintf(reason, FILE_REASON, "%.120s: %s", path, text);
    return false;
}

// The folder in which the name would stand, without a "/" at its end.
static void FolderOf(const char *path, char folder[PATH_MAX]) {
    const char *slash = strrchr(path, '/');
    size_t length = slash == nullptr ? 0 : slash == path ? 1 : static_cast<size_t>(slash - path);
    snprintf(folder, PATH_MAX, "%.*s", static_cast<int>(length), path);
    if (length == 0)
        snprintf(folder, PATH_MAX, ".");
}

// In a folder that all may write into the kernel lets nobody, root included, open somebody else's file to
// make it anew (fs.protected_regular).
static bool IsProtected(const char *path, const struct stat *file) {
    char line[KERNEL_LINE];
    char folder[PATH_MAX];
    struct stat around;
    int level = FirstLine("/proc/sys/fs/protected_regular", line) ? atoi(line) : 0;
    FolderOf(path, folder);
    if (level == 0 || stat(folder, &around) != 0 || (around.st_mode & S_ISVTX) == 0)
        return false;
    bool shared = (around.st_mode & S_IWOTH) != 0 || (level > 1 && (around.st_mode & S_IWGRP) != 0);
    return shared && file->st_uid != geteuid() && file->st_uid != around.st_uid;
}

static bool CanReplace(const char *path, const struct stat *file, bool sinks, char reason[FILE_REASON]) {
    if (S_ISDIR(file->st_mode))
        return No(reason, path, "it is a folder");
    if (!S_ISREG(file->st_mode) && !(sinks && IsSink(file)))
        return No(reason, path, "it is no regular file");
    if (faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) != 0)
        return No(reason, path, strerror(errno));
    if (S_ISREG(file->st_mode) && IsProtected(path, file))
        return No(reason, path, "somebody else's file in a folder for all (fs.protected_regular)");
    return true;
}

// Where a link leads. False for what is no link.
static bool FollowLink(const char *path, char target[PATH_MAX]) {
    char link[PATH_MAX];
    char folder[PATH_MAX];
    ssize_t length = readlink(path, link, sizeof(link) - 1);
    if (length < 0)
        return false;
    link[length] = 0;
    FolderOf(path, folder);
    int put =
        snprintf(target, PATH_MAX, "%s%s%s", link[0] == '/' ? "" : folder, link[0] == '/' ? "" : "/", link);
    return put < PATH_MAX;
}

// A link to a name that is not there yet makes the file where it leads. No link leads to itself here.
static bool CanMakeAnew(const char *path, char reason[FILE_REASON]) {
    char at[PATH_MAX];
    char target[PATH_MAX];
    char folder[PATH_MAX];
    snprintf(at, sizeof(at), "%s", path);
    for (unsigned i = 0; i < MOST_LINKS && FollowLink(at, target); ++i)
        snprintf(at, sizeof(at), "%s", target);
    if (at[strlen(at) - 1] == '/')
        return No(reason, path, strerror(EISDIR));
    FolderOf(at, folder);
    if (faccessat(AT_FDCWD, folder, W_OK | X_OK, AT_EACCESS) != 0)
        return No(reason, folder, strerror(errno));
    return true;
}

bool CanMakeFile(const char *path, bool sinks, char reason[FILE_REASON]) {
    struct stat file;
    size_t length = strlen(path);
    if (length == 0 || length >= PATH_MAX)
        return No(reason, path, strerror(length == 0 ? ENOENT : ENAMETOOLONG));
    if (stat(path, &file) == 0)
        return CanReplace(path, &file, sinks, reason);
    if (errno != ENOENT)
        return No(reason, path, strerror(errno));
    return CanMakeAnew(path, reason);
}
