// Names of CSPs and stores that are probably not meant.
#include "namechecks.h"

#include "csps.h"
#include "suggestion.h"
#include "text.h"

#include <windows.h>

#include <algorithm>

namespace updater {

namespace {

const std::vector<std::string>& storesOfWindows() {
    static const std::vector<std::string> names{"MY",
                                                "Root",
                                                "CA",
                                                "Trust",
                                                "Disallowed",
                                                "AuthRoot",
                                                "TrustedPeople",
                                                "TrustedPublisher",
                                                "SmartCardRoot",
                                                "ClientAuthIssuer",
                                                "REQUEST",
                                                "UserDS",
                                                "AddressBook"};
    return names;
}

/// As the registry compares names.
bool isSameName(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

void warnIfMistyped(const std::wstring& store, Output& output) {
    const auto& names = storesOfWindows();
    const bool isKnown = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return isSameName(toWide(name), store);
    });
    const auto meant = isKnown ? std::nullopt : nearest(toUtf8(store), names);
    if (meant)
        output.warn(L"\"" + store +
                    L"\" is none of Windows's own stores, and is created if it does not "
                    L"exist; did you mean \"" +
                    toWide(*meant) + L"\"?");
}

} // namespace

void warnOfMistypedNames(const Options& options, Output& output) {
    if (!options.csp.empty())
        if (const auto complaint = complaintAboutCsp(options.csp, output))
            output.warn(*complaint);
    warnIfMistyped(options.store, output);
}

void requireInstalledCsp(const Options& options, Output& output) {
    if (!options.allowMissingCsp)
        if (const auto complaint = complaintAboutCsp(options.csp, output))
            throw Failure(ExitCode::usage, *complaint + L"; if it is to be installed later, say "
                                                        L"--allow-missing-csp");
    warnIfMistyped(options.store, output);
}

} // namespace updater
