#include "tools/check/machine/KernelFiles.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Common/FileLib.h"

constexpr long MOST_BYTES = 16 << 20; // of a file of lines
constexpr uint32_t MOST_SKIPPED = 1 << 20;
constexpr size_t COMMAND_LINE = 4096; // COMMAND_LINE_SIZE is 2048 on x86

static char mCommandLine[COMMAND_LINE] = "";
static bool mCommandLineRead = false;

struct ConfigOption {
    const char *name;
    ConfigValue value;
};

// The options that are asked for.
static ConfigOption mOptions[] = {
    {"CONFIG_DEVMEM", CONFIG_IS_UNKNOWN},           {"CONFIG_STRICT_DEVMEM", CONFIG_IS_UNKNOWN},
    {"CONFIG_IO_STRICT_DEVMEM", CONFIG_IS_UNKNOWN}, {"CONFIG_X86_IOPL_IOPERM", CONFIG_IS_UNKNOWN},
    {"CONFIG_X86_MSR", CONFIG_IS_UNKNOWN},
};
static bool mConfigTaken = false;

bool NextLine(FILE *file, char line[KERNEL_LINE]) {
    line[0] = 0;
    if (file == nullptr || ftell(file) > MOST_BYTES)
        return false;
    size_t length = 0;
    uint32_t skipped = 0;
    int c = getc(file);
    if (c == EOF)
        return false;
    for (; c != EOF && c != '\n' && skipped < MOST_SKIPPED; c = getc(file)) {
        if (length + 1 < KERNEL_LINE)
            line[length++] = static_cast<char>(c == '\t' || isprint(c) != 0 ? c : '?');
        else
            ++skipped;
    }
    line[length] = 0;
    return true;
}

bool FirstLine(const char *path, char line[KERNEL_LINE]) {
    FILE *file = OpenToRead(path);
    bool is = NextLine(file, line);
    if (file != nullptr)
        Fclose(file);
    return is;
}

int64_t ReadBytes(const char *path, uint64_t offset, void *bytes, size_t length) {
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return -1;
    size_t done = 0;
    while (done < length) {
        ssize_t got =
            pread(fd, static_cast<uint8_t *>(bytes) + done, length - done, static_cast<off_t>(offset + done));
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    close(fd);
    return static_cast<int64_t>(done);
}

uint32_t ReadWhole(const char *path, uint8_t *bytes, uint32_t size) {
    memset(bytes, 0, size);
    int64_t got = ReadBytes(path, 0, bytes, size);
    return got < 0 ? 0 : static_cast<uint32_t>(got);
}

bool FileExists(const char *path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return errno != ENOENT && errno != ENOTDIR;
    close(fd);
    return true;
}

const char *KernelRelease() {
    static utsname kernel = {};
    if (kernel.release[0] == 0)
        uname(&kernel);
    return kernel.release;
}

const char *KernelParameter(const char *name) {
    if (!mCommandLineRead) {
        int64_t got = ReadBytes("/proc/cmdline", 0, mCommandLine, sizeof(mCommandLine) - 1);
        mCommandLine[got < 0 ? 0 : got] = 0;
        mCommandLineRead = true;
    }
    static char value[KERNEL_LINE];
    const char *found = nullptr;
    size_t length = strlen(name);
    for (const char *word = mCommandLine; *word != 0;) {
        size_t end = strcspn(word, " \n");
        if (strncmp(word, name, length) == 0 && (end == length || word[length] == '=')) {
            size_t skip = end == length ? length : length + 1;
            snprintf(value, sizeof(value), "%.*s", static_cast<int>(end - skip), word + skip);
            found = value;
        }
        word += end + strspn(word + end, " \n");
    }
    return found;
}

// A line of a configuration: "CONFIG_X=y", or "# CONFIG_X is not set". True when it is one.
static bool TakeConfigLine(const char *line) {
    bool off = strncmp(line, "# CONFIG_", 9) == 0;
    const char *name = off ? line + 2 : line;
    if (strncmp(name, "CONFIG_", 7) != 0)
        return false;
    size_t length = strcspn(name, "= ");
    for (ConfigOption &option : mOptions) {
        if (strncmp(name, option.name, length) == 0 && option.name[length] == 0)
            option.value = off || strcmp(name + length, "=n") == 0 ? CONFIG_IS_OFF : CONFIG_IS_ON;
    }
    return true;
}

// An option that does not apply to a kernel has no line. False for a file without any.
static bool TakeConfig(FILE *file) {
    char line[KERNEL_LINE];
    bool any = false;
    while (NextLine(file, line))
        any |= TakeConfigLine(line);
    for (ConfigOption &option : mOptions) {
        if (any && option.value == CONFIG_IS_UNKNOWN)
            option.value = CONFIG_IS_OFF;
    }
    return any;
}

static bool TakeConfigFile(const char *format) {
    char path[KERNEL_LINE];
    snprintf(path, sizeof(path), format, KernelRelease());
    FILE *file = OpenToRead(path);
    bool taken = TakeConfig(file);
    if (file != nullptr)
        Fclose(file);
    return taken;
}

// What the kernel has packed into itself.
static bool TakePackedConfig() {
    if (!FileExists("/proc/config.gz"))
        return false;
    FILE *pipe = popen("exec zcat /proc/config.gz 2>/dev/null", "re");
    bool taken = TakeConfig(pipe);
    if (pipe != nullptr)
        pclose(pipe);
    return taken;
}

ConfigValue KernelConfig(const char *option) {
    if (!mConfigTaken && !TakePackedConfig() && !TakeConfigFile("/boot/config-%s"))
        TakeConfigFile("/lib/modules/%s/config");
    mConfigTaken = true;
    for (const ConfigOption &known : mOptions) {
        if (strcmp(known.name, option) == 0)
            return known.value;
    }
    return CONFIG_IS_UNKNOWN;
}
