#include "Common/Sprint.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "TestHelp.h"

// Formats one or more arguments the way Printf's callers do.
#define FORMATTED(...) Printed([&] { Printf(__VA_ARGS__); })

TEST(Sprint, TextWithoutConversionsIsCopied) {
    EXPECT_EQ(FORMATTED("return data:\r\n\t\xE4"), "return data:\r\n\t\xE4");
    EXPECT_EQ(FORMATTED(""), "");
}

TEST(Sprint, DoublePercentIsOnePercent) {
    EXPECT_EQ(FORMATTED("100%%"), "100%");
    EXPECT_EQ(FORMATTED("%%%d%%", 5), "%5%");
    EXPECT_EQ(FORMATTED("%%d", 5), "%d");
}

TEST(Sprint, IntegerConversions) {
    EXPECT_EQ(FORMATTED("%d %D", 1234, 5678), "1234 5678");
    EXPECT_EQ(FORMATTED("%x", 0xAB), "ab");
    EXPECT_EQ(FORMATTED("%X", 0xAB), "AB");
    EXPECT_EQ(FORMATTED("%o %O", 8, 64), "10 100");
    EXPECT_EQ(FORMATTED("%d%x%X%o", 0, 0, 0, 0), "0000");
}

TEST(Sprint, IPrintsLowerCaseHexadecimal) {
    EXPECT_EQ(FORMATTED("%i", 10), "a");
    EXPECT_EQ(FORMATTED("%i", 0xBEEF), "beef");
    EXPECT_EQ(FORMATTED("%li", static_cast<uint64_t>(0x123456789AB)), "123456789ab");
}

TEST(Sprint, A32BitIntegerIsZeroExtended) {
    EXPECT_EQ(FORMATTED("%d", -1), "4294967295");
    EXPECT_EQ(FORMATTED("%X", -1), "FFFFFFFF");
    EXPECT_EQ(FORMATTED("%i", -1), "ffffffff");
    EXPECT_EQ(FORMATTED("%o", -1), "37777777777");
}

TEST(Sprint, LMakesTheValue64BitsWide) {
    EXPECT_EQ(FORMATTED("%ld", static_cast<uint64_t>(12345678901)), "12345678901");
    EXPECT_EQ(FORMATTED("%lD", static_cast<uint64_t>(12345678901)), "12345678901");
    EXPECT_EQ(FORMATTED("%lx", static_cast<uint64_t>(0x123456789ABCDEF)), "123456789abcdef");
    EXPECT_EQ(FORMATTED("%lX", static_cast<uint64_t>(0x123456789ABCDEF)), "123456789ABCDEF");
    EXPECT_EQ(FORMATTED("%lo", static_cast<uint64_t>(0x1000000000)), "1000000000000");
    EXPECT_EQ(FORMATTED("%lO", ~static_cast<uint64_t>(0)), "1777777777777777777777");
}

TEST(Sprint, OnlyA64BitDecimalShowsASign) {
    EXPECT_EQ(FORMATTED("%ld", static_cast<int64_t>(-5)), "-5");
    EXPECT_EQ(FORMATTED("%lX", static_cast<int64_t>(-5)), "FFFFFFFFFFFFFFFB");
    EXPECT_EQ(FORMATTED("%05ld", static_cast<int64_t>(-5)), "000-5"); // the zeros come before the text
}

TEST(Sprint, AWidthPadsWithZerosAndNeverCuts) {
    EXPECT_EQ(FORMATTED("%02X", 5), "05");
    EXPECT_EQ(FORMATTED("%04x", 0xAB), "00ab");
    EXPECT_EQ(FORMATTED("%09d", 42), "000000042");
    EXPECT_EQ(FORMATTED("%03D", 7), "007");
    EXPECT_EQ(FORMATTED("%02X", 0x123), "123");
    EXPECT_EQ(FORMATTED("%00d", 7), "7");
    EXPECT_EQ(FORMATTED("%08lX", static_cast<uint64_t>(0x12345)), "00012345");
    EXPECT_EQ(FORMATTED("%08lX", static_cast<uint64_t>(0x123456789)), "123456789");
    EXPECT_EQ(FORMATTED("%05lo", static_cast<uint64_t>(8)), "00010");
    EXPECT_EQ(FORMATTED("%05li", static_cast<uint64_t>(10)), "0000a");
}

