"""How whole pages of memory are read: each once, from front to back, in aligned loads of 4 or 8 bytes."""

import pytest

PAGE = 0x200000


def loads(result):
    """The loads as pairs of width in bytes and address."""
    lines = [line.split() for line in result.memory_accesses()]
    assert all(line[0].startswith("mr") for line in lines)
    return [(int(line[0][2:]) // 8, int(line[1], 16)) for line in lines]


@pytest.mark.parametrize("args", ["/MEM /DUMP 0x200000 /NOMSG", "/MEM /DUMP 0x200340 /NOMSG",
                                  "/MEM /S 0x200000 0x1000 text", "/MEM /RF F.BIN 0x200000 0x1000",
                                  "/MEM /RF F.BIN 0x200800 0x20"])
def test_a_page_is_copied_once_from_front_to_back_in_aligned_loads(run, args):
    result = run(args, extra=[f"watch {PAGE:x} 1000", f"fill {PAGE:x} 1000 address"])
    assert result.maps() == ["mmap /dev/mem 00200000 1000 rw shared -> ok", "munmap 00200000 1000"]
    expected = PAGE
    for width, address in loads(result):
        assert width in (4, 8) and address == expected
        expected += width
    assert expected == PAGE + 0x1000


def test_a_copy_of_two_pages_maps_each_once(run):
    result = run("/MEM /RF F.BIN 0x200000 0x2000", extra=f"watch {PAGE:x} 2000")
    assert result.maps() == [line for page in (0x200000, 0x201000)
                             for line in (f"mmap /dev/mem {page:08x} 1000 rw shared -> ok", f"munmap {page:08x} 1000")]
    assert {width for width, _ in loads(result)} <= {4, 8}
    assert sum(width for width, _ in loads(result)) == 0x2000
