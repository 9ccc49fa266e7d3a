#!/usr/bin/env python3
"""Checks which room includes what: rooms.py FILE...

A room may include headers of its own and of the rooms below it. The system's Windows header is for
the files that talk to Windows, and for tests; everything else builds on every platform.
"""

import re
import sys
from pathlib import Path, PurePosixPath

# The rooms below each room. What is not listed (tests, tools) may include everything.
BELOW = {
    "util": set(),
    "asn1": {"util"},
    "pkcs11": {"util"},
    "include": {"pkcs11", "asn1", "util"},
    "src": {"include", "pkcs11", "asn1", "util"},
    "app": {"include", "pkcs11", "asn1", "util"},
}
WITHOUT_TOKENS_AND_CERTIFICATES = {"codeverifier", "mspermissions"}

WINDOWS_HEADER = re.compile(r"windows\.h|win(cred|trust|crypt|nt|base)\.h|softpub\.h|accctrl\.h"
                            r"|aclapi\.h|sddl\.h", re.IGNORECASE)
WINDOWS_FILES = re.compile(r"src/(certstorehelper|codeverifier|mspermissions)\w*\.(cpp|h)"
                           r"|pkcs11/src/dynamiclibrarywindows\.(cpp|h)|app/.*|(tests|bench|cmake)/.*")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def room_of(path):
    return PurePosixPath(path).parts[0]


def maker_of(header, room):
    """The room itself, if the build makes the header of a template there."""
    return room if Path(room, header + ".in").is_file() else None


def complaints(files):
    owner = {PurePosixPath(file).name: room_of(file)
             for file in files if file.endswith(".h") and room_of(file) in BELOW}
    for file in files:
        room = room_of(file)
        for match in INCLUDE.finditer(Path(file).read_text(encoding="utf-8")):
            quote, header = match.groups()
            if WINDOWS_HEADER.fullmatch(header) and not WINDOWS_FILES.fullmatch(file):
                yield f"{file}: {header} is not for this file"
            if quote == "<" or room not in BELOW:
                continue
            other = owner.get(PurePosixPath(header).name) or maker_of(header, room)
            if other is None:
                yield f"{file}: no room has {header}"
            elif other != room and other not in BELOW[room]:
                yield f"{file}: {room} is below {other} and may not include {header}"
            elif (PurePosixPath(file).stem in WITHOUT_TOKENS_AND_CERTIFICATES
                  and other in {"asn1", "pkcs11"}):
                yield f"{file}: needs nothing of {other}, but includes {header}"


def main(files):
    found = list(complaints(files))
    print("\n".join(found) or f"{len(files)} files keep to their rooms")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
