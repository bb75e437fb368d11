#include "tools/capture/Options.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

constexpr uint32_t LAST_DIE = 0x10; // the commands select no other

CaptureOptions gOptions = {};

static bool Fail(const char *what, const char *word) {
    fprintf(stderr, "hwreg-capture: %s: %s; hwreg-capture --help lists the options\n", what, word);
    return false;
}

// A hexadecimal number up to a limit that ends with one of the characters of ends; what follows in *rest.
static bool TakeNumber(const char *word, const char *ends, uint32_t limit, uint32_t *number,
                       const char **rest) {
    char *behind = nullptr;
    unsigned long value = strtoul(word, &behind, 16);
    if (isxdigit(static_cast<unsigned char>(word[0])) == 0 || behind == word ||
        strchr(ends, *behind) == nullptr || value > limit)
        return false;
    *number = static_cast<uint32_t>(value);
    *rest = behind;
    return true;
}

// "A-B" or "A".
static bool TakeRange(AskedRanges *asked, const char *word, uint32_t limit, uint32_t die) {
    if (asked->count == ASKED_RANGES)
        return Fail("too many ranges", word);
    AskedRange *range = &asked->ranges[asked->count];
    const char *rest = nullptr;
    if (!TakeNumber(word, "-", limit, &range->first, &rest))
        return Fail("no range", word);
    range->last = range->first;
    if (*rest == '-' && !TakeNumber(rest + 1, "", limit, &range->last, &rest))
        return Fail("no range", word);
    if (range->last < range->first)
        return Fail("no range", word);
    range->die = die;
    ++asked->count;
    return true;
}

// An option that has no operand; NULL for any other word.
static bool *FlagOf(const char *word) {
    struct Row {
        const char *word;
        bool *flag;
    };
    static const Row rows[] = {
        {"--superio", &gOptions.superio}, {"--spd", &gOptions.spd}, {"--no-serials", &gOptions.noSerials},
        {"--help", &gOptions.help},       {"-h", &gOptions.help},   {"--version", &gOptions.version},
    };
    for (const Row &row : rows) {
        if (strcmp(word, row.word) == 0)
            return row.flag;
    }
    return nullptr;
}

// An option with operands: the places behind it that it takes, 0 when something is wrong.
static int TakeOperands(const char *word, char **operands) {
    const char *first = operands[0];
    bool smn = strcmp(word, "--smn") == 0;
    if (first == nullptr || (smn && operands[1] == nullptr)) {
        Fail("an operand is missing", word);
        return 0;
    }
    if (strcmp(word, "-o") == 0) {
        gOptions.output = first;
        return 1;
    }
    if (strcmp(word, "--msr") == 0)
        return TakeRange(&gOptions.msrs, first, UINT32_MAX, 0);
    if (strcmp(word, "--ports") == 0)
        return TakeRange(&gOptions.ports, first, UINT16_MAX, 0);
    if (strcmp(word, "--memory") == 0)
        return TakeRange(&gOptions.memory, first, UINT32_MAX, 0);
    uint32_t die = 0;
    const char *rest = nullptr;
    if (!TakeNumber(first, "", LAST_DIE, &die, &rest))
        return Fail("no die", first);
    return TakeRange(&gOptions.smn, operands[1], UINT32_MAX, die) ? 2 : 0;
}

static bool HasOperands(const char *word) {
    static const char *const words[] = {"-o", "--msr", "--ports", "--memory", "--smn"};
    for (const char *known : words) {
        if (strcmp(word, known) == 0)
            return true;
    }
    return false;
}

bool ParseOptions(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        bool *flag = FlagOf(argv[i]);
        if (flag != nullptr) {
            *flag = true;
            continue;
        }
        if (!HasOperands(argv[i]))
            return Fail("no option", argv[i]);
        int taken = TakeOperands(argv[i], argv + i + 1);
        if (taken == 0)
            return false;
        i += taken;
    }
    return true;
}

void ShowUsage() {
    fputs("usage: hwreg-capture [OPTION...]\n"
          "\n"
          "Writes what a machine's hardware and firmware say, as root, into a board file on which hwreg-sim "
          "runs\n"
          "every command of hwreg. It only reads, unless it is asked for more. Numbers are hexadecimal.\n"
          "\n"
          "  -o FILE         the file; default: standard output\n"
          "  --no-serials    put fixed values in the place of serial numbers, UUIDs, asset tags and MAC "
          "addresses\n"
          "  --msr A-B       these MSRs, too\n"
          "  --memory A-B    this memory, too\n"
          "  --ports A-B     read these ports, a byte each; some devices take a read as an order\n"
          "  --superio       unlock the Super I/O chip behind 4Eh, read its registers and lock it again\n"
          "  --spd           read the memory modules over the SMBus\n"
          "  --smn DIE A-B   registers of AMD's system management network\n"
          "  --help          print this\n"
          "  --version       print the version\n"
          "\n"
          "--msr, --memory, --ports and --smn can be given again. The exit status is 0; 1 when the file "
          "cannot be\n"
          "written, 2 for a wrong option, 6 without I/O privilege or /dev/mem.\n",
          stdout);
}
