"""/SMN: registers of AMD's system management network, and the check of the processor that /SMN and /SMU begin with.

The amd board has, at 18000h: 11223344h on die 0, 55667788h on die 1, 99AABBCCh on die 16; on die 0 also 0Fh at 5A000h
and a read-only 815h at 5A86Ch. Other registers read all ones.
"""

import pytest

from expected import CLEAR, NBIO_USAGE, assert_run, legacy

BRIDGE = "00:00.0"
AMD = legacy(BRIDGE, 0, "in16 0cfc -> 1022")
REFUSED = "InitSmuService error: 8000000F\n"


@pytest.fixture
def smn(run):
    def go(args, **options):
        return run(f"/SMN {args}", board="amd", **options)

    return go


def chosen(die, register, access):
    """One access: the die, the address, the data port of the bridge, and the die set back."""
    return [*legacy(BRIDGE, 0xC0, f"out32 0cfc {die:08x}"), *legacy(BRIDGE, 0xC4, f"out32 0cfc {register:08x}"),
            *legacy(BRIDGE, 0xC8, access), *legacy(BRIDGE, 0xC0, "out32 0cfc 00000000")]  # fmt: skip


def reads(bits, die, register, value):
    return chosen(die, register, f"in{bits} 0cfc -> {value:0{bits // 4}x}")


def writes(bits, die, register, value):
    return chosen(die, register, f"out{bits} 0cfc {value:0{bits // 4}x}")


def read_text(width, die, register):
    return f"SMN Read {width} Die:{die:X}, Regester:{register:X}, "


def write_text(width, die, register, data):
    digits = {"Byte": 2, "Word": 4, "Dword": 8}[width]
    return f"SMN Write {width} Die:{die:X}, Regester:{register:X}, Data:{data:0{digits}X}, "


def data_text(value, digits):
    return f"return data:0x{value:0{digits}X}\n"


# ---- which machines are served --------------------------------------------------------------------------------------

ASK = ["/SMN /RD 0 0x18000", "/SMN /WD 17", "/SMN", "/SMU /RD 0xff", "/SMU /WD 2 1 2", "/SMU", "/SMU /RB 1"]


@pytest.mark.parametrize("args", ASK)
@pytest.mark.parametrize("board, maker", [("intel", "8086"), ("unknown", "ffff")])
def test_other_makers_chipsets_are_refused_before_any_operand_is_looked_at(run, args, board, maker):
    assert_run(run(args, board=board), REFUSED, 0x8000000F, legacy(BRIDGE, 0, f"in16 0cfc -> {maker}"))


def signature_line(signature):
    return f"cpuid 80000001 0 {signature:x} 0 0 0"


@pytest.mark.parametrize("signature", [0x00800F00, 0x00800F12, 0x00800F82, 0x00900F01, 0x00900F22])
@pytest.mark.parametrize("board", ["amd", "hygon", "ati"])
def test_family_17h_and_18h_models_00h_to_0fh_are_served(run, signature, board):
    result = run("/SMN /RD 0 0x18000", board=board, extra=signature_line(signature))
    assert result.text == read_text("Dword", 0, 0x18000) + data_text(0x11223344, 8)


@pytest.mark.parametrize("args", ["/SMN /RD 0 0x18000", "/SMU /RD 1"])
@pytest.mark.parametrize("signature", [
    0x00810F10, 0x00830F10, 0x00870F10, 0x008F0F00,  # family 17h, models 11h, 31h, 71h, F0h
    0x00910F00, 0x00A00F11, 0x00A20F10,  # family 18h, model 10h; family 19h
    0x00700F01, 0x00600F12, 0x00000F12, 0x000306C3,  # families 16h, 15h, 0Fh; an Intel one
])  # fmt: skip
def test_other_processors_are_refused(run, signature, args):
    assert_run(run(args, board="amd", extra=signature_line(signature)), REFUSED, 0x8000000F, AMD)


@pytest.mark.parametrize("word", ["SMN", "SMU"])
@pytest.mark.parametrize("board", ["amd", "intel"])
def test_help_touches_no_hardware(run, word, board):
    assert_run(run(f"/{word} /RD 0 0 /?", board=board), NBIO_USAGE, 2, CLEAR)


# ---- reads ----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("die, shown, value", [("0", 0, 0x11223344), ("1", 1, 0x55667788), ("16", 16, 0x99AABBCC),
                                               ("0x10", 16, 0x99AABBCC), ("2", 2, 0xFFFFFFFF)])
