"""Archives by Python's own zipfile, for the tests: checks ours, makes those of other kinds.

usage: peers.py check ARCHIVE FOLDER [PREFIX]    ours holds just what FOLDER holds
       peers.py make FOLDER                      KIND.zip for each kind below
       peers.py count ARCHIVE COUNT              it has so many entries
"""
import io
import os
import struct
import sys
import time
import zipfile
import zlib

DATE = (2021, 6, 7, 8, 9, 10)
INNER_BACKSLASH = "\uf05c"


def check(archive, folder, prefix=""):
    wanted = {}
    for top, _, files in os.walk(folder):
        for name in files + [""]:
            path = os.path.join(top, name)
            if os.path.islink(path) and not os.path.isfile(path):
                continue
            below = os.path.relpath(top, folder)
            steps = [prefix] if prefix else []
            steps += [] if below == "." else below.split("/")
            stored = "\\".join(s.replace("\\", INNER_BACKSLASH) for s in steps + [name])
            if stored:
                wanted[stored] = path
    with zipfile.ZipFile(archive) as zip_file:
        assert zip_file.testzip() is None
        for info in zip_file.infolist():
            path = wanted.pop(info.orig_filename)
            assert info.flag_bits == 0x800, hex(info.flag_bits)
            assert bool(info.external_attr & 0x10) == os.path.isdir(path), info
            if not os.path.isdir(path):
                assert zip_file.read(info) == open(path, "rb").read(), path
            status = os.stat(path)
            local = time.localtime(status.st_mtime - status.st_mtime % 2)
            assert info.date_time == tuple(local[:6]), (info.date_time, local)
    assert not wanted, wanted


def entry(name, method=zipfile.ZIP_DEFLATED):
    info = zipfile.ZipInfo(name, DATE)
    info.compress_type = method
    return info


def plain(archive, names):
    with zipfile.ZipFile(archive, "w") as zip_file:
        for name in names:
            zip_file.writestr(entry(name), b"" if name.endswith("/") else b"data of it\n" * 99)


class Stream(io.RawIOBase):
    """Can't seek, so that sizes come in data descriptors."""

    def __init__(self, path):
        self.file = open(path, "wb")

    def writable(self):
        return True

    def write(self, data):
        return self.file.write(data)


def good(archive):
    """Every form that entries take."""
    with zipfile.ZipFile(Stream(archive), "w") as zip_file:
        zip_file.comment = b"of all: PK\x05\x06"
        zip_file.writestr(entry("a/descriptor.txt"), b"x" * 70000)
        zip_file.writestr(entry("stored", zipfile.ZIP_STORED), bytes(range(256)))
        zip_file.writestr(entry("empty"), b"")
        with zip_file.open(entry("zip64"), "w", force_zip64=True) as out:
            out.write(b"large" * 999)
        folder = entry("no attributes/")
        zip_file.writestr(folder, b"")
        folder.external_attr = 0
        zip_file.writestr(entry("\u4e2d\u6587/\u0416.txt"), b"utf8")
        said = entry("commented")
        said.comment = "\u00fcber".encode()
        zip_file.writestr(said, b"commented")


def patched(archive, changes, names=("file", "next")):
    """plain, with some bytes changed: (signature of the record, offset in it, value)."""
    plain(archive, names)
    data = bytearray(open(archive, "rb").read())
    for signature, offset, value in changes:
        at = data.index(signature) + offset
        data[at:at + len(value)] = value
    open(archive, "wb").write(data)


LOCAL, CENTRAL, END = b"PK\3\4", b"PK\1\2", b"PK\5\6"


def both(local, central, value):
    return [(LOCAL, local, value), (CENTRAL, central, value)]


def code_page_437(archive):
    patched(archive, both(30, 46, b"\x81\x9b"), ["AB.txt", "next"])


def unicode_path(archive):
    name = b"plain"
    text = "\u03a9mega".encode()
    extra = struct.pack("<HHBL", 0x7075, 5 + len(text), 1, zlib.crc32(name)) + text
    with zipfile.ZipFile(archive, "w") as zip_file:
        info = entry("plain")
        info.extra = extra
        zip_file.writestr(info, b"text")


