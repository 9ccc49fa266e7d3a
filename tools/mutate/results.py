"""What became of the mutants, kept from run to run."""

import hashlib
import json
import os
from pathlib import Path

KILLED = "killed"
SURVIVED = "survived"
EQUIVALENT = "equivalent"   # the compiler makes the same of it
NOT_BUILT = "did not build"
TIMED_OUT = "timed out"     # killed, too
VERDICTS = (KILLED, SURVIVED, EQUIVALENT, NOT_BUILT, TIMED_OUT)


def digest_of(paths):
    """A digest of files, and of all files in folders."""
    digest = hashlib.sha256()
    for path in paths:
        files = sorted(file for file in path.rglob("*")
                       if file.is_file() and file.suffix != ".pyc") if path.is_dir() else [path]
        for file in files:
            digest.update(file.name.encode() + b"\0")
            digest.update(hashlib.sha256(file.read_bytes()).digest())
    return digest.hexdigest()[:16]


class Results:
    """A file of verdicts by mutant. A verdict holds as long as the mutant's file and tests are what
    they were."""

    def __init__(self, file):
        self.file = Path(file)
        try:
            self.entries = json.loads(self.file.read_text(encoding="utf-8"))
        except FileNotFoundError:
            self.entries = {}

    def get(self, key, basis):
        """The verdict, or nothing if there is none that still holds."""
        entry = self.entries.get(key)
        return entry["verdict"] if entry and entry["basis"] == basis else None

    def put(self, key, basis, verdict, remark=""):
        self.entries[key] = {"verdict": verdict, "basis": basis, "by": remark}
        self.file.parent.mkdir(parents=True, exist_ok=True)
        # In one piece, however this ends.
        new = self.file.with_suffix(".new")
        new.write_text(json.dumps(self.entries, indent=0, sort_keys=True), encoding="utf-8")
        os.replace(new, self.file)