TEST(Sprint, AWidthIsForgottenAfterItsConversion) {
    EXPECT_EQ(FORMATTED("%04X %X", 1, 2), "0001 2");
    EXPECT_EQ(FORMATTED("%04X%s", 1, "a"), "0001a");
}

TEST(Sprint, UpperCaseAndWidthOfLAreForgottenAfterTheirConversion) {
    EXPECT_EQ(FORMATTED("%X%x", 0xAB, 0xAB), "ABab");
    EXPECT_EQ(FORMATTED("%lX %x %d", static_cast<uint64_t>(0xAB), 0xCD, -1), "AB cd 4294967295");
}

TEST(Sprint, WidthsInAnyOtherFormArePrintedAsTheyStand) {
    EXPECT_EQ(FORMATTED("%5d", 1), "%5d");
    EXPECT_EQ(FORMATTED("%2X", 1), "%2X");
    EXPECT_EQ(FORMATTED("%-4s", "a"), "%-4s");
    EXPECT_EQ(FORMATTED("%05s", "a"), "%05s");
    EXPECT_EQ(FORMATTED("%016lX", static_cast<uint64_t>(1)), "%016lX");
    EXPECT_EQ(FORMATTED("%05o", 8), "%05o");
    EXPECT_EQ(FORMATTED("%05O", 8), "%05O");
    EXPECT_EQ(FORMATTED("%05i", 8), "%05i");
    EXPECT_EQ(FORMATTED("%05c", 'a'), "%05c");
    EXPECT_EQ(FORMATTED("%0X", 1), "%0X");
}

TEST(Sprint, WhatIsPrintedAsItStandsTakesNoArgument) {
    EXPECT_EQ(FORMATTED("%5d %d", 7), "%5d 7");
    EXPECT_EQ(FORMATTED("%05s %d", 7), "%05s 7");
    EXPECT_EQ(FORMATTED("%lu %d", 7), "%lu 7");
    EXPECT_EQ(FORMATTED("%u %d", 7), "%u 7");
}

TEST(Sprint, LBeforeAnythingElseIsPrintedAsItStands) {
    EXPECT_EQ(FORMATTED("%lu", static_cast<uint64_t>(1)), "%lu");
    EXPECT_EQ(FORMATTED("%ls", "a"), "%ls");
    EXPECT_EQ(FORMATTED("%lld", static_cast<uint64_t>(1)), "%lld");
    EXPECT_EQ(FORMATTED("%l%d", 7), "%l%d"); // the byte behind the l is text, whatever it is
}

TEST(Sprint, UnknownLettersArePrintedWithTheirPercent) {
    EXPECT_EQ(FORMATTED("%u %p %f %n %q %I"), "%u %p %f %n %q %I");
    EXPECT_EQ(FORMATTED("% d"), "% d");
}

TEST(Sprint, StringsOf8BitUnits) {
    EXPECT_EQ(FORMATTED("[%s][%a]", "RB", "WB"), "[RB][WB]");
    EXPECT_EQ(FORMATTED("%s", ""), "");
    EXPECT_EQ(FORMATTED("%s", "%d"), "%d");
}

TEST(Sprint, StringsOf16BitUnitsAreWrittenAsTheirLowBytes) {
    const uint16_t text[] = {'B', 'I', 'O', 'S', 0x3042, 0};
    EXPECT_EQ(FORMATTED("[%S]", text), "[BIOSB]");
}

TEST(Sprint, CWritesTheLowByte) {
    EXPECT_EQ(FORMATTED("%c%c", 'A', 0x142), "AB");
}

TEST(Sprint, ANulCharacterEndsWhatPrintfWritesButNotItsCount) {
    int count = 0;
    EXPECT_EQ(Printed([&] { count = Printf("a%cb", 0); }), "a");
    EXPECT_EQ(count, 3);
}

static EFI_GUID CountingGuid() {
    EFI_GUID guid;
    for (uint8_t i = 0; i < sizeof(guid); ++i)
        memcpy(reinterpret_cast<uint8_t *>(&guid) + i, &i, 1);
    return guid;
}

TEST(Sprint, GuidsPrintEachByteOfData4InAGroupOfItsOwn) {
    EFI_GUID guid = CountingGuid();
    EXPECT_EQ(FORMATTED("%G", &guid), "03020100-0504-0706-08-09-0A-0B-0C-0D-0E-0F");
    EXPECT_EQ(FORMATTED("%g", &guid), "03020100-0504-0706-08-09-0a-0b-0c-0d-0e-0f");
}

