#!/usr/bin/python3
"""Makes an MSI written by wixl reproducible, in place.

wixl stamps the summary information with the clock (created, last saved,
last printed) and a random package code. This sets every time to EPOCH
(seconds, UTC) and the package code to a UUID derived from the rest of the
package, so one input gives one package and any change gives a new code.

    msi_summary.py <msi> <epoch>
"""
import hashlib
import struct
import sys
import uuid

import olefile

STREAM = "\x05SummaryInformation"
VT_LPSTR, VT_FILETIME = 0x1E, 0x40
PID_REVNUMBER = 9  # the package code, "{GUID}"
FILETIME_1601 = 11644473600  # seconds from 1601-01-01 to 1970-01-01
PACKAGE_CODES = uuid.UUID("6c7e2c1a-35a5-4b52-9d3e-8f1b0a6d2c47")  # namespace of package codes


def properties(data):
    """(pid, type, offset of the value) of the first property set section."""
    (section,) = struct.unpack_from("<I", data, 44)
    _, count = struct.unpack_from("<II", data, section)
    for i in range(count):
        pid, offset = struct.unpack_from("<II", data, section + 8 + 8 * i)
        (vtype,) = struct.unpack_from("<I", data, section + offset)
        yield pid, vtype & 0xFFFF, section + offset + 4


def main(path, epoch):
    ole = olefile.OleFileIO(path, write_mode=True)
    data = bytearray(ole.openstream(STREAM).read())
    if data[:2] != b"\xfe\xff":
        sys.exit(f"{path}: no summary information property set")
    filetime = (epoch + FILETIME_1601) * 10_000_000
    code_at = None
    for pid, vtype, at in properties(data):
        if vtype == VT_FILETIME:
            struct.pack_into("<Q", data, at, filetime)
        elif pid == PID_REVNUMBER and vtype == VT_LPSTR:
            (size,) = struct.unpack_from("<I", data, at)
            if size != 39:
                sys.exit(f"{path}: package code of {size} bytes, expected a braced GUID")
            code_at = at + 4
    if code_at is None:
        sys.exit(f"{path}: no package code")
    # The code is derived from the package as it is with a blank code.
    data[code_at : code_at + 38] = b"0" * 38
    ole.write_stream(STREAM, bytes(data))
    ole.close()
    with open(path, "rb") as f:
        digest = hashlib.sha256(f.read()).hexdigest()
    code = "{%s}" % str(uuid.uuid5(PACKAGE_CODES, digest)).upper()
    data[code_at : code_at + 38] = code.encode("ascii")
    ole = olefile.OleFileIO(path, write_mode=True)
    ole.write_stream(STREAM, bytes(data))
    ole.close()


if __name__ == "__main__":
    if len(sys.argv) != 3 or not sys.argv[2].isdigit():
        sys.exit("usage: msi_summary.py <msi> <epoch>")
    main(sys.argv[1], int(sys.argv[2]))
