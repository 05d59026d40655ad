#!/usr/bin/python3
"""Gives the NSIS uninstaller a file description of its own, in place.

makensis copies the installer's version information into the uninstaller,
its description included. This replaces the FileDescription string of the
uninstaller's version resource with DESCRIPTION, which must be shorter than
the one it replaces by at least 4 bytes (so no offset in the file moves).

The uninstaller checks a CRC-32 of itself when it starts, stored in its last
4 bytes and taken over everything before them from the PE header on: the 4
bytes after the new description's NUL are set so that the CRC stays what it
was.

    describe_uninstaller.py <uninstaller> <description>
"""
import sys
import zlib

KEY = "FileDescription\0".encode("utf-16-le")


def value_span(data):
    """Start and length in bytes of the FileDescription value (with its NUL)."""
    key_at = data.find(KEY)
    if key_at < 0 or data.find(KEY, key_at + 1) >= 0:
        sys.exit("not one FileDescription in the version resource")
    header_at = key_at - 6  # wLength, wValueLength, wType before the key
    length, value_chars, kind = (int.from_bytes(data[header_at + i : header_at + i + 2], "little") for i in (0, 2, 4))
    if kind != 1 or value_chars == 0:
        sys.exit("FileDescription is not a text value")
    value_at = key_at + len(KEY)
    value_at += (4 - (value_at - header_at) % 4) % 4  # values start on a 32-bit boundary
    if value_at + 2 * value_chars > header_at + length:
        sys.exit("FileDescription runs past its entry")
    return value_at, 2 * value_chars


def linear_crc(data):
    """The part of the CRC-32 of DATA that is linear in its bits."""
    return zlib.crc32(data) ^ zlib.crc32(bytes(len(data)))


def crc_balance(change, at, tail):
    """4 bytes that, XORed in at AT, cancel the CRC change CHANGE of a
    stream whose checked part ends TAIL bytes after AT."""
    follow = bytes(tail - 4)
    columns = [linear_crc((1 << bit).to_bytes(4, "little") + follow) for bit in range(32)]
    # Solve columns * x = change over GF(2), by elimination.
    rows = [(columns[bit], 1 << bit) for bit in range(32)]
    basis = {}
    for value, combo in rows:
        for top in sorted(basis, reverse=True):
            if value >> top & 1:
                value ^= basis[top][0]
                combo ^= basis[top][1]
        if value:
            basis[value.bit_length() - 1] = (value, combo)
    x = 0
    for top in sorted(basis, reverse=True):
        if change >> top & 1:
            change ^= basis[top][0]
            x ^= basis[top][1]
    if change:
        sys.exit("cannot keep the CRC")
    return x.to_bytes(4, "little")


def main(path, description):
    with open(path, "rb") as f:
        data = bytearray(f.read())
    at, size = value_span(data)
    new = (description + "\0").encode("utf-16-le")
    if len(new) + 4 > size:
        sys.exit(f"'{description}' is not 2 characters shorter than the one it replaces ({size // 2 - 1})")
    checked_end = len(data) - 4
    before = bytes(data[at:checked_end])
    data[at : at + size] = new.ljust(size, b"\0")
    change = linear_crc(bytes(a ^ b for a, b in zip(before, data[at:checked_end])))
    spare = at + len(new)
    data[spare : spare + 4] = crc_balance(change, spare, checked_end - spare)
    if linear_crc(bytes(a ^ b for a, b in zip(before, data[at:checked_end]))) != 0:
        sys.exit("the CRC moved")
    with open(path, "wb") as f:
        f.write(data)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: describe_uninstaller.py <uninstaller> <description>")
    main(sys.argv[1], sys.argv[2])