TEST(Sprint, GuidFieldsArePaddedWithZeros) {
    EFI_GUID guid = {0xA, 0xB, 0xC, {0, 1, 2, 3, 4, 5, 6, 0xAB}};
    EXPECT_EQ(FORMATTED("%G", &guid), "0000000A-000B-000C-00-01-02-03-04-05-06-AB");
    EXPECT_EQ(FORMATTED("%G%x", &guid, 0xAB), "0000000A-000B-000C-00-01-02-03-04-05-06-ABab");
}

TEST(Sprint, SuccessAndWarningNames) {
    const char *const names[] = {"EFI_SUCCESS", "EFI_WARN_UNKNOWN_GLYPH", "EFI_WARN_DELETE_FAILURE",
                                 "EFI_WARN_WRITE_FAILURE", "EFI_WARN_BUFFER_TOO_SMALL"};
    for (uint64_t code = 0; code < 5; ++code)
        EXPECT_EQ(FORMATTED("%r", code), names[code]);
}

TEST(Sprint, ErrorNames) {
    const char *const names[] = {
        "EFI_LOAD_ERROR",           "EFI_INVALID_PARAMETER",  "EFI_UNSUPPORTED",
        "EFI_BAD_BUFFER_SIZE",      "EFI_BUFFER_TOO_SMALL",   "EFI_NOT_READY",
        "EFI_DEVICE_ERROR",         "EFI_WRITE_PROTECTED",    "EFI_OUT_OF_RESOURCES",
        "EFI_VOLUME_CORRUPTED",     "EFI_VOLUME_FULL",        "EFI_NO_MEDIA",
        "EFI_MEDIA_CHANGED",        "EFI_NOT_FOUND",          "EFI_ACCESS_DENIED",
        "EFI_NO_RESPONSE",          "EFI_NO_MAPPING",         "EFI_TIMEOUT",
        "EFI_NOT_STARTED",          "EFI_ALREADY_STARTED",    "EFI_ABORTED",
        "EFI_ICMP_ERROR",           "EFI_TFTP_ERROR",         "EFI_PROTOCOL_ERROR",
        "EFI_INCOMPATIBLE_VERSION", "EFI_SECURITY_VIOLATION", "EFI_CRC_ERROR",
        "EFI_NOT_AVAILABLE_YET",    "EFI_UNLOAD_IMAGE",       "EFI_NOT_MATCHED",
        "EFI_END_OF_FILE",          "EFI_INVALID_LANGUAGE",   "EFI_COMPROMISED_DATA"};
    for (uint64_t code = 1; code <= 33; ++code) {
        EXPECT_EQ(FORMATTED("%r", 0x80000000 + code), names[code - 1]);
        EXPECT_EQ(FORMATTED("%R", 0x80000000 + code), names[code - 1]);
    }
}

TEST(Sprint, StatusesWithoutANameAre8UpperCaseDigits) {
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x80000000)), "80000000");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x80000022)), "80000022");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x800000FF)), "800000FF");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(7)), "00000007");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(5)), "00000005");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x12ABCDEF)), "12ABCDEF");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0xAAAAAAAA00000007)), "00000007");
}

TEST(Sprint, AStatusIsNamedByItsLowByteAndBit31) {
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x80000F0E)), "EFI_NOT_FOUND");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x58000000E)), "EFI_NOT_FOUND");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x100)), "EFI_SUCCESS");
    EXPECT_EQ(FORMATTED("%r", static_cast<uint64_t>(0x8000000000000002)), "EFI_WARN_DELETE_FAILURE");
}

TEST(Sprint, ArgumentsOfAllKindsAreTakenInOrder) {
    EFI_GUID guid = CountingGuid();
    EXPECT_EQ(FORMATTED("%s %d %lX %c %r %G %a %02X %d %d %d", "a", 1, static_cast<uint64_t>(2), 'c',
                        static_cast<uint64_t>(0), &guid, "z", 3, 4, 5, 6),
              "a 1 2 c EFI_SUCCESS 03020100-0504-0706-08-09-0A-0B-0C-0D-0E-0F z 03 4 5 6");
}

