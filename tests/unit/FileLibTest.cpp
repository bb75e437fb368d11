#include "Common/FileLib.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "TestHelp.h"

static std::string TextOf(const uint8_t *block, uint32_t length) {
    return std::string(reinterpret_cast<const char *>(block), length);
}

TEST(FileLib, StreamsPassThrough) {
    EnterScratchFolder();
    FILE *file = Fopen("DATA", "wb+");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Fwrite("abcdefgh", 2, 4, file), 4u);
    EXPECT_EQ(Ftell(file), 8);
    EXPECT_EQ(Fseek(file, 2, SEEK_SET), 0);
    char bytes[8] = {};
    EXPECT_EQ(Fread(bytes, 2, 2, file), 2u);
    EXPECT_STREQ(bytes, "cdef");
    EXPECT_EQ(Fseek(file, -1, SEEK_END), 0);
    EXPECT_EQ(Fread(bytes, 1, 8, file), 1u);
    EXPECT_EQ(Fclose(file), 0);
    EXPECT_EQ(FileText("DATA"), "abcdefgh");
    EXPECT_EQ(Fopen("ABSENT", "rb"), nullptr);
}

TEST(FileLib, TheSizeOfAFileIsItsBytes) {
    EnterScratchFolder();
    WriteFile("EMPTY", "");
    WriteFile("DATA", std::string("a\0b\n", 4));
    EXPECT_EQ(GetFileSize("EMPTY"), 0);
    EXPECT_EQ(GetFileSize("DATA"), 4);
    EXPECT_EQ(GetFileSize("ABSENT"), -1);
}

TEST(FileLib, ABufferIsStoredWhole) {
    EnterScratchFolder();
    WriteFile("DATA", "a much longer text than before");
    EXPECT_EQ(Buffer2File("DATA", "new\0text", 8), 0u);
    EXPECT_EQ(FileText("DATA"), std::string("new\0text", 8));
    EXPECT_EQ(Buffer2File("EMPTY", "x", 0), 0u);
    EXPECT_EQ(FileText("EMPTY"), "");
}

TEST(FileLib, ABufferThatCannotBeStoredAborts) {
    EXPECT_EQ(Buffer2File("/dev/full", "text", 4), 0x80000015u);
    const std::string large(100000, 'x');
    EXPECT_EQ(Buffer2File("/dev/full", large.data(), 100000), 0x80000015u);
    EnterScratchFolder();
    EXPECT_NE(Buffer2File("NO/SUCH/FOLDER", "text", 4), 0u);
}

TEST(FileLib, AFileIsLoadedWhole) {
    EnterScratchFolder();
    WriteFile("DATA", std::string("a\0b\n", 4));
    for (int create = 0; create < 2; ++create) {
        uint8_t *buffer = nullptr;
        uint32_t size = 99;
        EXPECT_EQ(File2Buffer("DATA", &buffer, &size, create), 0u);
        EXPECT_EQ(TextOf(buffer, size), std::string("a\0b\n", 4));
        Free(buffer);
        buffer = nullptr;
        EXPECT_EQ(File2RTBuffer("DATA", &buffer, &size, create), 0u);
        EXPECT_EQ(TextOf(buffer, size), std::string("a\0b\n", 4));
        Free(buffer);
    }
}

TEST(FileLib, AnEmptyFileIsLoadedAsNothing) {
    EnterScratchFolder();
    WriteFile("EMPTY", "");
    uint8_t *buffer = nullptr;
    uint32_t size = 99;
    EXPECT_EQ(File2Buffer("EMPTY", &buffer, &size, 0), 0u);
    EXPECT_EQ(size, 0u);
    Free(buffer);
}

TEST(FileLib, AnAbsentFileAborts) {
    EnterScratchFolder();
    uint8_t *buffer = nullptr;
    uint32_t size = 99;
    EXPECT_EQ(File2Buffer("ABSENT", &buffer, &size, 0), 0x80000015u);
    EXPECT_EQ(File2RTBuffer("ABSENT", &buffer, &size, 0), 0x80000015u);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_FALSE(std::filesystem::exists("ABSENT"));
}