def overlap(archive):
    """The second entry of the list is the first one once more."""
    plain(archive, ["file", "file", "next"])
    data = bytearray(open(archive, "rb").read())
    second = data.index(CENTRAL, data.index(CENTRAL) + 4)
    data[second + 42:second + 46] = b"\0\0\0\0"
    open(archive, "wb").write(data)


def inside(archive):
    """A stored entry whose data is an entry of the list, too."""
    plain(archive, ["inner"])
    inner = open(archive, "rb").read()
    with zipfile.ZipFile(archive, "w") as zip_file:
        zip_file.writestr(entry("outer", zipfile.ZIP_STORED), inner)
        zip_file.writestr(entry("inner"), b"data of it\n" * 99)
    data = bytearray(open(archive, "rb").read())
    last = data.rindex(CENTRAL)
    data[last + 42:last + 46] = struct.pack("<L", 30 + len("outer"))
    open(archive, "wb").write(data)


def behind(archive):
    """Behind something else, with offsets that don't count it."""
    plain(archive, ["file"])
    data = open(archive, "rb").read()
    open(archive, "wb").write(b"#!/bin/sh\nexit 0\n" + data)


def link(archive):
    """A link that leads out of the folder, and a file behind it."""
    with zipfile.ZipFile(archive, "w") as zip_file:
        info = entry("link", zipfile.ZIP_STORED)
        info.create_system = 3
        info.external_attr = 0o120777 << 16
        zip_file.writestr(info, b"..")
        zip_file.writestr(entry("link/up"), b"data")


def bomb(archive):
    with zipfile.ZipFile(archive, "w") as zip_file:
        for number in range(4):
            zip_file.writestr(entry("zeros%d" % number), bytes(1 << 20))


KINDS = {
    "good": good,
    "cp437": code_page_437,
    "unicode_path": unicode_path,
    "behind": behind,
    "bomb": bomb,
    "link": link,
    "none": lambda archive: plain(archive, []),
    "nested": lambda archive: plain(archive, ["top.TXT", "a/b.txt", "a/", "a/c.d/e", "b.txt"]),
    "overlap": overlap,
    "inside": inside,
    "crc": lambda archive: patched(archive, both(14, 16, b"\0\0\0\0")),
    "larger": lambda archive: patched(archive, both(22, 24, struct.pack("<L", 99 * 11 + 1))),
    "smaller": lambda archive: patched(archive, both(22, 24, struct.pack("<L", 99 * 11 - 1))),
    "packed_larger": lambda archive: patched(archive, both(18, 20, b"\x1f")),
    "packed_smaller": lambda archive: patched(archive, both(18, 20, b"\x08")),
    "local_name": lambda archive: patched(archive, [(LOCAL, 30, b"F")]),
    "local_crc": lambda archive: patched(archive, [(LOCAL, 14, b"1234")]),
    "encrypted": lambda archive: patched(archive, both(6, 8, b"\1\0")),
    "method": lambda archive: patched(archive, both(8, 10, b"\x63\0")),
    "far": lambda archive: patched(archive, [(CENTRAL, 42, b"\xf0\xff\xff\x7f")]),
    "count": lambda archive: patched(archive, [(END, 8, b"\3\0\3\0")]),
    "parts": lambda archive: patched(archive, [(END, 4, b"\1\0\1\0")]),
    "place": lambda archive: patched(archive, [(END, 16, b"\xf0\0\0\0")]),
}
NAMES = {
    "up": "../up", "up_inside": "a/../../up", "up_back": "a\\..\\..\\up", "root": "/tmp/qvx_up",
    "root_back": "\\up", "drive": "C:\\up", "drive_only": "c:up", "dots": "..",
}
for kind, bad_name in NAMES.items():
    KINDS["name_" + kind] = lambda archive, name=bad_name: plain(archive, ["fine", name])

if __name__ == "__main__":
    if sys.argv[1] == "check":
        check(*sys.argv[2:])
    elif sys.argv[1] == "count":
        assert len(zipfile.ZipFile(sys.argv[2]).infolist()) == int(sys.argv[3])
    else:
        for kind, make in KINDS.items():
            make(os.path.join(sys.argv[2], kind + ".zip"))