TEST(Sprint, AFormatThatEndsInsideAConversionIsSafe) {
    // What stands behind a format's end in memory must not be read as more of it.
    const char *const formats[][2] = {{"%\0%d", "%"},     {"abc%\0%d", "abc%"}, {"%0\0%d", "%0"},
                                      {"%08\0%d", "%08"}, {"%08l\0%d", "%l"},   {"%l\0%d", "%l"}};
    for (const auto &pair : formats) {
        int count = -1;
        EXPECT_EQ(Printed([&] { count = Printf(pair[0], 5); }), pair[1]);
        EXPECT_EQ(count, static_cast<int>(strlen(pair[1]))) << pair[1];
    }
}

TEST(Sprint, NothingBehindAFormatIsLookedAt) {
    static const char zero[] = "%0\0d"; // a conversion, were it not for the end
    EXPECT_EQ(FORMATTED(zero, 7), "%0");
    for (const char *format : {"%", "%0", "%05", "%l", "%0l"}) {
        const std::string text = format;
        const char *atTheEnd = AtTheEndOfMemory(text + '\0');
        EXPECT_EQ(FORMATTED(atTheEnd), text) << format;
    }
}

TEST(Sprint, NullTextsAreSafe) {
    EXPECT_EQ(FORMATTED("[%d]%s", 5, static_cast<const char *>(nullptr)).substr(0, 3), "[5]");
    EXPECT_EQ(FORMATTED("[%d]%S", 5, static_cast<const uint16_t *>(nullptr)).substr(0, 3), "[5]");
    EXPECT_EQ(FORMATTED("[%d]%G", 5, static_cast<const EFI_GUID *>(nullptr)).substr(0, 3), "[5]");
}

TEST(Sprint, PrintfReturnsTheCountOfBytes) {
    int count = -1;
    Printed([&] { count = Printf("return data:0x%02X\n", 5); });
    EXPECT_EQ(count, 17);
    Printed([&] { count = Printf(""); });
    EXPECT_EQ(count, 0);
}

TEST(Sprint, PrintfPrintsTextsOfAnyLengthWhole) {
    for (size_t length : {510, 511, 512, 513, 1023, 1024, 100000}) {
        std::string text(length, 'x');
        text.back() = '!';
        int count = -1;
        EXPECT_EQ(Printed([&] { count = Printf("%s", text.c_str()); }), text) << length;
        EXPECT_EQ(count, static_cast<int>(length & 0xFFFF)) << length; // 16 bits of the count
        EXPECT_EQ(Printed([&] { count = Printf(text.c_str()); }), text) << length;
    }
}

TEST(Sprint, PrintfTakesItsArgumentsAgainForALongText) {
    std::string text(600, 'x');
    EXPECT_EQ(FORMATTED("%d %s %lX", 1, text.c_str(), static_cast<uint64_t>(0xABCDEF0123)),
              "1 " + text + " ABCDEF0123");
}

TEST(Sprint, PrintfWithoutMemoryPrintsNothingAndReturnsZero) {
    int count = -1;
    EXPECT_EQ(Printed([&] {
                  FailMalloc(1);
                  count = Printf("text");
              }),
              "");
    EXPECT_EQ(count, 0);
}

