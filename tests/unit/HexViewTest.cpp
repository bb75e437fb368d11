#include "Common/ComFunc/HexView.h"

#include <unistd.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestHelp.h"

static std::string Times(unsigned count, const std::string &text) {
    std::string result;
    for (; count > 0; --count)
        result += text;
    return result;
}

static std::vector<uint8_t> Counting(size_t length) {
    std::vector<uint8_t> data(length);
    for (size_t i = 0; i < length; ++i)
        data[i] = static_cast<uint8_t>(i);
    return data;
}

static std::string Plain(const std::vector<uint8_t> &data) {
    return Printed([&] { EXPECT_EQ(DebugMsgTxt(data.data(), static_cast<uint32_t>(data.size())), 0); });
}

static const std::string ALL_COLUMNS = " 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F";

TEST(HexView, PlainViewOfFiveBytes) {
    EXPECT_EQ(Plain({0x41, 0x42, 0x00, 0x7F, 0x0A}), "   00 01 02 03 04" + Times(11, "   ") +
                                                         "       01234\r\n" + "00 41 42 00 7F 0A " +
                                                         Times(11, "   ") + "      AB.\x7F.\r\n");
}

TEST(HexView, PlainViewOfOneWholeRow) {
    EXPECT_EQ(Plain(Counting(16)), "  " + ALL_COLUMNS + "       0123456789ABCDEF\r\n" +
                                       "00 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F       " +
                                       "................\r\n");
}

TEST(HexView, PlainViewOfTwentyBytesHasARowLabelAndSixteenCharacterColumns) {
    std::vector<uint8_t> data(20, 0x2E);
    data[16] = 'W';
    EXPECT_EQ(Plain(data), "  " + ALL_COLUMNS + "       0123456789ABCDEF\r\n" + "00 " + Times(16, "2E ") +
                               "      ................\r\n" + "01 57 2E 2E 2E " + Times(12, "   ") +
                               "      W...\r\n");
}

TEST(HexView, TenBytesHaveTenCharacterColumns) {
    const std::string header = "   00 01 02 03 04 05 06 07 08 09" + Times(6, "   ") + "       0123456789\r\n";
    EXPECT_EQ(Plain(Counting(10)).substr(0, header.size()), header);
}

TEST(HexView, CharactersFrom20To7FAreShownAsTheyAre) {
    for (unsigned value = 0; value < 256; ++value) {
        std::string view = Plain({static_cast<uint8_t>(value)});
        char expected = value >= 0x20 && value <= 0x7F ? static_cast<char>(value) : '.';
        EXPECT_EQ(view.substr(view.size() - 3), std::string(1, expected) + "\r\n") << value;
    }
}

// The lines of a view without their "\r\n".
static std::vector<std::string> Lines(const std::string &view) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end = view.find("\r\n"); end != std::string::npos; end = view.find("\r\n", start)) {
        lines.push_back(view.substr(start, end - start));
        start = end + 2;
    }
    EXPECT_EQ(start, view.size());
    return lines;
}

TEST(HexView, PercentSignsAmongTheCharactersAreShownAsTheyAre) {
    std::string view = Plain({'%', 's', '%', 'd', '%', '%'});
    EXPECT_EQ(view.substr(view.size() - 8), "%s%d%%\r\n");
}

TEST(HexView, PlainViewHasAnEmptyLineAfterEachPage) {
    std::vector<std::string> lines = Lines(Plain(Counting(300)));
    ASSERT_EQ(lines.size(), 1u + 16 + 1 + 3);
    EXPECT_EQ(lines[1].substr(0, 6), "00 00 ");
    EXPECT_EQ(lines[16].substr(0, 6), "0F F0 ");
    EXPECT_EQ(lines[17], "");
    EXPECT_EQ(lines[18].substr(0, 6), "10 00 ");
    EXPECT_EQ(lines[20].substr(0, 6), "12 20 ");
}

TEST(HexView, PlainViewOfOnePageEndsWithThatPage) {
    EXPECT_EQ(Lines(Plain(Counting(256))).size(), 1u + 16);
}

TEST(HexView, RowLabelsWrapAfter256Rows) {
    std::vector<std::string> lines = Lines(Plain(std::vector<uint8_t>(4096 + 32, 0xAA)));
    // one header, 258 rows and the empty lines behind 16 whole pages
    ASSERT_EQ(lines.size(), 1u + 258 + 16);
    EXPECT_EQ(lines[lines.size() - 4].substr(0, 6), "FF AA ");
    EXPECT_EQ(lines[lines.size() - 2].substr(0, 6), "00 AA ");
    EXPECT_EQ(lines[lines.size() - 1].substr(0, 6), "01 AA ");
}