TEST(FileLib, AnAbsentFileIsCreatedEmptyOnRequestAndStillAborts) {
    EnterScratchFolder();
    uint8_t byte;
    uint8_t *buffer = &byte;
    uint32_t size = 99;
    EXPECT_EQ(File2Buffer("NEW", &buffer, &size, 1), 0x80000015u);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(FileText("NEW"), "");
    buffer = &byte;
    size = 99;
    EXPECT_EQ(File2RTBuffer("NEW2", &buffer, &size, 1), 0x80000015u);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(FileText("NEW2"), "");
}

TEST(FileLib, OnlyACreateOfOneCreates) {
    EnterScratchFolder();
    uint8_t *buffer = nullptr;
    uint32_t size = 99;
    EXPECT_EQ(File2Buffer("ABSENT", &buffer, &size, 2), 0x80000015u);
    EXPECT_FALSE(std::filesystem::exists("ABSENT"));
}

TEST(FileLib, AFileIsNotLoadedWithoutMemory) {
    EnterScratchFolder();
    WriteFile("DATA", std::string(70000, 'x'));
    uint8_t *buffer = nullptr;
    uint32_t size = 99;
    LimitMalloc(69999);
    EXPECT_EQ(File2Buffer("DATA", &buffer, &size, 0), 0x80000009u);
    EXPECT_EQ(File2RTBuffer("DATA", &buffer, &size, 0), 0x80000009u);
    EXPECT_EQ(buffer, nullptr);
}

TEST(FileLib, AFileThatGivesFewerBytesThanItsSizeIsALoadError) {
    const char *attribute = "/sys/kernel/uevent_seqnum"; // says 4096 and has a number
    if (GetFileSize(attribute) <= 0)
        GTEST_SKIP() << "no sysfs here";
    uint8_t *buffer = nullptr;
    uint32_t size = 99;
    EXPECT_EQ(File2Buffer(attribute, &buffer, &size, 0), 0x80000001u);
    EXPECT_EQ(File2RTBuffer(attribute, &buffer, &size, 0), 0x80000001u);
    EXPECT_EQ(buffer, nullptr);
}

TEST(FileLib, AFileThatGivesMoreBytesThanItsSizeIsALoadError) {
    // Says 0 and has the words of a process; of the parent, since valgrind has another file for this one.
    const std::string path = "/proc/" + std::to_string(getppid()) + "/cmdline";
    const char *words = path.c_str();
    ASSERT_EQ(GetFileSize(words), 0);
    uint8_t byte;
    uint8_t *buffer = &byte;
    uint32_t size = 99;
    long held = BlocksHeld();
    EXPECT_EQ(File2Buffer(words, &buffer, &size, 0), 0x80000001u);
    EXPECT_EQ(File2RTBuffer(words, &buffer, &size, 0), 0x80000001u);
    EXPECT_EQ(buffer, &byte);
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(FileLib, OnlyALoadedFileLeavesABlockToTheCaller) {
    EnterScratchFolder();
    WriteFile("DATA", "a-b-c");
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    long held = BlocksHeld();
    File2Buffer("ABSENT", &buffer, &size, 1);
    File2Buffer("/sys/kernel/uevent_seqnum", &buffer, &size, 0); // a short read
    ReplaceFileContent("DATA", "-", 1, "+", 1);
    ReplaceFileContent("ABSENT2", "-", 1, "+", 1);
    EXPECT_EQ(BlocksHeld(), held);
    File2Buffer("DATA", &buffer, &size, 0);
    EXPECT_EQ(BlocksHeld(), held + 1);
    Free(buffer);
}

TEST(FileLib, EveryOccurrenceInAFileIsReplaced) {
    EnterScratchFolder();
    WriteFile("DATA", "a-b-c");
    EXPECT_EQ(ReplaceFileContent("DATA", "-", 1, "+", 1), 0x8000000Eu);
    EXPECT_EQ(FileText("DATA"), "a+b+c");
    EXPECT_EQ(ReplaceFileContent("DATA", "+", 1, " and ", 5), 0x8000000Eu);
    EXPECT_EQ(FileText("DATA"), "a and b and c");
    EXPECT_EQ(ReplaceFileContent("DATA", " and ", 5, "", 0), 0x8000000Eu);
    EXPECT_EQ(FileText("DATA"), "abc");
}

TEST(FileLib, EachSearchBeginsAtTheStartOfTheFile) {
    EnterScratchFolder();
    WriteFile("DATA", "aabbc");
    EXPECT_EQ(ReplaceFileContent("DATA", "ab", 2, "", 0),
              0x8000000Eu);               // the second one comes to be by the first
    EXPECT_EQ(FileText("DATA"), "aabbc"); // and the first is inside a partial match: missed
    WriteFile("DATA", "xabab");
    EXPECT_EQ(ReplaceFileContent("DATA", "xab", 3, "x", 1), 0x8000000Eu);
    EXPECT_EQ(FileText("DATA"), "x");
}

TEST(FileLib, AFileWithoutThePatternStaysAsItIs) {
    EnterScratchFolder();
    WriteFile("DATA", "abc");
    EXPECT_EQ(ReplaceFileContent("DATA", "-", 1, "+", 1), 0x8000000Eu);
    EXPECT_EQ(FileText("DATA"), "abc");
}

TEST(FileLib, ReplacingInAnAbsentFileGivesTheStatusOfTheLoad) {
    EnterScratchFolder();
    EXPECT_EQ(ReplaceFileContent("ABSENT", "-", 1, "+", 1), 0x80000015u);
    EXPECT_FALSE(std::filesystem::exists("ABSENT"));
}

// What is no regular file.
static void MakeOthers() {
    std::filesystem::create_directory("FOLDER");
    ASSERT_EQ(mkfifo("FIFO", 0600), 0);
    sockaddr_un name = {AF_UNIX, "SOCKET"};
    int end = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(end, reinterpret_cast<sockaddr *>(&name), sizeof(name)), 0);
    close(end);
    for (const char *device : {"null", "zero", "full", "random", "tty"})
        std::filesystem::create_symlink(std::string("/dev/") + device, device);
}

