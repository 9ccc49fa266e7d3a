"""The list of mutants that change nothing that a test could notice, each with the reason."""

from results import KILLED, TIMED_OUT


class Entry:
    def __init__(self, key, reason):
        self.key = key
        self.reason = reason


def read(text):
    """The entries. The comments above a paragraph are the reason of its lines."""
    found, reason, in_entries = [], [], False
    for line in text.splitlines():
        if line.startswith("#"):
            if in_entries:
                reason, in_entries = [], False
            reason.append(line.lstrip("# "))
        elif line.strip():
            found.append(Entry(line.strip(), " ".join(reason)))
            in_entries = True
        else:
            reason, in_entries = [], False
    return found


def complaints(entries, keys, verdicts, is_chosen=lambda key: True):
    """What is wrong with the list, given the keys of all mutants and the verdicts of those that were
    tried."""
    seen = set()
    for entry in entries:
        if not is_chosen(entry.key):
            continue
        if not entry.reason:
            yield f"no reason is given for: {entry.key}"
        if entry.key in seen:
            yield f"listed twice: {entry.key}"
        seen.add(entry.key)
        if entry.key not in keys:
            yield f"there is no such mutant any more: {entry.key}"
        elif verdicts.get(entry.key) in (KILLED, TIMED_OUT):
            yield f"listed, but the tests notice it: {entry.key}"
        elif entry.key in verdicts and verdicts[entry.key] != "survived":
            yield f"listed, but it {verdicts[entry.key]}: {entry.key}".replace(
                "it equivalent", "needs not be, being compiled to the same")