TEST(HexView, PlainViewIsShownWhateverTheDisplayFlags) {
    const std::string view = Plain(Counting(5));
    for (const char *option : {"/NOMSG", "/LOG", "/TEXT", "/DUMP"}) {
        SetCommand({"hwreg", "/MEM", option});
        EXPECT_EQ(Plain(Counting(5)), view) << option;
    }
}

TEST(HexView, PlainViewOfNothingReturns31) {
    uint8_t byte = 0;
    int result = 0;
    EXPECT_EQ(Printed([&] { result = DebugMsgTxt(nullptr, 5); }), "");
    EXPECT_EQ(result, 31);
    EXPECT_EQ(Printed([&] { result = DebugMsgTxt(&byte, 0); }), "");
    EXPECT_EQ(result, 31);
}

// What the coloured view of the data prints; its result is stored in *key.
static std::string Coloured(const std::vector<uint8_t> &data, int *key) {
    return Printed([&] { *key = DebugMsg(data.data(), static_cast<uint32_t>(data.size())); });
}

TEST(HexView, ColouredViewOfTwoBytes) {
    SetCommand({"hwreg", "/MEM", "/DUMP"});
    FeedInput("q");
    int key = 0;
    EXPECT_EQ(Coloured({'A', 0x80}, &key), "  \033[0;33m 00 01" + Times(14, "   ") + "       01\r\n" +
                                               "00 \033[0m\033[1;31m41 \033[0m\033[1;31m80 \033[0m" +
                                               Times(14, "\033[1;31m   \033[0m") +
                                               "      \033[0;36mA\033[0m\033[0;36m.\033[0m\r\n");
    EXPECT_EQ(key, 'q');
}

TEST(HexView, ColouredRowLabelsAreYellow) {
    SetCommand({"hwreg", "/MEM", "/DUMP"});
    FeedInput("q");
    int key = 0;
    std::string view = Coloured(std::vector<uint8_t>(17, 0), &key);
    EXPECT_NE(view.find("\033[0;36m.\033[0m\r\n\033[0;33m01 \033[0m\033[1;31m00 \033[0m"), std::string::npos);
}

TEST(HexView, TextModeShowsTheSameWithoutASequence) {
    SetCommand({"hwreg", "/MEM", "/DUMP", "/TEXT"});
    FeedInput("qqq");
    int key = 0;
    std::string view = Coloured(Counting(300), &key);
    EXPECT_EQ(view.find('\033'), std::string::npos);
    EXPECT_EQ(view, Plain(Counting(300)));
}

TEST(HexView, WithoutDumpNothingIsShown) {
    const std::vector<uint8_t> data = Counting(16);
    int key = 0;
    FeedInput("q");
    EXPECT_EQ(Coloured(data, &key), ""); // no command at all
    EXPECT_EQ(key, 255);
    SetCommand({"hwreg", "/MEM"});
    EXPECT_EQ(Coloured(data, &key), "");
    EXPECT_EQ(key, 255);
    SetCommand({"hwreg", "/MEM", "/DUMP", "/NOMSG"});
    EXPECT_EQ(Coloured(data, &key), "");
    EXPECT_EQ(key, 255);
    EXPECT_EQ(InputLeft(), "q");
}

TEST(HexView, ColouredViewOfNothingReturns255) {
    SetCommand({"hwreg", "/MEM", "/DUMP"});
    FeedInput("q");
    uint8_t byte = 0;
    int key = 0;
    EXPECT_EQ(Printed([&] { key = DebugMsg(nullptr, 16); }), "");
    EXPECT_EQ(key, 255);
    EXPECT_EQ(Printed([&] { key = DebugMsg(&byte, 0); }), "");
    EXPECT_EQ(key, 255);
    EXPECT_EQ(InputLeft(), "q");
}

// How many keys a view of this length takes, and whether it returns the last of them.
static size_t Pauses(size_t length) {
    SetCommand({"hwreg", "/MEM", "/DUMP"});
    FeedInput("abcdef");
    int key = 0;
    Coloured(Counting(length), &key);
    size_t taken = 6 - InputLeft().size();
    EXPECT_EQ(key, "abcdef"[taken - 1]);
    return taken;
}