TEST(Sprint, FormattingReleasesWhatItTakes) {
    const std::string text(600, 'x');
    EFI_GUID guid = CountingGuid();
    long held = BlocksHeld();
    FORMATTED("%d %08lX %G %s %r", 1, static_cast<uint64_t>(2), &guid, text.c_str(),
              static_cast<uint64_t>(7));
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(Sprint, PrintfOfANullFormatPrintsNothing) {
    EXPECT_EQ(Printed([] { Printf(nullptr); }), "");
}

TEST(Sprint, SprintfWritesNoNul) {
    char buffer[] = "################";
    EXPECT_EQ(Sprintf_s(buffer, "%d-%s", 42, "ok"), 5u);
    EXPECT_STREQ(buffer, "42-ok###########");
}

TEST(Sprint, SprintfOfNothingReturnsMinusOne) {
    char buffer[] = "####";
    EXPECT_EQ(static_cast<int>(Sprintf_s(nullptr, "text")), -1);
    EXPECT_EQ(static_cast<int>(Sprintf_s(buffer, nullptr)), -1);
    EXPECT_STREQ(buffer, "####");
}

static int FormatList(char *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int count = Sprintf_s_va_list(buffer, format, args);
    va_end(args);
    return count;
}

TEST(Sprint, SprintfTakesAnArgumentList) {
    char buffer[32] = {};
    EXPECT_EQ(FormatList(buffer, "%s=%08lX", "eax", static_cast<uint64_t>(0xCAFE)), 12);
    EXPECT_STREQ(buffer, "eax=0000CAFE");
    EXPECT_EQ(FormatList(nullptr, "x"), -1);
    EXPECT_EQ(FormatList(buffer, nullptr), -1);
}

static size_t FormatInto(char *buffer, size_t capacity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    size_t count = FormatBounded(buffer, capacity, format, args);
    va_end(args);
    return count;
}

TEST(Sprint, FormatBoundedNeverWritesPastTheCapacity) {
    EFI_GUID guid = CountingGuid();
    for (size_t capacity = 0; capacity < 80; ++capacity) {
        char buffer[100];
        memset(buffer, '#', sizeof(buffer));
        size_t count = FormatInto(buffer, capacity, "%08lX %s %r %G end", static_cast<uint64_t>(0xBEEF),
                                  "text", static_cast<uint64_t>(0x8000000E), &guid);
        const std::string whole =
            "0000BEEF text EFI_NOT_FOUND 03020100-0504-0706-08-09-0A-0B-0C-0D-0E-0F end";
        EXPECT_EQ(count, whole.size()); // what the whole text takes
        size_t fits = capacity < whole.size() ? capacity : whole.size();
        EXPECT_EQ(std::string(buffer, fits), whole.substr(0, fits));
        EXPECT_EQ(std::string(buffer + fits, sizeof(buffer) - fits), std::string(sizeof(buffer) - fits, '#'));
    }
}

TEST(Sprint, FormatBoundedOfNothingIsZero) {
    char buffer[4];
    EXPECT_EQ(FormatInto(nullptr, 4, "text"), 0u);
    EXPECT_EQ(FormatInto(buffer, 4, nullptr), 0u);
}

TEST(Sprint, OutputIntDigitWritesAtThePositionAndAdvancesIt) {
    char buffer[] = "################";
    uint16_t pos = 2;
    EXPECT_EQ(OutputIntDigit(0xAB, 16, 4, 1, buffer, &pos), 6);
    EXPECT_EQ(pos, 6);
    EXPECT_EQ(OutputIntDigit(0xAB, 16, 0, 0, buffer, &pos), 8);
    EXPECT_EQ(pos, 8);
    EXPECT_EQ(OutputIntDigit(12345, 10, 3, 0, buffer, &pos), 13);
    EXPECT_STREQ(buffer, "##00ABab12345###");
}

TEST(Sprint, OutputIntDigitWithoutAPositionStartsAtZero) {
    char buffer[] = "########";
    EXPECT_EQ(OutputIntDigit(7, 10, 3, 0, buffer, nullptr), 3);
    EXPECT_STREQ(buffer, "007#####");
}

TEST(Sprint, OutputIntDigitTakesEveryBase) {
    char buffer[65] = {};
    EXPECT_EQ(OutputIntDigit(0xFFFFFFFFFFFFFFFF, 2, 0, 0, buffer, nullptr), 64);
    EXPECT_STREQ(buffer, std::string(64, '1').c_str());
    EXPECT_EQ(OutputIntDigit(35, 36, 2, 1, buffer, nullptr), 2);
    EXPECT_EQ(std::string(buffer, 2), "0Z");
    EXPECT_EQ(OutputIntDigit(static_cast<uint64_t>(-10), 10, 0, 0, buffer, nullptr), 3);
    EXPECT_EQ(std::string(buffer, 3), "-10");
}

TEST(Sprint, OutputIntDigitFailsWithoutBufferOrMemory) {
    char buffer[] = "####";
    uint16_t pos = 1;
    EXPECT_EQ(OutputIntDigit(1, 10, 0, 0, nullptr, &pos), -1);
    FailMalloc(1);
    EXPECT_EQ(OutputIntDigit(1, 10, 0, 0, buffer, &pos), -1);
    EXPECT_EQ(pos, 1);
    EXPECT_STREQ(buffer, "####");
}

TEST(Sprint, AssertionsNameSourceLineAndConditionAndCarryOn) {
    EXPECT_EQ(Printed([] { PrintAssert("./BasicLib/BasicLib", 537, "length >= PAGE_4KB"); }),
              "ASSERT in ./BasicLib/BasicLib on 537: length >= PAGE_4KB\n");
}
