// What --help says about each command.
#pragma once

#include "commandline.h"

namespace updater {

struct CommandText {
    Command command;
    const char* name;
    const char* summary;
    const char* details;
    const char* examples;
};

inline constexpr char programSummary[] =
    "Keeps a Windows certificate store in step with the certificates on a PKCS#11 token, so that\n"
    "Windows programs can use the token's keys through a cryptographic service provider (CSP).";

inline constexpr char pinHelp[] =
    "The PIN is asked for on the console, or taken from one of --pin-file, --pin-stdin and\n"
    "--pin-env. It is tried once, for a token locks after a few wrong ones, and wiped from memory\n"
    "afterwards. No option takes the PIN itself: command lines can be read by others. An "
    "environment\n"
    "variable is taken away once it was read, but whoever started this program still has it.";

inline constexpr char moduleHelp[] =
    "A module runs with all rights of whoever loads it and is given the PIN. So it is loaded only\n"
    "if Windows trusts the Authenticode signature in its file; --allow-unsigned-module leaves "
    "that\n"
    "check out, for modules whose maker signs nothing and whose file nobody else can change. DLLs\n"
    "that a module loads from its own folder are not checked: see that only administrators can\n"
    "write there.";

inline constexpr CommandText commandTexts[] = {
    {Command::status, "status", "Show token and store side by side; changes nothing",
     "For each key container: what is on the token, what is in the store, and how they differ.\n"
     "  in step          registered as it is on the token\n"
     "  missing          on the token, not in the store; sync adds it\n"
     "  changed          the token has another certificate for this key; sync replaces it\n"
     "  bound otherwise  registered for another key container; sync binds it anew\n"
     "  not ours         in the store, but not registered by this program, or by a run that was\n"
     "                   killed before it was done with it: left alone\n"
     "  duplicate        the same certificate is registered for another key of the token\n"
     "  stale            registered, and no longer on the token or not asked for; sync removes it\n"
     "  foreign          bound to the CSP by another program, and not on the token: left alone\n"
     "  token only       on the token, and not asked for: it has no private key there, and "
     "neither\n"
     "                   --ca nor --other includes it",
     "certstoreupdate status --module C:\\token\\pkcs11.dll --csp \"My Token CSP\"\n"
     "certstoreupdate status --module pkcs11.dll --csp \"My Token CSP\" --pin-file pin.txt --json"},
    {Command::sync, "sync", "Register what is missing, then remove what is no longer on the token",
     "Registers the certificates whose private keys are on the token and, if asked, more. Only\n"
     "what differs is changed, so that a second run writes nothing, and nothing is removed that\n"
     "this program did not register. What an earlier run registered with --ca or --other and this\n"
     "one is not asked for is removed.\n"
     "The token is the one in the module's first slot that holds one; what another token\n"
     "registered for the same CSP counts as no longer on the token. Ctrl-C ends it in order, with\n"
     "the certificate that it is at done, and at once if it is pressed again; the next run does "
     "the\n"
     "rest. A label that was changed on the token is taken over only with a new certificate.",
     "certstoreupdate sync --module C:\\token\\pkcs11.dll --csp \"My Token CSP\" --dry-run\n"
     "certstoreupdate sync --module C:\\token\\pkcs11.dll --csp \"My Token CSP\"\n"
     "certstoreupdate sync --module pkcs11.dll --csp \"My Token CSP\" --ca --pin-env TOKEN_PIN"},
    {Command::watch, "watch", "Follow the token: synchronise when it appears or changes",
     "Goes on until Ctrl-C. The PIN is read once, held as long as this runs, and tried on every\n"
     "token that appears. If a login fails, whatever the token answers, the PIN is wiped and\n"
     "this ends, with 5 if the PIN was refused and with 10 else; if the token was gone, it goes\n"
     "on. Any other fault is reported and tried again, after one second, then two, then four,\n"
     "and so on up to five minutes, or when the token was taken out and put in again. Ctrl-C\n"
     "ends it in order, and at once if it is pressed again. With --json every event is a line\n"
     "of its own.",
     "certstoreupdate watch --module C:\\token\\pkcs11.dll --csp \"My Token CSP\"\n"
     "certstoreupdate watch --module pkcs11.dll --csp \"My Token CSP\" --clean --interval 10"},
    {Command::list, "list", "List what is registered for a CSP, or for every installed CSP",
     "Needs no token. Entries that are bound to the CSP but were not registered by this program\n"
     "are listed as \"not ours\".",
     "certstoreupdate list --csp \"My Token CSP\"\n"
     "certstoreupdate list --json"},
    {Command::clean, "clean", "Remove everything that this program registered for the CSP",
     "Needs no token. Entries that this program did not register stay.",
     "certstoreupdate clean --csp \"My Token CSP\""},
    {Command::csps, "csps", "List the installed CSPs",
     "Their names, one a line, in the system's order. A certificate can be registered for another\n"
     "name too, but Windows finds its key only once a CSP of that name is installed.",
     "certstoreupdate csps"},
    {Command::verify, "verify", "Check the Authenticode signatures of files",
     "Says of each file whether Windows trusts the signature in it, as it must trust that of a\n"
     "module before it is loaded. Ends with 8 if one is not trusted. Signatures that lie in a\n"
     "catalogue of the system and not in the file do not count.",
     "certstoreupdate verify C:\\token\\pkcs11.dll\n"
     "certstoreupdate verify setup.msi driver.cab --json"},
    {Command::grant, "grant", "Let sandboxed application packages read files",
     "Lets all application packages (S-1-15-2-1) read each path, unless its permissions name them\n"
     "already, be it to allow or to deny. With --recursive a folder's entries and theirs are "
     "granted\n"
     "too: two levels down, not deeper. What a folder contains later inherits the permission at "
     "any\n"
     "depth.",
     "certstoreupdate grant C:\\token\\pkcs11.dll\n"
     "certstoreupdate grant C:\\token --recursive"},
};

} // namespace updater
