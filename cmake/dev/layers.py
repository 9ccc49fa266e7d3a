#!/usr/bin/env python3
"""Checks what each layer includes: layers.py FILE...

A layer may include its own headers and those of the layers below it. Windows headers are only for the
files that use the Windows API, and for tests; all other files compile on every platform.
"""

import re
import sys
from pathlib import Path, PurePosixPath

# The layers below each layer. What is not listed (tests, tools) may include everything.
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


def layer_of(path):
    return PurePosixPath(path).parts[0]


def maker_of(header, layer):
    """The layer itself, if the build generates the header there from a template."""
    return layer if Path(layer, header + ".in").is_file() else None


def complaints(files):
    owner = {PurePosixPath(file).name: layer_of(file)
             for file in files if file.endswith(".h") and layer_of(file) in BELOW}
    for file in files:
        layer = layer_of(file)
        for match in INCLUDE.finditer(Path(file).read_text(encoding="utf-8")):
            quote, header = match.groups()
            if WINDOWS_HEADER.fullmatch(header) and not WINDOWS_FILES.fullmatch(file):
                yield f"{file}: only files that use the Windows API may include {header}"
            if quote == "<" or layer not in BELOW:
                continue
            other = owner.get(PurePosixPath(header).name) or maker_of(header, layer)
            if other is None:
                yield f"{file}: no layer has {header}"
            elif other != layer and other not in BELOW[layer]:
                yield f"{file}: {layer} is below {other} and may not include {header}"
            elif (PurePosixPath(file).stem in WITHOUT_TOKENS_AND_CERTIFICATES
                  and other in {"asn1", "pkcs11"}):
                yield f"{file}: may use util only, but includes {header} of {other}"


def main(files):
    found = list(complaints(files))
    print("\n".join(found) or f"{len(files)} files include only what they may")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
