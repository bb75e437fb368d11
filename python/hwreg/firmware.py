"""Tables of the firmware: SMBIOS structures, and the root pointer of the ACPI tables."""

from __future__ import annotations

import dataclasses
import re

from hwreg import arguments
from hwreg.registers import SWITCHES
from hwreg.session import Session
from hwreg.views import headed_views_in, views_in
from hwreg.words import check, is_switch, plain

PAGE = 256
HEADER_BYTES = 4
TITLE = re.compile(r"SMBIOS Type:(\d{3}), Length:(\d{3}), Handle:(\d{3,5})")
NOT_FOUND = 14
SIGNATURE = b"RSD PTR "


@dataclasses.dataclass(frozen=True)
class Structure:
    """`data` is the formatted part, its header of four bytes included; `strings` are those behind it."""

    type: int
    handle: int
    data: bytes
    strings: tuple[str, ...]

    @classmethod
    def of(cls, shown: bytes) -> Structure:
        length = shown[1]
        texts = tuple(text.decode("latin-1") for text in shown[length:].split(b"\0") if text)
        return cls(shown[0], int.from_bytes(shown[2:4], "little"), shown[:length], texts)

    def string(self, offset: int) -> str:
        """The string whose number stands at this offset of the formatted part; none is an empty one."""
        number = self.data[offset]
        return self.strings[number - 1] if 0 < number <= len(self.strings) else ""


class Smbios:
    """SMBIOS structures. Where there is no table of an EFI firmware, what is listed first may be no structure."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def structures(self, type: int | None = None) -> list[Structure]:
        """All, or those of a type, in their order."""
        if type is not None:
            return self._of_type(arguments.number("type", type, 0xFF))
        ran = self._session.whole(["/SMBIOS", *SWITCHES])
        if ran is None:
            return []
        shown = headed_views_in(ran.stdout)
        if not shown or not all(TITLE.fullmatch(title) and len(view) >= HEADER_BYTES for title, view in shown):
            raise self._session.failure(ran)
        return [Structure.of(view) for _, view in shown]

    def _of_type(self, number: int) -> list[Structure]:
        ran = self._session.whole(["/SMBIOS", "/TYPE", arguments.spelled(number), *SWITCHES])
        if ran is None:
            return []
        views = views_in(ran.stdout)
        if any(len(view) < HEADER_BYTES or view[0] != number for view in views):
            raise self._session.failure(ran)
        return [Structure.of(view) for view in views]

    def table(self) -> bytes:
        """As it is in memory."""
        ran = self._session.whole(["/SMBIOS", "/DUMP", *SWITCHES])
        if ran is None:
            return b""
        views = views_in(ran.stdout)
        if not views:
            raise self._session.failure(ran)
        if len(views[-1]) < PAGE:
            del views[-2:-1]  # a last page that is not full is shown before as a full one
        return b"".join(views)

    def find(self, text: str) -> int | None:
        """Where the text first stands in the table, looked for in capitals, and then as it is given."""
        check([text])
        typed = plain("text", text.lower() if is_switch(text) else text)  # capitals are looked for all the same
        ran = self._session.perform(["/SMBIOS", "/S", typed])
        if ran is None:
            return None
        found = re.search(r"^Found (.*) in SMBIOS\(Offset\(0x([0-9A-F]+)\)\)!", ran.stdout, re.MULTILINE | re.DOTALL)
        if found is None and (ran.status != NOT_FOUND or "ERROR: Cannot find" not in ran.stdout):
            raise self._session.failure(ran)
        if found is None or typed != text and found[1] != text:
            return None
        return int(found[2], 16)


@dataclasses.dataclass(frozen=True)
class RootPointer:
    """The RSDP. `xsdt` is 0 before revision 2."""

    data: bytes
    oem_id: str
    revision: int
    rsdt: int
    xsdt: int


class Acpi:
    """The root pointer, where the firmware puts it below 1 MiB."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def root_pointer(self) -> RootPointer:
        ran = self._session.whole(["/ACPI", "/DUMP", *SWITCHES])
        if ran is None:
            return RootPointer(b"", "", 0, 0, 0)
        views = views_in(ran.stdout)
        if len(views) != 1 or not views[0].startswith(SIGNATURE):
            raise self._session.failure(ran)
        revision = views[0][15]
        data = views[0][:36 if revision >= 2 else 20]
        return RootPointer(data, data[9:15].decode("latin-1"), revision, int.from_bytes(data[16:20], "little"),
                           int.from_bytes(data[24:32], "little"))  # fmt: skip
