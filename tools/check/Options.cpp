#include "tools/check/Options.h"

#include <cstdio>
#include <cstring>

CheckOptions gOptions = {};

// False for a word that is none.
static bool TakeOption(const char *word) {
    bool json = strcmp(word, "--json") == 0;
    bool help = strcmp(word, "--help") == 0;
    bool version = strcmp(word, "--version") == 0;
    gOptions.json |= json;
    gOptions.help |= help;
    gOptions.version |= version;
    return json || help || version;
}

bool ParseOptions(int argc, char **argv) {
    int i = 1;
    for (; i < argc && strncmp(argv[i], "--", 2) == 0 && argv[i][2] != 0; ++i) {
        if (!TakeOption(argv[i])) {
            fprintf(stderr,
                    "hwreg-check: no option: %s; hwreg-check --help lists the options, \"--\" ends them\n",
                    argv[i]);
            return false;
        }
    }
    gOptions.firstWord = i < argc && strcmp(argv[i], "--") == 0 ? i + 1 : i;
    return true;
}

void ShowUsage() {
    fputs(
        "usage: hwreg-check [--json]            what this kernel and machine allow, and what each command "
        "of\n"
        "                                       hwreg can do here\n"
        "       hwreg-check [--json] WORD...    what one command line will do, and whether it works\n"
        "\n"
        "Changes nothing: it makes no port access, writes nothing and loads no module. The words are those "
        "that\n"
        "would be typed behind \"hwreg\"; the first of them, or \"--\", ends the options.\n"
        "\n"
        "  --json       one JSON object for scripts\n"
        "  --help       print this\n"
        "  --version    print the version\n"
        "\n"
        "The exit status is 0 when it works; 1 when it is refused, 2 when it would show other data than the\n"
        "hardware's (of several commands: 2 if there is any of those, else 1 if any is refused); 3 for a "
        "wrong\n"
        "option, or output that could not be written.\n",
        stdout);
}
