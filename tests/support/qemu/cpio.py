"""Writes cpio archives in the "newc" form, the one the kernel unpacks at boot
(Documentation/driver-api/early-userspace/buffer-format.rst).

Straight from memory to archive: no tree on disk, so device nodes need no privilege and no symbolic link is
followed by mistake.
"""

import os
import stat


class Archive:
    """An archive being written. Every file belongs to root; parent folders are made as they are needed."""

    def __init__(self, stream):
        self.stream = stream
        self.names = set()

    def folder(self, path, mode=0o755):
        self._entry(path, stat.S_IFDIR | mode, b"", (0, 0))

    def file(self, path, content, mode=0o644):
        self._entry(path, stat.S_IFREG | mode, content, (0, 0))

    def link(self, path, target):
        self._entry(path, stat.S_IFLNK | 0o777, target.encode(), (0, 0))

    def character_device(self, path, major, minor):
        self._entry(path, stat.S_IFCHR | 0o600, b"", (major, minor))

    def copy(self, source, path):
        """Puts a file of the host at `path`, following links and keeping the permission bits."""
        with open(source, "rb") as stream:
            self.file(path, stream.read(), stat.S_IMODE(os.stat(source).st_mode))

    def close(self):
        self._record("TRAILER!!!", 0, b"", (0, 0))

    def _entry(self, path, mode, content, device):
        name = path.lstrip("/")
        if name in self.names:
            return
        parent = os.path.dirname(name)
        if parent:
            self.folder(parent)
        self.names.add(name)
        self._record(name, mode, content, device)

    def _record(self, name, mode, content, device):
        encoded = name.encode() + b"\0"
        fields = (len(self.names), mode, 0, 0, 1, 0, len(content), 0, 0, *device, len(encoded), 0)
        header = b"070701" + b"".join(b"%08X" % field for field in fields)
        self.stream.write(_padded(header + encoded))
        self.stream.write(_padded(content))


def _padded(data):
    return data + bytes(-len(data) % 4)
