#include "tools/check/machine/Modprobe.h"

#include <dirent.h>
#include <fnmatch.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/Path.h"
#include "tools/check/machine/Privilege.h"

constexpr const char *LOAD_HINT = "load it by hand (modprobe msr) before hwreg is started";

// What modprobe's own files tell of the module.
struct ModprobeLines {
    bool replaced; // by a command, and not by one that loads it all the same
    char command[80];
    char file[80];
};

static void Refuse(MsrModule *module, ModuleState state, const char *remedy, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

static void Refuse(MsrModule *module, ModuleState state, const char *remedy, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(module->why, sizeof(module->why), format, args);
    va_end(args);
    module->state = state;
    module->remedy = remedy;
}

static void TakeWrites(MsrModule *module, const char *value, const char *from) {
    snprintf(module->allowWrites, sizeof(module->allowWrites), "%.*s",
             static_cast<int>(strcspn(value, " \t\n")), value);
    snprintf(module->writesFrom, sizeof(module->writesFrom), "%.79s", from);
}

// "install NAME COMMAND" and "options NAME PARAMETER=VALUE..." (modprobe.d(5)); names may be patterns.
static void TakeModprobeLine(char *line, const char *path, ModprobeLines *lines, MsrModule *module) {
    char *rest = nullptr;
    const char *keyword = strtok_r(line, " \t", &rest);
    const char *name = keyword == nullptr ? nullptr : strtok_r(nullptr, " \t", &rest);
    if (name == nullptr || fnmatch(name, "msr", 0) != 0)
        return;
    if (strcmp(keyword, "install") == 0) {
        lines->replaced = strstr(rest, "--ignore-install") == nullptr && strstr(rest, " -i ") == nullptr;
        snprintf(lines->command, sizeof(lines->command), "%.79s", rest);
        snprintf(lines->file, sizeof(lines->file), "%.79s", path);
    }
    const char *writes = strcmp(keyword, "options") == 0 ? strstr(rest, "allow_writes=") : nullptr;
    if (writes != nullptr)
        TakeWrites(module, writes + strlen("allow_writes="), path);
}

static void TakeModprobeFile(const char *path, ModprobeLines *lines, MsrModule *module) {
    char line[KERNEL_LINE];
    FILE *file = OpenToRead(path);
    while (NextLine(file, line))
        TakeModprobeLine(line, path, lines, module);
    if (file != nullptr)
        Fclose(file);
}

constexpr const char *FOLDERS[] = {"/etc/modprobe.d", "/run/modprobe.d", "/usr/local/lib/modprobe.d",
                                   "/usr/lib/modprobe.d", "/lib/modprobe.d"};

// A file hides those of its name in the folders behind its own.
static bool IsHidden(const char *const *folder, const char *name) {
    char path[KERNEL_LINE];
    for (const char *const *before = FOLDERS; before != folder; ++before) {
        snprintf(path, sizeof(path), "%s/%s", *before, name);
        if (FileExists(path))
            return true;
    }
    return false;
}

static void TakeModprobeFolders(ModprobeLines *lines, MsrModule *module) {
    for (const char *const &folder : FOLDERS) {
        DIR *opened = opendir(folder);
        const dirent *entry = opened == nullptr ? nullptr : readdir(opened);
        for (; entry != nullptr; entry = readdir(opened)) {
            char path[KERNEL_LINE];
            const char *suffix = strrchr(entry->d_name, '.');
            if (suffix == nullptr || strcmp(suffix, ".conf") != 0 || IsHidden(&folder, entry->d_name))
                continue;
            snprintf(path, sizeof(path), "%s/%s", folder, entry->d_name);
            TakeModprobeFile(path, lines, module);
        }
        if (opened != nullptr)
            closedir(opened);
    }
}

// Looks in a list of modules of the running release for the line of msr, puts its path.
static bool ListHasMsr(const char *list, char *path, size_t size) {
    char line[KERNEL_LINE];
    bool has = false;
    snprintf(line, sizeof(line), "/lib/modules/%s/%s", KernelRelease(), list);
    FILE *file = OpenToRead(line);
    while (!has && NextLine(file, line)) {
        line[strcspn(line, ": ")] = 0;
        const char *name = strrchr(line, '/');
        has = strncmp(name == nullptr ? line : name + 1, "msr.ko", 6) == 0;
    }
    if (file != nullptr)
        Fclose(file);
    if (has && line[0] == '/')
        snprintf(path, size, "%s", line);
    else if (has)
        snprintf(path, size, "/lib/modules/%.64s/%.400s", KernelRelease(), line);
    return has;
}

static bool IsLoaded() {
    char line[KERNEL_LINE];
    bool loaded = FileExists("/sys/module/msr/uevent");
    FILE *file = OpenToRead("/proc/modules");
    while (!loaded && NextLine(file, line))
        loaded = strncmp(line, "msr ", 4) == 0;
    if (file != nullptr)
        Fclose(file);
    return loaded;
}

// "module_blacklist=A,B": the kernel itself refuses them.
static bool IsBlacklisted() {
    const char *names = KernelParameter("module_blacklist");
    while (names != nullptr && *names != 0) {
        size_t length = strcspn(names, ",");
        if (length == 3 && strncmp(names, "msr", 3) == 0)
            return true;
        names += length + (names[length] == ',' ? 1 : 0);
    }
    return false;
}

static void FindFile(MsrModule *module) {
    char path[KERNEL_LINE] = "";
    if (ListHasMsr("modules.builtin", path, sizeof(path)))
        return Refuse(module, MODULE_BUILT_IN, "", "it is built into the kernel");
    if (!ListHasMsr("modules.dep", path, sizeof(path)))
        return Refuse(module, MODULE_ABSENT,
                      "install the modules of the running kernel, one with CONFIG_X86_MSR",
                      "/lib/modules/%.60s has no module msr", KernelRelease());
    if (!FileExists(path))
        Refuse(module, MODULE_ABSENT, "install the modules of the running kernel again", "%.120s is missing",
               path);
}

// What keeps a module that is there from being loaded, as hwreg will try it.
static void FindObstacle(const ModprobeLines *lines, MsrModule *module) {
    char where[KERNEL_LINE];
    char line[KERNEL_LINE];
    if (!InPath("modprobe", where, sizeof(where)))
        Refuse(module, MODULE_REFUSED, "install kmod, or add its folder to PATH: /usr/sbin",
               "no modprobe in PATH");
    else if (HasCapability(CAPABILITY_RAWIO) == TOLD_YES && HasCapability(CAPABILITY_MODULE) == TOLD_NO)
        Refuse(module, MODULE_REFUSED, LOAD_HINT, "CAP_SYS_MODULE was taken away");
    else if (FirstLine("/proc/sys/kernel/modules_disabled", line) && strcmp(line, "1") == 0)
        Refuse(module, MODULE_REFUSED,
               "start the machine again, and load msr before modules are switched off",
               "loading modules was switched off (kernel.modules_disabled)");
    else if (IsBlacklisted())
        Refuse(module, MODULE_REFUSED, "start the kernel without it",
               "module_blacklist= of the kernel's command line");
    else if (lines->replaced)
        Refuse(module, MODULE_REFUSED, "take that line away, or load it with modprobe --ignore-install msr",
               "%.60s runs \"%.60s\" instead", lines->file, lines->command);
}

void FindMsrModule(MsrModule *module) {
    ModprobeLines lines = {};
    char line[KERNEL_LINE];
    *module = {MODULE_COMES, "", "", "default", ""};
    TakeModprobeFolders(&lines, module);
    const char *parameter = KernelParameter("msr.allow_writes");
    if (parameter != nullptr)
        TakeWrites(module, parameter, "the kernel's command line");
    if (FirstLine("/sys/module/msr/parameters/allow_writes", line))
        TakeWrites(module, line, "/sys/module/msr/parameters/allow_writes");
    FindFile(module);
    if (IsLoaded())
        module->state = MODULE_LOADED;
    else if (module->state == MODULE_COMES)
        FindObstacle(&lines, module);
}
