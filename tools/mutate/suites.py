"""Which tests measure which sources."""

from dataclasses import dataclass

FOLDERS = ("util", "asn1", "pkcs11", "src")
# What a build of each system is called, in CMakePresets.json: the one whose compile commands tell
# what a source file includes, and the one that the mutants are built in.
COMPILED = {"native": "native", "windows": "windows"}
BUILT = {"native": "native-mutants", "windows": "windows-mutants"}


@dataclass(frozen=True)
class Suite:
    """Test programs for the files whose paths begin alike."""
    begins: str
    programs: tuple
    torture: tuple = ()  # only for mutants that survive the others
    linked: str = ""     # what is linked anew, if not the programs themselves

    def all_programs(self):
        return self.programs + self.torture


SUITES = {
    "native": (
        Suite("util/", ("util_test",)),
        Suite("asn1/", ("asn1_test", "asn1_peers_test")),
        Suite("pkcs11/", ("pkcs11_test",)),
        Suite("src/cspbinding", ("cspbinding_test",)),
        Suite("src/", ("pkcs11helper_test",)),
        Suite("include/", ("pkcs11helper_test",)),
    ),
    "windows": (
        Suite("pkcs11/", ("pkcs11_test",)),
        Suite("src/certstorehelper", ("certstorehelper_test",),
              ("torture_test", "torture_csps_test"), "certstoreupdater"),
        Suite("src/codeverifier", ("codeverifier_test",), ("torture_signature_test",),
              "certstoreupdater"),
        Suite("src/mspermissions", ("mspermissions_test",), ("torture_permissions_test",),
              "certstoreupdater"),
        Suite("include/", ("certstorehelper_test", "codeverifier_test", "mspermissions_test"), (),
              "certstoreupdater"),
    ),
}


def folder_of(file):
    """The folder that a file is counted under: the headers of src/ are in include/."""
    first = file.split("/")[0]
    return "src" if first == "include" else first


def suite_of(mutant):
    return next(suite for suite in SUITES[mutant.system] if mutant.file.startswith(suite.begins))
