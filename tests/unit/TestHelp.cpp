#include "TestHelp.h"

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "BasicLib/Chipset.h"
#include "BasicLib/Driver.h"
#include "BasicLib/PciWindow.h"
#include "Common/ComFunc/Console.h"
#include "Main/Parser.h"
#include "sim/Board.h"

static CmdArg mRecord;
static std::vector<std::vector<char *>> mVectors;
static bool mBoardLoaded = false;
static std::filesystem::path mFolderBefore;
static std::filesystem::path mScratchFolder;
static int mInputBefore = -1;
static int mKeyboard = -1;
static unsigned mMallocCountdown = 0;
static size_t mMallocLimit = SIZE_MAX;
static std::function<void *(size_t)> mNextMalloc;
static long mBlocksHeld = 0;
static int mGivenDescriptor = -1;
static long mGivenAndNotClosed = 0;
static unsigned mOpenCountdown = 0;

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size);
extern "C" void __real_free(void *block);
extern "C" void __wrap_free(void *block);

void *__wrap_malloc(size_t size) {
    if (mNextMalloc)
        return std::exchange(mNextMalloc, nullptr)(size);
    if ((mMallocCountdown != 0 && --mMallocCountdown == 0) || size > mMallocLimit)
        return nullptr;
    ++mBlocksHeld;
    return __real_malloc(size);
}

void __wrap_free(void *block) {
    if (block != nullptr)
        --mBlocksHeld;
    __real_free(block);
}

void FailMalloc(unsigned count) {
    mMallocCountdown = count;
}

void LimitMalloc(size_t bytes) {
    mMallocLimit = bytes;
}

const char *AtTheEndOfMemory(const std::string &bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(pages, MAP_FAILED);
    char *end = static_cast<char *>(pages) + page;
    mprotect(end, page, PROT_NONE);
    memcpy(end - bytes.size(), bytes.data(), bytes.size());
    return end - bytes.size();
}

void NextMalloc(const std::function<void *(size_t)> &allocate) {
    mNextMalloc = allocate;
}

long BlocksHeld() {
    return mBlocksHeld;
}

extern "C" int __real_open(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int flags, ...);
extern "C" int __real_close(int descriptor);
extern "C" int __wrap_close(int descriptor);

int __wrap_open(const char *path, int flags, ...) {
    if (mOpenCountdown != 0 && --mOpenCountdown == 0) {
        errno = EMFILE;
        return -1;
    }
    if (mGivenDescriptor >= 0) {
        ++mGivenAndNotClosed;
        return mGivenDescriptor;
    }
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return __real_open(path, flags, mode);
}

int __wrap_close(int descriptor) {
    if (mGivenDescriptor < 0 || descriptor != mGivenDescriptor)
        return __real_close(descriptor);
    --mGivenAndNotClosed;
    return 0;
}

unsigned OpenDescriptors() {
    unsigned count = 0;
    for (int descriptor = 0; descriptor < 100; ++descriptor)
        count += fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
    return count;
}

void OpenGives(int descriptor) {
    mGivenDescriptor = descriptor;
    mGivenAndNotClosed = 0;
}

void FailOpen(unsigned count) {
    mOpenCountdown = count;
}

long GivenAndNotClosed() {
    return mGivenAndNotClosed;
}

std::string Printed(const std::function<void()> &action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

char **Words(std::initializer_list<const char *> words) {
    std::vector<char *> vector;
    for (const char *word : words)
        vector.push_back(strdup(word));
    vector.push_back(nullptr);
    mVectors.push_back(vector);
    return mVectors.back().data();
}

static void FreeWords() {
    for (std::vector<char *> &vector : mVectors) {
        for (char *word : vector)
            free(word);
    }
    mVectors.clear();
}

CmdArg *SetCommand(std::initializer_list<const char *> words) {
    char **argv = Words(words);
    argvToUpper(argv);
    mRecord = {};
    gCmdArg = setTypeCmdArg(&mRecord, TranslateCmd(argv), static_cast<int>(words.size()), argv);
    return gCmdArg;
}

void AddFlags(CmdType flags) {
    setTypeCmdArg(&mRecord, CmdWord() | flags, mRecord.Argc, mRecord.Argv);
}

// Makes fd, which is closed, standard input.
static void SetInput(int fd) {
    if (mInputBefore < 0)
        mInputBefore = dup(STDIN_FILENO);
    dup2(fd, STDIN_FILENO);
    close(fd);
    __fpurge(stdin);
    clearerr(stdin);
}

std::string InputLeft() {
    std::string left;
    while (isKeyBoardHit())
        left.push_back(static_cast<char>(getch()));
    return left;
}

static void RestoreInput() {
    if (mInputBefore < 0)
        return;
    InputLeft(); // a key that isKeyBoardHit has seen is not for the next test
    SetInput(mInputBefore);
    mInputBefore = -1;
    if (mKeyboard >= 0)
        close(mKeyboard);
    mKeyboard = -1;
}

void FeedInput(const std::string &bytes) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(ends[1]);
    SetInput(ends[0]);
}

