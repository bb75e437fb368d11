"""The tests of `unit`, `command` and `faults`, which the ring has run before, reach every line and branch of the
program but for those of exempted.txt."""

import counts
import exemptions
from rewriting import Source, shipped, span

TABLES_ALONE = {"Platform/PciClassCode.cpp"}
WORKED_OUT = {("Common/ComFunc/Signals.cpp", "HeldByTable"), ("Common/Global.h", "CmdBit")}  # by the compiler


def test_every_line_and_branch_is_reached_or_stands_in_the_list():
    listed = exemptions.exempted(exemptions.LIST.read_text())
    found = list(exemptions.complaints(exemptions.missing(counts.reached()), listed))
    assert not found, "\n".join(found)


def test_every_module_that_has_code_is_counted():
    modules = {str(path.relative_to(counts.TOP)) for folder in counts.SHIPPED
               for path in (counts.TOP / folder).rglob("*.cpp")}  # fmt: skip
    assert modules - set(counts.reached()) == TABLES_ALONE


def test_every_procedure_that_has_code_is_counted():
    reached = counts.reached()
    left = set()
    for path in [*shipped(".cpp"), *shipped(".h")]:
        source = Source(path, flags=["-std=c++17"])
        for function in source.functions():
            first, last = (source.line(offset) for offset in span(function))
            if path not in reached or not any(first <= line <= last for line in reached[path].lines):
                left.add((path, function.spelling))
    assert left == WORKED_OUT