def test_a_dword_is_read_from_each_die(smn, die, shown, value):
    text = read_text("Dword", shown, 0x18000) + data_text(value, 8)
    assert_run(smn(f"/RD {die} 0x18000"), text, value, AMD, reads(32, shown, 0x18000, value))


def test_a_byte_read_shows_the_message_of_a_write_and_writes_nothing(smn):
    text = write_text("Byte", 0, 0x18000, 0) + data_text(0x44, 2)
    assert_run(smn("/RB 0 0x18000"), text, 0x44, AMD, reads(8, 0, 0x18000, 0x44))


def test_a_word_read_shows_the_message_of_a_write_and_writes_nothing(smn):
    text = write_text("Word", 1, 0x18000, 0) + data_text(0x7788, 4)
    assert_run(smn("/RW 1 0x18000"), text, 0x88, AMD, reads(16, 1, 0x18000, 0x7788))


@pytest.mark.parametrize("width, args, bits, value", [("Byte", "/RB 0 0x18000 /RD", 8, 0x44),
                                                      ("Word", "/RW 0 0x18000 /RD", 16, 0x3344)])
def test_the_dword_read_switch_gives_a_narrow_read_its_own_message(smn, width, args, bits, value):
    text = read_text(width, 0, 0x18000) + data_text(value, bits // 4)
    assert_run(smn(args), text, value, AMD, reads(bits, 0, 0x18000, value))


@pytest.mark.parametrize("args", ["/RB 0 0x18000 0x1ab", "/WB 0 0x18000 0x1ab"])
def test_narrow_switches_show_the_data_cut_to_their_width_and_write_nothing(smn, args):
    text = write_text("Byte", 0, 0x18000, 0xAB) + data_text(0x44, 2)
    assert_run(smn(args), text, 0x44, AMD, reads(8, 0, 0x18000, 0x44))
    text = write_text("Word", 0, 0x18000, 0x01AB) + data_text(0x3344, 4)
    words = args.replace("B", "W").replace("0x1ab", "0x901ab")
    assert_run(smn(words), text, 0x3344, AMD, reads(16, 0, 0x18000, 0x3344))


def test_the_low_address_bits_are_passed_on(smn):
    assert_run(smn("/RD 0 0x18003"), read_text("Dword", 0, 0x18003) + data_text(0x11223344, 8), 0x44, AMD,
               reads(32, 0, 0x18003, 0x11223344))  # fmt: skip


# ---- writes ---------------------------------------------------------------------------------------------------------


def test_a_dword_is_written_and_read_back(smn):
    text = write_text("Dword", 1, 0x18000, 0xCAFE0123) + data_text(0xCAFE0123, 8)
    steps = [writes(32, 1, 0x18000, 0xCAFE0123), reads(32, 1, 0x18000, 0xCAFE0123)]
    assert_run(smn("/WD 1 0x18000 0xcafe0123"), text, 0x23, AMD, *steps)


def test_a_read_only_register_shows_what_it_kept(smn):
    text = write_text("Dword", 0, 0x5A86C, 1) + data_text(0x815, 8)
    assert_run(smn("/WD 0 0x5a86c 1"), text, 0x15, AMD, writes(32, 0, 0x5A86C, 1), reads(32, 0, 0x5A86C, 0x815))


@pytest.mark.parametrize("args", ["/WB 0 0x18000 0xab /WD", "/RB 0 0x18000 0xab /WD", "/WD /WB 0 0x18000 0x1ab"])
def test_a_byte_is_written_when_the_dword_write_switch_is_there_too(smn, args):
    text = write_text("Byte", 0, 0x18000, 0xAB) + data_text(0xAB, 2)
    assert_run(smn(args), text, 0xAB, AMD, writes(8, 0, 0x18000, 0xAB), reads(8, 0, 0x18000, 0xAB))


@pytest.mark.parametrize("args", ["/WW 0 0x18000 0xabcd /WD", "/RW 0 0x18000 0x9abcd /WD"])
def test_a_word_is_written_when_the_dword_write_switch_is_there_too(smn, args):
    text = write_text("Word", 0, 0x18000, 0xABCD) + data_text(0xABCD, 4)
    assert_run(smn(args), text, 0xCD, AMD, writes(16, 0, 0x18000, 0xABCD), reads(16, 0, 0x18000, 0xABCD))


def test_both_dword_switches_show_the_message_of_a_read_and_write(smn):
    text = read_text("Dword", 0, 0x18000) + data_text(5, 8)
    assert_run(smn("/WD 0 0x18000 5 /RD"), text, 5, AMD, writes(32, 0, 0x18000, 5), reads(32, 0, 0x18000, 5))


# ---- bits -----------------------------------------------------------------------------------------------------------


def bit_write_text(register, bit, data):
    return f"SMN Write Dword Die:0, Regester:{register:X}, Bit {bit}, Data:{data:X}, "


@pytest.mark.parametrize("bit, data, value", [(4, "1", 0x1F), (0, "1", 0x0F), (31, "0xff", 0x8000000F), (3, "0", 0x07),
                                              (4, "0", 0x0F), (5, "", 0x0F)])
def test_a_bit_is_changed_in_its_dword_and_reported(smn, bit, data, value):
    typed = int(data, 0) if data else 0
    text = bit_write_text(0x5A000, bit, typed) + f"return data:{1 if typed else 0}\n"
    steps = [reads(32, 0, 0x5A000, 0x0F), writes(32, 0, 0x5A000, value), reads(32, 0, 0x5A000, value)]
    assert_run(smn(f"/WI 0 0x5a000 {bit} {data}"), text, value, AMD, *steps)


def test_a_bit_that_stayed_shows(smn):
    result = smn("/WI 0 0x5a86c 1 1")
    assert (result.text, result.status) == (bit_write_text(0x5A86C, 1, 1) + "return data:0\n", 0x15)


@pytest.mark.parametrize("bit, level", [(0, 1), (3, 1), (4, 0), (31, 0)])
def test_a_bit_read_shows_the_message_of_a_write_and_gives_the_dword(smn, bit, level):
    text = bit_write_text(0x5A000, bit, 0) + f"return data:{level}\n"
    assert_run(smn(f"/RI 0 0x5a000 {bit}"), text, 0x0F, AMD, reads(32, 0, 0x5A000, 0x0F))


def test_the_dword_read_switch_turns_a_bit_read_into_a_dword_read(smn):
    # The dword variant has precedence over the bit one, so the operands are those behind /RD.
    assert smn("/RI 0 0x5a000 3 /RD").text == read_text("Dword", 0, 0) + data_text(0xFFFFFFFF, 8)


@pytest.mark.parametrize("bit", [32, 33, 63, 255, 0xFFFFFFFF])
def test_bits_above_31_read_0_and_are_not_written(smn, bit):
    shown = f"{bit}"
    for word in ("/RI", "/WI"):
        text = f"SMN Write Dword Die:0, Regester:5A000, Bit {shown}, Data:1, return data:0\n"
        assert_run(smn(f"{word} 0 0x5a000 {bit} 1"), text, 0x0F, AMD, reads(32, 0, 0x5A000, 0x0F))


# ---- operands and forms ---------------------------------------------------------------------------------------------


WORDS = ["/RB", "/RW", "/RD", "/RI", "/WB", "/WW", "/WD", "/WI"]


@pytest.mark.parametrize("word, die", [*((word, "17") for word in WORDS), ("/RD", "0x11"), ("/RD", "255"),
                                       ("/RD", "0xffffffff"), ("/WD", "0x100000011")])
def test_dies_above_16_are_refused(smn, word, die):
    assert_run(smn(f"{word} {die} 0x18000 1"), "Invalid parameter\n", 0x80000002, AMD)


@pytest.mark.parametrize("args, die, register", [("/RD", 0, 0), ("/RD 1", 1, 0),
                                                 ("/RD 0x100000001 0x100018000", 1, 0x18000)])
def test_missing_operands_are_0_and_others_cut_to_32_bits(smn, args, die, register):
    value = 0x55667788 if register else 0xFFFFFFFF
    text = read_text("Dword", die, register) + data_text(value, 8)
    assert_run(smn(args), text, value, AMD, reads(32, die, register, value))


@pytest.mark.parametrize("args", ["", "/RQ 0 0x18000", "/WQ 0 0x18000 1", "/DUMP 0", "0 0x18000"])
def test_without_a_form_nothing_is_accessed(smn, args):
    assert_run(smn(args), "", 0, AMD)


@pytest.mark.parametrize("args, text", [
    ("/RD 0 1 /WD 1 0x18000 7", read_text("Dword", 1, 0x18000)),
    ("/RW 0 0x18000 /RB 1 0x18000", write_text("Byte", 1, 0x18000, 0)),
    ("/RI 0 0x18000 2 /RW 1 0x18000", write_text("Word", 1, 0x18000, 0)),
])  # fmt: skip
def test_bytes_come_before_words_before_dwords_before_bits_and_writes_before_reads(smn, args, text):
    assert smn(args).text.split("return")[0] == text


def test_smn_wins_over_smu(smn):
    assert smn("/SMU /RD 0 0x18000").text == read_text("Dword", 0, 0x18000) + data_text(0x11223344, 8)
