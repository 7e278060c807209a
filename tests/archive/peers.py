"""Archives by Python's own zipfile, for the tests: checks ours, makes those of other kinds.

usage: peers.py check ARCHIVE FOLDER             ours holds just this folder
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
DATA = b"data of it\n" * 99
LOCAL, CENTRAL, END = b"PK\3\4", b"PK\1\2", b"PK\5\6"


def check(archive, top):
    wanted = {}
    for folder, _, files in os.walk(top):
        for path in [os.path.join(folder, name) for name in files + [""]]:
            wanted[path[len(os.path.dirname(top)) + 1:].replace("/", "\\")] = path
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


def entry(name, method=zipfile.ZIP_DEFLATED, **fields):
    info = zipfile.ZipInfo(name, DATE)
    info.compress_type = method
    for field, value in fields.items():
        setattr(info, field, value)
    return info


def zipped(*entries):
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w") as zip_file:
        for info, data in entries:
            zip_file.writestr(info, data)
    return file.getvalue()


def plain(*names):
    return zipped(*((entry(name), b"" if name.endswith("/") else DATA) for name in names))


def patched(archive, *changes, find=bytes.index):
    """With some bytes changed: (signature of the record, offset in it, value)."""
    for signature, offset, value in changes:
        at = find(archive, signature) + offset
        archive = archive[:at] + value + archive[at + len(value):]
    return archive


def both(local, central, value):
    return patched(plain("file", "next"), (LOCAL, local, value), (CENTRAL, central, value))


def one(*change):
    return patched(plain("file", "next"), change)


class Stream(io.BytesIO):
    """Can't tell where it is, so that sizes come in data descriptors."""

    def tell(self):
        raise OSError


def good():
    """Every form that entries take."""
    stream = Stream()
    with zipfile.ZipFile(stream, "w") as zip_file:
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
        zip_file.writestr(entry("commented", comment="\u00fcber".encode()), b"commented")
    return stream.getvalue()


def unicode_path():
    text = "\u03a9mega".encode()
    extra = struct.pack("<HHBL", 0x7075, 5 + len(text), 1, zlib.crc32(b"plain")) + text
    return zipped((entry("plain", extra=extra), b"text"))


def inside():
    """A stored entry whose data is an entry of the list, too."""
    outer = (entry("outer", zipfile.ZIP_STORED), plain("inner"))
    place = struct.pack("<L", 30 + len("outer"))
    return patched(zipped(outer, (entry("inner"), DATA)), (CENTRAL, 42, place), find=bytes.rindex)


LINK = entry("link", zipfile.ZIP_STORED, external_attr=0o120777 << 16)
KINDS = {
    "good": good(),
    "cp437": patched(plain("AB.txt", "next"), (LOCAL, 30, b"\x81\x9b"), (CENTRAL, 46, b"\x81\x9b")),
    "unicode_path": unicode_path(),
    # Behind something else, with offsets that don't count it.
    "behind": b"#!/bin/sh\nexit 0\n" + plain("file"),
    "bomb": zipped(*((entry("zeros%d" % number), bytes(1 << 20)) for number in range(4))),
    # A link that leads out of the folder, and a file behind it.
    "link": zipped((LINK, b".."), (entry("link/up"), b"data")),
    "none": plain(),
    "nested": plain("top.TXT", "a/b.txt", "a/", "a/c.d/e", "b.txt"),
    # The last entry of the list is the first one once more.
    "overlap": patched(plain("file", "next", "file"), (CENTRAL, 42, bytes(4)), find=bytes.rindex),
    "inside": inside(),
    "crc": both(14, 16, b"\0\0\0\0"),
    "larger": both(22, 24, struct.pack("<L", len(DATA) + 1)),
    "smaller": both(22, 24, struct.pack("<L", len(DATA) - 1)),
    "packed_larger": both(18, 20, b"\x1f"),
    "packed_smaller": both(18, 20, b"\x08"),
    "local_name": one(LOCAL, 30, b"F"),
    "local_crc": one(LOCAL, 14, b"1234"),
    "encrypted": both(6, 8, b"\1\0"),
    "method": both(8, 10, b"\x63\0"),
    "far": one(CENTRAL, 42, b"\xf0\xff\xff\x7f"),
    "count": one(END, 8, b"\3\0\3\0"),
    "parts": one(END, 4, b"\1\0\1\0"),
    "place": one(END, 16, b"\xf0\0\0\0"),
}
NAMES = ["../up", "a/../../up", "a\\..\\..\\up", "/tmp/qvx_up", "\\up", "C:\\up", "c:up", ".."]
KINDS.update(("name_%d" % number, plain("fine", name)) for number, name in enumerate(NAMES))

if __name__ == "__main__":
    if sys.argv[1] == "check":
        check(*sys.argv[2:])
    elif sys.argv[1] == "count":
        assert len(zipfile.ZipFile(sys.argv[2]).infolist()) == int(sys.argv[3])
    else:
        for kind, archive in KINDS.items():
            with open(os.path.join(sys.argv[2], kind + ".zip"), "wb") as file:
                file.write(archive)