static bool Opens(FILE *(*open)(const char *), const char *path) {
    FILE *file = open(path);
    return file != nullptr && Fclose(file) == 0;
}

TEST(FileLib, NothingButARegularFileIsReadOrMadeAnew) {
    EnterScratchFolder();
    MakeOthers();
    for (const char *other : {"FOLDER", "FIFO", "SOCKET", "null", "zero", "full", "random", "tty", "ABSENT"})
        EXPECT_FALSE(Opens(OpenToRead, other)) << other;
    for (const char *other : {"FOLDER", "FIFO", "SOCKET", "null", "zero", "full", "random", "tty"})
        EXPECT_FALSE(Opens(OpenAnew, other)) << other;
}

TEST(FileLib, AFifoIsRefusedAlsoWhenItsOtherEndIsOpen) {
    EnterScratchFolder();
    ASSERT_EQ(mkfifo("FIFO", 0600), 0);
    int other = open("FIFO", O_RDWR);
    EXPECT_FALSE(Opens(OpenToRead, "FIFO"));
    EXPECT_FALSE(Opens(OpenAnew, "FIFO"));
    EXPECT_FALSE(Opens(OpenAnewOrSink, "FIFO"));
    close(other);
}

TEST(FileLib, ASinkTakesADumpAndNoOtherDeviceDoes) {
    EnterScratchFolder();
    MakeOthers();
    for (const char *sink : {"null", "zero", "full", "NEW"})
        EXPECT_TRUE(Opens(OpenAnewOrSink, sink)) << sink;
    for (const char *other : {"FOLDER", "FIFO", "SOCKET", "random", "tty"})
        EXPECT_FALSE(Opens(OpenAnewOrSink, other)) << other;
}

TEST(FileLib, AFileThatCannotBeLookedAtIsNotOpened) {
    OpenGives(1000); // of which fstat knows nothing
    EXPECT_EQ(OpenToRead("DATA"), nullptr);
    EXPECT_EQ(OpenAnewOrSink("DATA"), nullptr);
    EXPECT_EQ(GivenAndNotClosed(), 0);
}

