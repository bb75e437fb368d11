// files: whole files as buffers and back, and a pattern that is replaced in one, through FileLib.h; the
// counter files of power cycling; files that are not there, or full. Asserted: the bytes that the file has to
// hold afterwards, sizes and statuses. The files lie in memory (Sandbox.h).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Base/Memory.h"
#include "Common/FileLib.h"
#include "Goal.h"
#include "Models.h"
#include "Project/Rtc.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr size_t MOST_BYTES = 300;
constexpr size_t MOST_PATTERN = 4;
constexpr size_t ROOM = MOST_BYTES * MOST_PATTERN + 1;

void CheckFile(const uint8_t *bytes, size_t length, bool runTime) {
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    EFI_STATUS status = runTime ? File2RTBuffer("F", &buffer, &size, 0) : File2Buffer("F", &buffer, &size, 0);
    Expect(status == EFI_SUCCESS && size == length && memcmp(buffer, bytes, length) == 0,
           "a file as a buffer");
    Expect(GetFileSize("F") == static_cast<int>(length), "a file's size");
    Free(buffer);
}

void CheckAbsent(bool create) {
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    Expect(GetFileSize("NONE") == -1, "no size");
    Expect(File2Buffer("NONE", &buffer, &size, create) == EFI_ABORTED && buffer == nullptr, "no file");
    Expect(size == (create ? 0 : 0xFFFFFFFF) && GetFileSize("NONE") == (create ? 0 : -1),
           "it is made when asked");
    Expect(File2Buffer("", &buffer, &size, 1) == EFI_ABORTED && size == 0, "a file that cannot be made");
    Expect(Buffer2File("", &size, 1) == EFI_ABORTED, "a file without a name");
    Expect(OpenToRead("ABSENT") == nullptr, "nothing to be read");
}

// All matches, searched from the front again behind each.
size_t ModelReplace(uint8_t *bytes, size_t length, const uint8_t *pattern, size_t patternLength,
                    const uint8_t *replacement, size_t newLength) {
    for (;;) {
        uint64_t end = FindWithoutGoingBack(bytes, length, pattern, patternLength, 0);
        if (end == NOT_THERE)
            return length;
        size_t start = end - patternLength;
        memmove(bytes + start + newLength, bytes + end, length - end);
        memcpy(bytes + start, replacement, newLength);
        length = length - patternLength + newLength;
    }
}

// Without a letter of the pattern in it, the replacement makes no new match.
void CheckReplacement(const uint8_t *bytes, size_t length, Input *input) {
    static uint8_t expected[ROOM];
    uint8_t pattern[MOST_PATTERN];
    uint8_t replacement[MOST_PATTERN];
    size_t patternLength = 1 + TakeByte(input) % MOST_PATTERN;
    size_t newLength = TakeByte(input) % (MOST_PATTERN + 1);
    for (uint8_t &letter : pattern)
        letter = static_cast<uint8_t>("ab"[TakeByte(input) & 1]);
    memset(replacement, 'x', sizeof replacement);
    memcpy(expected, bytes, length);
    size_t wanted =
        newLength == 0 ? 0 : ModelReplace(expected, length, pattern, patternLength, replacement, newLength);
    if (newLength == 0) // what is taken out may bring letters of the pattern together
        return;
    Expect(ReplaceFileContent("F", pattern, static_cast<uint32_t>(patternLength), replacement,
                              static_cast<uint32_t>(newLength)) == EFI_NOT_FOUND,
           "the last search finds nothing");
    CheckFile(expected, wanted, false);
    Expect(ReplaceFileContent("ABSENT", pattern, 1, replacement, 1) == EFI_ABORTED, "no file");
}

void CheckCounter(Input *input) {
    uint32_t count = static_cast<uint32_t>(TakeOdd(input, 32));
    Expect(RtcLogAndRtcCount("COUNT", count) == 1, "a counter is written");
    uint32_t next = count >= 0xFFFFFFFE ? 1 : count + 1;
    next = count == 0xFFFFFFFF ? 0 : next; // wraps first
    Expect(DisplayLogCount("COUNT") == next, "and counted on");
    Expect(DisplayLogCount("ABSENT") == 0 && RtcLogAndRtcCount("", count) == 0, "no counter");
}

void CheckStreams(const uint8_t *bytes, size_t length) {
    FILE *file = OpenToRead("F");
    Expect(file != nullptr && Fseek(file, 0, SEEK_END) == 0 && Ftell(file) == static_cast<long>(length),
           "a place");
    Fclose(file);
    file = OpenAnewOrSink("G");
    Expect(file != nullptr && Fwrite(bytes, 1, length, file) == length && SyncFile(file),
           "a file that is kept");
    Fclose(file);
    Expect(GetFileSize("G") == static_cast<int>(length), "all of it is kept");
}

// Devices are nothing to be read, and sinks only where that is said; one of them is always full.
void CheckSinks(const uint8_t *bytes, size_t length) {
    const char *const sinks[] = {"/dev/null", "/dev/zero", "/dev/full"};
    for (const char *sink : sinks) {
        Expect(OpenToRead(sink) == nullptr && OpenAnew(sink) == nullptr, "a device is no regular file");
        FILE *file = OpenAnewOrSink(sink);
        bool full = sink == sinks[2] && length != 0;
        Expect(file != nullptr && Fwrite(bytes, 1, length, file) == length, "a sink");
        Expect(SyncFile(file) == false, "a device has nothing that lasts");
        Expect((Fclose(file) != 0) <= full, "a full one says so");
    }
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    Expect(Buffer2File("/dev/full", bytes, static_cast<uint32_t>(length)) == EFI_ABORTED || length == 0,
           "no room");
    RefuseBlock(1);
    Expect(File2Buffer("F", &buffer, &size, 0) == EFI_OUT_OF_RESOURCES && buffer == nullptr, "no memory");
}

} // namespace

void FuzzFiles(Input input) {
    uint8_t kind = TakeByte(&input);
    size_t length;
    uint32_t most = Take16(&input) % MOST_BYTES;
    if (kind % 8 == 7)
        return CheckCounter(&input);
    if (kind % 8 == 6)
        return CheckAbsent((kind & 0x80) != 0);
    uint8_t *bytes = TakeBlock(&input, most, &length);
    for (size_t i = 0; i < length && (kind & 0x40); i++)
        bytes[i] = static_cast<uint8_t>("abc"[bytes[i] % 3]);
    Expect(Buffer2File("F", bytes, static_cast<uint32_t>(length)) == EFI_SUCCESS, "a buffer as a file");
    CheckFile(bytes, length, (kind & 1) != 0);
    if ((kind & 6) == 4)
        CheckSinks(bytes, length);
    else if (kind & 2)
        CheckStreams(bytes, length);
    else
        CheckReplacement(bytes, length, &input);
    free(bytes);
}
