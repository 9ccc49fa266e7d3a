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
    "--pin-env. It is tried once, because a token locks after a few wrong ones, and wiped from\n"
    "memory afterwards. No option takes the PIN itself: other processes can read command lines. "
    "An\n"
    "environment variable is removed from this process once it has been read, but whoever started\n"
    "the program still has it.";

inline constexpr char moduleHelp[] =
    "A module runs with all rights of whoever loads it and is given the PIN. So it is loaded only\n"
    "if Windows trusts the Authenticode signature in its file. --allow-unsigned-module skips that\n"
    "check, for a module that its maker does not sign and whose file nobody else can change. DLLs\n"
    "that a module loads from its own folder are not checked: make sure that only administrators\n"
    "can write there.";

inline constexpr CommandText commandTexts[] = {
    {Command::status, "status", "Show token and store side by side; changes nothing",
     "For each key container: what is on the token, what is in the store, and how they differ.\n"
     "  in step          registered as it is on the token\n"
     "  missing          on the token, not in the store; sync adds it\n"
     "  changed          the token has another certificate for this key; sync replaces it\n"
     "  bound otherwise  registered for another key container; sync rebinds it\n"
     "  not ours         in the store, but not registered by this program, or only in part by a\n"
     "                   run that was killed: left alone\n"
     "  duplicate        the same certificate is registered for another key of the token\n"
     "  stale            registered, but no longer on the token or not asked for; sync removes "
     "it\n"
     "  unusable         on the token, but Windows does not accept it: what is registered for "
     "this\n"
     "                   key is left alone, and the program ends with 11\n"
     "  foreign          bound to the CSP by another program, and not on the token: left alone\n"
     "  token only       on the token, but not asked for: it has no private key there, and\n"
     "                   neither --ca nor --other includes it",
     "certstoreupdate status --module C:\\token\\pkcs11.dll --csp \"My Token CSP\"\n"
     "certstoreupdate status --module pkcs11.dll --csp \"My Token CSP\" --pin-file pin.txt --json"},
    {Command::sync, "sync", "Register what is missing, then remove what is no longer on the token",
     "Registers the certificates whose private keys are on the token and, if asked, more. Only\n"
     "what differs is changed, so that a second run writes nothing, and nothing is removed that\n"
     "this program did not register. What an earlier run registered because of --ca or --other is\n"
     "removed by a run without that option.\n"
     "The token is the one in the module's first slot that holds one; what was registered from\n"
     "another token for the same CSP counts as no longer on the token. A label that was changed "
     "on\n"
     "the token is taken over only with a new certificate. Ctrl-C ends the run as soon as the\n"
     "current certificate is done, or at once if it is pressed again; the next run does the rest.",
     "certstoreupdate sync --module C:\\token\\pkcs11.dll --csp \"My Token CSP\" --dry-run\n"
     "certstoreupdate sync --module C:\\token\\pkcs11.dll --csp \"My Token CSP\"\n"
     "certstoreupdate sync --module pkcs11.dll --csp \"My Token CSP\" --ca --pin-env TOKEN_PIN"},
    {Command::watch, "watch", "Follow the token: synchronise when it appears or changes",
     "Runs until Ctrl-C. The PIN is read once, kept for as long as this runs, and tried on every\n"
     "token that appears. If a login fails, whatever the token answers, the PIN is wiped and the\n"
     "program ends, with 5 if the PIN was refused and with 10 otherwise; it goes on only if the\n"
     "token was gone. After any other fault, which is reported, it tries again: after one second,\n"
     "then two, then four, and so on up to five minutes, or once the token is taken out or put in\n"
     "again. Ctrl-C ends it as soon as the current certificate is done, or at once if it is "
     "pressed\n"
     "again. With --json every event is a line of its own.",
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
     "Their names, one per line, in the system's order. A certificate can be registered for any\n"
     "name (sync --allow-missing-csp), but Windows finds its key only once a CSP of that name is\n"
     "installed.",
     "certstoreupdate csps"},
    {Command::verify, "verify", "Check the Authenticode signatures of files",
     "Says whether Windows trusts the signature in each file, the check that a module must pass\n"
     "before it is loaded. Ends with 8 if one is not trusted. A signature in one of the system's\n"
     "catalogues instead of the file itself does not count.",
     "certstoreupdate verify C:\\token\\pkcs11.dll\n"
     "certstoreupdate verify setup.msi driver.cab --json"},
    {Command::grant, "grant", "Let sandboxed application packages read files",
     "Lets all application packages (S-1-15-2-1) read each path, unless its permissions name them\n"
     "already, whether to allow or to deny. With --recursive this is done for two levels of a\n"
     "folder's contents too, not deeper. What is put into the folder later inherits the "
     "permission\n"
     "at any depth.\n"
     "\n"
     "A link is granted itself, not what it leads to; with --recursive, what is in the folder "
     "that\n"
     "it leads to is granted too. A path whose permissions were protected from those of the "
     "folders\n"
     "above it loses that protection. Warnings name the links given and the paths that lost it.",
     "certstoreupdate grant C:\\token\\pkcs11.dll\n"
     "certstoreupdate grant C:\\token --recursive"},
};

} // namespace updater
