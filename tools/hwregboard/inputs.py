"""Files that people attach: bounded, of any line ends and encoding, compressed or in an archive."""

import bz2
import io
import lzma
import os
import re
import stat
import tarfile
import zlib
from collections.abc import Callable, Iterator
from typing import Any

from hwregboard.errors import Mistake

LIMIT = 64 << 20  # bytes of an input, and of what comes out of a compressed one
MEMBERS = 200_000  # of an archive
STREAMS = 10_000  # of a compressed file
PIECE = 1 << 16  # what a decoder is given at once: it copies what lies behind its stream
PADDING = re.compile(rb"\0*")
PACKED: dict[bytes, tuple[str, Callable[[], Any]]] = {
    b"\xfd7zXZ\x00": ("xz", lambda: lzma.LZMADecompressor(memlimit=256 << 20)),
    b"\x1f\x8b": ("gzip", lambda: zlib.decompressobj(31)),
    b"BZh": ("bzip2", bz2.BZ2Decompressor),
}


def read_bytes(file: str) -> bytes:
    """The file's bytes, unpacked when it is compressed."""
    try:
        # A pipe without a writer is empty; nobody waits for one.
        descriptor = os.open(file, os.O_RDONLY | os.O_NONBLOCK)
        with open(descriptor, "rb", buffering=0) as opened:
            if stat.S_ISDIR(os.fstat(descriptor).st_mode):
                raise Mistake(file, 0, "this is a folder")
            os.set_blocking(descriptor, True)
            data = bytearray()
            while len(data) <= LIMIT and (piece := opened.read(1 << 20)):
                data += piece
    except (OSError, ValueError) as error:
        raise Mistake(file, 0, getattr(error, "strerror", None) or str(error)) from None
    if len(data) > LIMIT:
        raise Mistake(file, 0, "more than 64 MiB")
    return unpacked(file, bytes(data))


def unpacked(file: str, data: bytes) -> bytes:
    """The contents of all streams of a compressed file; one that is cut off is refused."""
    magic = next((magic for magic in PACKED if data.startswith(magic)), b"")
    if not magic:
        return data
    kind, decoder_of = PACKED[magic]
    plain, at = bytearray(), 0
    for _ in range(STREAMS):
        decoder = decoder_of()
        while not decoder.eof:
            piece = data[at:at + PIECE]
            if not piece:
                raise Mistake(file, 0, f"cannot be unpacked ({kind}): it is cut off")
            try:
                plain += decoder.decompress(piece, LIMIT + 1 - len(plain))
            except (lzma.LZMAError, zlib.error, OSError, EOFError, MemoryError) as error:
                raise Mistake(file, 0, f"cannot be unpacked ({kind}): {error}") from None
            if len(plain) > LIMIT:
                raise Mistake(file, 0, "more than 64 MiB when unpacked")
            at += len(piece) - len(decoder.unused_data)
        at = PADDING.match(data, at).end()  # type: ignore[union-attr]
        if at == len(data):
            return bytes(plain)
        if not data.startswith(magic, at):
            raise Mistake(file, 0, f"cannot be unpacked ({kind}): something else follows at byte {at}")
    raise Mistake(file, 0, f"more than {STREAMS} compressed streams")


def as_text(data: bytes) -> str:
    """Text with plain line ends. What is no text of any encoding becomes letters that no number has."""
    for mark, encoding in ((b"\xef\xbb\xbf", "utf-8"), (b"\xff\xfe", "utf-16-le"), (b"\xfe\xff", "utf-16-be")):
        if data.startswith(mark):
            text = data[len(mark):].decode(encoding, "replace")
            break
    else:
        text = data.decode("utf-8", "replace")
    return text.replace("\r\n", "\n").replace("\r", "\n")


def read_text(file: str) -> str:
    return as_text(read_bytes(file))


def lines_of(file: str, data: bytes) -> Iterator[tuple[int, str]]:
    """(number, line) of each line."""
    if b"\0" in data[:4096] and not data.startswith((b"\xff\xfe", b"\xfe\xff")):
        raise Mistake(file, 1, "this is no text")
    yield from enumerate(as_text(data).split("\n"), 1)


def is_archive(data: bytes) -> bool:
    return data[257:262] == b"ustar"


def members(file: str, data: bytes) -> Iterator[tuple[str, bytes]]:
    """(name, contents) of an archive's plain files. Nothing is written anywhere."""
    try:
        with tarfile.open(fileobj=io.BytesIO(data), mode="r:") as archive:
            for count, member in enumerate(archive):
                if count > MEMBERS:
                    raise Mistake(file, 0, f"more than {MEMBERS} files in the archive")
                if member.isfile() and member.size <= len(data) and (opened := archive.extractfile(member)):
                    yield member.name, opened.read()
    except (tarfile.TarError, OSError, EOFError, ValueError, KeyError, RecursionError, OverflowError) as error:
        raise Mistake(file, 0, f"the archive is damaged: {error}") from None


def tree(folder: str, wanted: re.Pattern[str]) -> Iterator[tuple[str, bytes]]:
    """(path, contents) of the plain files below a folder whose paths match; links to folders are not followed."""
    total = seen = 0
    for place, _, names in os.walk(folder):
        for name in sorted(names):
            path = os.path.join(place, name)
            seen += 1
            if wanted.search(path) and os.path.isfile(path):
                data = read_bytes(path)
                total += len(data)
                yield path, data
            if total > LIMIT or seen > MEMBERS:
                raise Mistake(folder, 0, f"more than 64 MiB, or more than {MEMBERS} files")
