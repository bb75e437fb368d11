// Runs the firmware-table commands on many memory images in one process.
//
//   hwboard_tables BOARD CASES PROGRESS
//
// loads the board once and then, for each case of the file (corrupt_firmware.py writes it),
// puts the pieces into the board's memory, runs the words as the program does between its start and its end,
// and clears the pieces again. PROGRESS holds the number of the case that is running: what is left there when
// the process dies is the one to look at. A case that takes longer than CASE_SECONDS ends the process with
// SIGALRM.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "BasicLib/Driver.h"
#include "sim/Board.h"
#include "tests/support/TableCommand.h"

namespace {

constexpr unsigned CASE_SECONDS = 20;

struct Piece {
    uint32_t address;
    std::vector<uint8_t> data;
};

struct Case {
    std::vector<char *> words; // with the program's name before them and a null pointer behind
    std::vector<char> text;
    std::vector<Piece> pieces;
};

[[noreturn]] void Fail(const char *what) {
    fprintf(stderr, "hwboard_tables: %s\n", what);
    exit(2);
}

void Take(FILE *file, void *data, size_t length) {
    if (length != 0 && fread(data, length, 1, file) != 1)
        Fail("the file of cases is cut short");
}

bool ReadCase(FILE *file, Case *into) {
    static char name[] = "hwreg";
    uint32_t head[3];
    if (fread(head, sizeof head, 1, file) != 1)
        return false;
    into->text.resize(head[1]);
    Take(file, into->text.data(), head[1]);
    into->words.assign(1, name);
    for (char *word = into->text.data(); word < into->text.data() + head[1]; word += strlen(word) + 1)
        into->words.push_back(word);
    into->words.push_back(nullptr);
    into->pieces.resize(head[2]);
    for (Piece &piece : into->pieces) {
        uint32_t place[2];
        Take(file, place, sizeof place);
        piece.address = place[0];
        piece.data.resize(place[1]);
        Take(file, piece.data.data(), place[1]);
    }
    return true;
}

void RunCases(FILE *file, int progress) {
    Case test;
    for (uint32_t number = 0; ReadCase(file, &test); number++) {
        if (pwrite(progress, &number, sizeof number, 0) != sizeof number)
            Fail("the number of the case cannot be written");
        for (const Piece &piece : test.pieces)
            BoardPoke(piece.address, piece.data.data(), piece.data.size());
        BoardLogClear();
        alarm(CASE_SECONDS);
        RunTableCommand(static_cast<int>(test.words.size()) - 1, test.words.data());
        alarm(0);
        for (Piece &piece : test.pieces) {
            std::vector<uint8_t> zeros(piece.data.size());
            BoardPoke(piece.address, zeros.data(), zeros.size());
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        Fail("usage: hwboard_tables BOARD CASES PROGRESS");
    FILE *file = fopen(argv[2], "rb");
    int progress = open(argv[3], O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (!file || progress < 0)
        Fail("the files cannot be opened");
    BoardLoad(argv[1]);
    if (OpenLinuxDriver() != EFI_SUCCESS)
        Fail("the board refuses access");
    RunCases(file, progress);
    CloseLinuxDriver();
    fclose(file);
    close(progress);
    return 0;
}
