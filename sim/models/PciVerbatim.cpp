#include "PciVerbatim.h"

#include "../Arena.h"
#include "PciFunction.h"

namespace {

// Where the line's bytes begin; they fit behind it.
uint32_t FirstByte(const BoardLine *line) {
    uint32_t offset = static_cast<uint32_t>(LineNumber(line, 1, PCI_SPACE - 1));
    LineWord(line, 2);
    if (offset + static_cast<uint32_t>(line->count) - 2 > PCI_SPACE)
        LineFail(line, "configuration space ends at 1000h", line->words[line->count - 1]);
    return offset;
}

} // namespace

void PciConfigLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint32_t offset = FirstByte(line);
    for (int i = 2; i < line->count; i++, offset++)
        function->config[offset] = LineByte(line, i);
    if (offset > PCI_EXTENDED_SPACE)
        function->express = true;
    PciSetHeaderMasks(function);
}

void PciWindowLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    uint32_t offset = FirstByte(line);
    if (!function->window)
        function->window = static_cast<PciWindow *>(ArenaTake(sizeof(PciWindow)));
    for (int i = 2; i < line->count; i++, offset++) {
        function->window->bytes[offset] = LineByte(line, i);
        function->window->differs[offset] = true;
    }
}