// The number of a sink among the devices of another kind, terminals: a slave has the number of its master.
TEST(FileLib, ADeviceOfAnotherKindIsNoSinkWhateverItsNumber) {
    std::vector<int> masters;
    std::string slave;
    while (slave != "/dev/pts/3" && slave != "/dev/pts/5" && slave != "/dev/pts/7" && masters.size() < 9) {
        masters.push_back(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
        ASSERT_NE(masters.back(), -1);
        ASSERT_EQ(unlockpt(masters.back()), 0);
        slave = ptsname(masters.back());
    }
    ASSERT_EQ(access(slave.c_str(), W_OK), 0);
    EXPECT_FALSE(Opens(OpenAnewOrSink, slave.c_str())) << slave;
    for (int master : masters)
        close(master);
}

TEST(FileLib, AStreamWithoutADiskIsNotSynced) {
    EnterScratchFolder();
    FILE *null = fopen("/dev/null", "wb");
    EXPECT_FALSE(SyncFile(null));
    Fclose(null);
    FILE *file = fopen("DATA", "wb");
    EXPECT_TRUE(SyncFile(file));
    Fclose(file);
}

TEST(FileLib, ARegularFileIsReadAndMadeAnew) {
    EnterScratchFolder();
    WriteFile("DATA", "text");
    FILE *file = OpenToRead("DATA");
    char bytes[9] = {};
    EXPECT_EQ(Fread(bytes, 1, 8, file), 4u);
    EXPECT_STREQ(bytes, "text");
    Fclose(file);
    for (FILE *(*anew)(const char *) : {OpenAnew, OpenAnewOrSink}) {
        file = anew("DATA");
        EXPECT_EQ(Fwrite("new", 1, 3, file), 3u);
        Fclose(file);
        EXPECT_EQ(FileText("DATA"), "new");
    }
}

TEST(FileLib, AFileIsClosedInAProgramThatIsStarted) {
    EnterScratchFolder();
    WriteFile("DATA", "text");
    for (FILE *(*open)(const char *) : {OpenToRead, OpenAnew, OpenAnewOrSink}) {
        FILE *file = open("DATA");
        EXPECT_EQ(fcntl(fileno(file), F_GETFD), FD_CLOEXEC);
        Fclose(file);
    }
}

TEST(FileLib, ATerminalThatIsRefusedDoesNotBecomeTheControllingOne) {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string slave = ptsname(master);
    pid_t leader = fork();
    if (leader == 0) {
        setsid();
        bool refused = OpenToRead(slave.c_str()) == nullptr;
        _exit(refused && open("/dev/tty", O_RDWR | O_CLOEXEC) == -1 ? 0 : 1);
    }
    int status = -1;
    waitpid(leader, &status, 0);
    EXPECT_EQ(status, 0);
    close(master);
}

TEST(FileLib, NoFileStaysOpen) {
    EnterScratchFolder();
    unsigned open = OpenDescriptors();
    EXPECT_EQ(Buffer2File("a", "12", 2), EFI_SUCCESS);
    EXPECT_EQ(GetFileSize("a"), 2);
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(File2Buffer("a", &buffer, &size, 0), EFI_SUCCESS);
    Free(buffer);
    EXPECT_EQ(File2Buffer("b", &buffer, &size, 1), EFI_ABORTED); // made, and empty
    EXPECT_EQ(OpenDescriptors(), open);
}

TEST(FileLib, OfASizeBeyond31BitsTheLimitIsTold) {
    EnterScratchFolder();
    WriteFile("HUGE", "");
    std::filesystem::resize_file("HUGE", 0x7FFFFFFE);
    EXPECT_EQ(GetFileSize("HUGE"), 0x7FFFFFFE);
    std::filesystem::resize_file("HUGE", 0x80000000);
    EXPECT_EQ(GetFileSize("HUGE"), FILE_SIZE_LIMIT);
}

TEST(FileLib, AnAbsentFileThatCannotBeCreatedAborts) {
    EnterScratchFolder();
    uint8_t byte;
    uint8_t *buffer = &byte;
    uint32_t size = 7;
    EXPECT_EQ(File2Buffer("ABSENT/FILE", &buffer, &size, 1), 0x80000015u);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 0u);
}

TEST(FileLib, AFileThatGoesAwayBehindItsSizeIsNotLoaded) {
    EnterScratchFolder();
    WriteFile("DATA", "text");
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    long held = BlocksHeld();
    NextMalloc([](size_t length) {
        unlink("DATA");
        return malloc(length);
    });
    EXPECT_EQ(File2Buffer("DATA", &buffer, &size, 0), 0x80000001u);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(FileLib, AFileIsSyncedWithClosedOutputToo) {
    EnterScratchFolder();
    FILE *file = OpenAnew("DATA");
    ASSERT_NE(file, nullptr);
    int output = dup(STDOUT_FILENO);
    close(STDOUT_FILENO); // the folder's descriptor is 1 then
    bool synced = SyncFile(file);
    dup2(output, STDOUT_FILENO);
    close(output);
    fclose(file);
    EXPECT_TRUE(synced);
}