int OpenKeyboard() {
    int terminal = -1;
    EXPECT_EQ(openpty(&mKeyboard, &terminal, nullptr, nullptr, nullptr), 0);
    SetInput(terminal);
    return mKeyboard;
}

void EnterScratchFolder() {
    mFolderBefore = std::filesystem::current_path();
    char path[] = "/tmp/hwreg_unit.XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    mScratchFolder = path;
    std::filesystem::current_path(mScratchFolder);
}

static void LeaveScratchFolder() {
    if (mScratchFolder.empty())
        return;
    std::filesystem::current_path(mFolderBefore);
    std::filesystem::remove_all(mScratchFolder);
    mScratchFolder.clear();
}

std::string FileText(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteFile(const std::string &path, const std::string &bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    ASSERT_TRUE(file.flush()) << path;
}

static void CloseBoard() {
    if (mBoardLoaded)
        CloseLinuxDriver();
    mBoardLoaded = false;
    gMemFd = MEM_FD_NONE;
    BoardUnload();
    chipSetVid = 0;
    tempPcieBaseAddr = 0xFFFFFFFF;
}

void PokeText(uint32_t address, const std::string &text) {
    BoardPoke(address, text.data(), text.size());
}

void Poke16(uint32_t address, uint16_t value) {
    BoardPoke(address, &value, sizeof(value));
}

void Poke32(uint32_t address, uint32_t value) {
    BoardPoke(address, &value, sizeof(value));
}

uint16_t Function(unsigned bus, unsigned dev, unsigned fun) {
    return static_cast<uint16_t>(bus << 8 | dev << 3 | fun);
}

void LoadBoard(const std::string &name, const std::string &lines) {
    CloseBoard();
    char path[] = "/tmp/hwreg_unit.XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    WriteFile(path, "include " HWREG_BOARDS "/" + name + ".board\ncmos-stop\n" + lines + "\n");
    BoardLoad(path);
    unlink(path); // it has been read
    mBoardLoaded = true;
}

void OpenBoard(const std::string &name, const std::string &lines) {
    LoadBoard(name, lines);
    ASSERT_EQ(OpenLinuxDriver(), EFI_SUCCESS);
    BoardLogClear();
}

Log TakeLog() {
    std::istringstream text(BoardLog());
    BoardLogClear();
    Log lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

Log TakeAccesses() {
    Log lines = TakeLog();
    for (std::string &line : lines)
        line = line.substr(0, line.find(" -> "));
    return lines;
}

Log Delays(unsigned count) {
    return Log(count, "out8 00ed 00");
}

Log LegacyPci(const std::string &address, const std::string &access) {
    return Delays(2) + Log{"out32 0cf8 " + address, access};
}

Log Mapped(const std::string &page, const std::string &length, const Log &accesses) {
    return Log{"mmap /dev/mem " + page + " " + length + " rw shared -> ok"} + accesses +
           Log{"munmap " + page + " " + length};
}

Log operator+(Log first, const Log &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void ResetEverything() {
    mMallocCountdown = 0;
    mMallocLimit = SIZE_MAX;
    mNextMalloc = nullptr;
    gCmdArg = nullptr;
    static const char *const title = gTitle; // as it is before the first test
    gTitle = title;
    FreeWords();
    RestoreInput();
    LeaveScratchFolder();
    CloseBoard();
    mGivenDescriptor = -1;
    mOpenCountdown = 0;
}

uint64_t SignalsBlocked() {
    std::string status = FileText("/proc/self/status");
    return strtoull(status.c_str() + status.find("SigBlk:") + strlen("SigBlk:"), nullptr, 16);
}

void ExpectWholeTable(uint64_t signals) {
    const std::set<int> others = {SIGKILL, SIGSTOP, SIGILL,  SIGTRAP, SIGBUS, SIGFPE,
                                  SIGSEGV, SIGSYS,  SIGABRT, SIGCHLD, SIGURG, SIGWINCH};
    for (int number = 1; number <= 64; ++number)
        EXPECT_EQ((signals >> (number - 1)) & 1, others.count(number) ? 0u : 1u) << number;
}