TEST(HexView, AKeyIsTakenAfterEachPageAndAtTheEnd) {
    EXPECT_EQ(Pauses(1), 1u);
    EXPECT_EQ(Pauses(16), 1u);
    EXPECT_EQ(Pauses(240), 1u);
    EXPECT_EQ(Pauses(256), 1u);
    EXPECT_EQ(Pauses(257), 2u);
    EXPECT_EQ(Pauses(300), 2u);
    EXPECT_EQ(Pauses(512), 2u);
}

TEST(HexView, ALastRowThatEndsAPageBeforeItsEndPausesTwice) {
    EXPECT_EQ(Pauses(241), 2u);
    EXPECT_EQ(Pauses(255), 2u);
    EXPECT_EQ(Pauses(256 + 250), 3u);
}

TEST(HexView, EscDoesNotStopAViewByItself) {
    SetCommand({"hwreg", "/MEM", "/DUMP", "/TEXT"});
    FeedInput("\033\033");
    int key = 0;
    EXPECT_EQ(Lines(Coloured(Counting(300), &key)).size(), 1u + 16 + 1 + 3);
    EXPECT_EQ(key, 27);
}

TEST(HexView, TheEndOfInputIsAKeyOfMinusOne) {
    SetCommand({"hwreg", "/MEM", "/DUMP"});
    FeedInput("");
    int key = 0;
    Coloured(Counting(16), &key);
    EXPECT_EQ(key, -1);
}

TEST(HexView, LogModeDoesNotWait) {
    SetCommand({"hwreg", "/MEM", "/DUMP", "/LOG", "/TEXT"});
    OpenKeyboard();
    int key = 0;
    EXPECT_EQ(Lines(Coloured(Counting(600), &key)).size(), 1u + 16 + 1 + 16 + 1 + 6);
    EXPECT_EQ(key, 255);
}

TEST(HexView, LogModeTakesAKeyThatIsWaiting) {
    SetCommand({"hwreg", "/MEM", "/DUMP", "/LOG", "/TEXT"});
    FeedInput("a\033");
    int key = 0;
    Coloured(Counting(300), &key);
    EXPECT_EQ(key, 27);
    EXPECT_EQ(InputLeft(), "");
    FeedInput("a");
    Coloured(Counting(300), &key);
    EXPECT_EQ(key, 255); // the last pause went on without a key
}

// What the rows of a view show: the bytes of their cells, and their characters.
struct Shown {
    std::vector<uint8_t> bytes;
    std::string characters;
};

static Shown Read(const std::string &view) {
    const size_t firstCharacter = 3 + 16 * 3 + 6;
    Shown shown;
    std::vector<std::string> lines = Lines(view);
    for (size_t i = 1; i < lines.size(); ++i) {
        std::istringstream cells(lines[i].substr(0, firstCharacter));
        unsigned label = 0;
        cells >> std::hex >> label;
        for (unsigned byte = 0; cells >> byte;)
            shown.bytes.push_back(static_cast<uint8_t>(byte));
        if (!lines[i].empty())
            shown.characters += lines[i].substr(firstCharacter);
    }
    return shown;
}

static std::string WithoutColours(const std::string &view) {
    return std::regex_replace(view, std::regex("\033\\[[0-9;]*m"), "");
}

TEST(HexView, AnyBytesInAnyLengthStayInsideTheData) {
    SetCommand({"hwreg", "/MEM", "/DUMP", "/LOG"});
    FeedInput("");
    for (size_t length = 1; length < 600; length += 7) {
        uint8_t *data = new uint8_t[length]; // a sanitized build sees a read beyond the block
        std::string characters;
        for (size_t i = 0; i < length; ++i) {
            data[i] = static_cast<uint8_t>(i * 37);
            characters += data[i] >= 0x20 && data[i] <= 0x7F ? static_cast<char>(data[i]) : '.';
        }
        const std::string paged = Printed([&] { DebugMsg(data, static_cast<uint32_t>(length)); });
        const std::string plain = Printed([&] { DebugMsgTxt(data, static_cast<uint32_t>(length)); });
        EXPECT_EQ(WithoutColours(paged), plain) << length;
        const Shown shown = Read(plain);
        EXPECT_EQ(shown.bytes, std::vector<uint8_t>(data, data + length)) << length;
        EXPECT_EQ(shown.characters, characters) << length;
        delete[] data;
    }
}
