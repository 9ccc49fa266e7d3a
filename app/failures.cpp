// How the program fails: exit codes, and one clear line about what failed.
#include "failures.h"

#include "asn1error.h"
#include "buffererror.h"
#include "certstoreupdatererror.h"
#include "cryptokianswers.h"
#include "files.h"
#include "pkcs11error.h"
#include "text.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <sstream>
#include <utility>

namespace updater {

namespace {

using Kind = Activity::Kind;

struct ExitCodeRow {
    ExitCode code;
    const char* family;
    const char* meaning;
};

constexpr ExitCodeRow exitCodes[] = {
    {ExitCode::done, "done", "done"},
    {ExitCode::unexpected, "unexpected",
     "something unexpected, such as no memory or no place for the output"},
    {ExitCode::usage, "usage", "the command line, or a PIN source that cannot be read"},
    {ExitCode::module, "module", "the PKCS#11 module cannot be loaded or does not start"},
    {ExitCode::tokenAbsent, "token-absent",
     "no token is present, or its user PIN has not been set"},
    {ExitCode::pinRefused, "pin-refused", "the token refused the PIN"},
    {ExitCode::certificate, "certificate", "a certificate is malformed"},
    {ExitCode::store, "store", "the certificate store"},
    {ExitCode::signature, "signature", "a signature that Windows does not trust"},
    {ExitCode::permissions, "permissions", "file permissions"},
    {ExitCode::token, "token", "any other fault of the token or its module"},
    {ExitCode::incomplete, "incomplete",
     "not everything could be done: Windows does not accept a certificate, an entry\n"
     "      that is not ours is in the way, the store refused a change, or the run was\n"
     "      interrupted"},
    {ExitCode::different, "different", "with --exit-code: store and token differ"},
};

// By which Windows ends a process that does not handle Ctrl-C (STATUS_CONTROL_C_EXIT).
constexpr char exitCodeOfCtrlC[] =
    "  0xC000013A  Ctrl-C ended it at once; while watch follows the token, and sync and clean\n"
    "      work on the store, only a second one does (scripts may show -1073741510)\n";

std::wstring quoted(const std::wstring& text) {
    return L"\"" + text + L"\"";
}

/// Whether an answer is about the PIN itself, which may have cost one of its tries.
bool isPinAnswer(unsigned long code) {
    return code >= answer::pinIncorrect && code <= answer::pinLocked;
}

Failure pinFailure(unsigned long code) {
    constexpr auto refused = ExitCode::pinRefused;
    switch (code) {
    case answer::pinLocked:
        return {refused, L"the PIN is locked; unblock it with the token's own tool or ask whoever "
                         L"issued the token"};
    case answer::pinExpired:
        return {refused, L"the PIN has expired; change it with the token's own tool"};
    case answer::pinInvalid:
    case answer::pinLengthRange:
        return {refused, L"the token does not take such a PIN: its length or its characters are "
                         L"wrong; check where it comes from before you try again"};
    default:
        return {refused, L"the token refused the PIN; it was tried once and will not be tried "
                         L"again by itself. Make sure of the PIN before the next try: the token "
                         L"locks after a few wrong ones"};
    }
}

std::wstring whyNotLoaded(const korv::GenericEvent& event) {
    const auto* const error = event.param(L"ERROR");
    const std::wstring reason = error ? toString(*error) : std::wstring();
    wchar_t* end = nullptr;
    const unsigned long code = std::wcstoul(reason.c_str(), &end, 10);
    // Either a number of the system or, of a DLL that was loaded, what it lacks.
    if (!reason.empty() && *end == L'\0')
        return systemErrorText(code) + L"; check its path and that it is a 64-bit PKCS#11 module";
    if (reason == L"C_GetFunctionList is missing")
        return L"it is no PKCS#11 module, as it has no C_GetFunctionList";
    return L"it is no PKCS#11 module that can be used: " + reason;
}

Failure moduleFailure(const std::wstring& file, const korv::GenericEvent& event) {
    const korv::GenericEvent* const cause = event.parent();
    if (cause)
        return {ExitCode::module,
                L"the module " + quoted(file) + L" cannot be loaded: " + whyNotLoaded(*cause)};
    return {ExitCode::module, L"the module " + quoted(file) + L" does not start: " +
                                  nameOfAnswer(answerOf(event)) +
                                  L"; check that its device and its own software are in order"};
}

Failure tokenFailure(const Activity& activity, const korv::GenericEvent& event) {
    const unsigned long code = answerOf(event);
    const std::wstring name = nameOfAnswer(code);
    if (activity.kind == Kind::loadModule)
        return moduleFailure(activity.subject, event);
    if (activity.kind == Kind::unloadModule)
        return {ExitCode::token, L"the module " + quoted(activity.subject) +
                                     L" did not end as it should (" + name +
                                     L"); what was done until then is done all the same"};
    if (code == answer::deviceRemoved || code == answer::tokenNotPresent ||
        code == answer::tokenNotRecognized)
        return {ExitCode::tokenAbsent, L"the token is gone or not recognised (" + name +
                                           L"); insert it and try again; the store is unchanged"};
    if (code == answer::userPinNotInitialized)
        return {ExitCode::tokenAbsent,
                L"the token's user PIN has not been set; set it with the token's own tool"};
    if (activity.kind == Kind::logIn)
        return isPinAnswer(code)
                   ? pinFailure(code)
                   : Failure{ExitCode::token, L"the login to the token failed (" + name +
                                                  L"); the store is unchanged"};
    return {ExitCode::token, L"reading the token failed (" + name +
                                 L"); the store is unchanged. Take the token out, insert it again "
                                 L"and try once more"};
}

Failure malformedFailure(const Activity& activity) {
    switch (activity.kind) {
    case Kind::add:
        return {ExitCode::certificate,
                L"the certificate " + activity.subject +
                    L" cannot be registered, because it is malformed; have it issued anew"};
    case Kind::readToken:
        return {ExitCode::certificate, L"a certificate or label on the token is malformed; the "
                                       L"store is unchanged. Replace it with the token's own tool"};
    default:
        return {ExitCode::certificate,
                L"the store " + quoted(activity.subject) +
                    L" holds a certificate that is malformed; remove it with certmgr.msc"};
    }
}

std::wstring whatFailedInStore(const Activity& activity) {
    switch (activity.kind) {
    case Kind::openStore:
        return L"the store " + quoted(activity.subject) +
               L" cannot be opened; check its name and that you may use it";
    case Kind::add:
        return L"the certificate " + activity.subject +
               L" cannot be registered; check that you may change the store";
    case Kind::remove:
        return L"the certificate " + activity.subject +
               L" cannot be removed; check that you may change the store";
    case Kind::clean:
        return L"not all entries for the CSP " + quoted(activity.subject) +
               L" can be removed; check that you may change the store";
    default:
        return L"the store " + quoted(activity.subject) + L" cannot be read";
    }
}

Failure storeFailure(const Activity& activity, const korv::GenericEvent& event) {
    if (dynamic_cast<const buffer::BufferError*>(&event))
        return {ExitCode::store, L"the record of container and CSP of an entry in the store is not "
                                 L"UTF-8, so whose it is cannot be told; remove that entry with "
                                 L"certmgr.msc"};
    return {ExitCode::store, whatFailedInStore(activity)};
}

Failure signatureFailure(const Activity& activity) {
    if (activity.kind == Kind::verifyModule)
        return {ExitCode::signature,
                L"the module " + quoted(activity.subject) +
                    L" was not loaded, because Windows does not trust its signature; get a signed "
                    L"one from whoever made it or, if you know that this one is right, say "
                    L"--allow-unsigned-module"};
    return {ExitCode::signature,
            L"Windows does not trust the signature of " + quoted(activity.subject) +
                L", or it has none; the file's properties in Explorer tell more"};
}

std::wstring adviceOnAccess(const std::wstring& systemError) {
    constexpr unsigned long fileNotFound = 2;
    constexpr unsigned long pathNotFound = 3;
    constexpr unsigned long accessDenied = 5;
    switch (std::wcstoul(systemError.c_str(), nullptr, 10)) {
    case fileNotFound:
    case pathNotFound:
        return L"it does not exist";
    case accessDenied:
        return L"you may not change them; run this as the owner or as administrator";
    default:
        return L"check that it lies on a disk that has permissions, such as one with NTFS";
    }
}

Failure permissionFailure(const Activity& activity, const korv::GenericEvent& event) {
    const auto* const error = event.param(L"error");
    return {ExitCode::permissions, L"the permissions of " + quoted(activity.subject) +
                                       L" cannot be changed: " +
                                       adviceOnAccess(error ? toString(*error) : std::wstring())};
}

bool isAboutToken(Kind kind) {
    return kind == Kind::loadModule || kind == Kind::logIn || kind == Kind::readToken ||
           kind == Kind::unloadModule;
}

bool isMalformedCertificate(const Activity& activity, const korv::GenericEvent& event) {
    if (dynamic_cast<const asn1::QuorError*>(&event))
        return true;
    // Text that a token gives, or that stands in a certificate, as against a store's record.
    const bool textOfCertificate = activity.kind == Kind::readToken || activity.kind == Kind::add;
    return textOfCertificate && dynamic_cast<const buffer::BufferError*>(&event);
}

Failure inWords(const Activity& activity, const korv::GenericEvent& event) {
    using namespace pkcs11::certstoreupdater;
    if (dynamic_cast<const CertStoreUpdaterError_TokenNotPresent*>(&event))
        return {ExitCode::tokenAbsent, L"no token is present: no slot of the module " +
                                           quoted(activity.subject) +
                                           L" holds one; insert the token and try again"};
    if (dynamic_cast<const CertStoreUpdaterError_TokenNotInitialized*>(&event))
        return {ExitCode::tokenAbsent,
                L"the token's user PIN has not been set; set it with the token's own tool"};
    if (dynamic_cast<const CertStoreUpdaterError_InvalidFileSignature*>(&event))
        return signatureFailure(activity);
    if (dynamic_cast<const CertStoreUpdaterError_InvalidConfiguration*>(&event))
        return permissionFailure(activity, event);
    if (activity.kind == Kind::listCsps)
        return {ExitCode::unexpected, L"the installed CSPs cannot be listed; if one is being "
                                      L"installed or removed right now, try again afterwards"};
    if (dynamic_cast<const pkcs11::Pkcs11Error*>(&event))
        return tokenFailure(activity, event);
    if (isMalformedCertificate(activity, event))
        return malformedFailure(activity);
    if (isAboutToken(activity.kind))
        return {ExitCode::token, L"the token cannot be used"};
    return storeFailure(activity, event);
}

} // namespace

std::string exitCodeHelp() {
    std::ostringstream text;
    text << "Exit codes:\n";
    for (const auto& [code, family, meaning] : exitCodes) {
        text.width(4);
        text << static_cast<int>(code) << "  " << meaning << '\n';
    }
    text << exitCodeOfCtrlC;
    return text.str();
}

const char* familyOf(ExitCode code) {
    const auto* const row =
        std::find_if(std::begin(exitCodes), std::end(exitCodes),
                     [code](const ExitCodeRow& candidate) { return candidate.code == code; });
    return row->family;
}

Failure::Failure(ExitCode code, std::wstring sentence)
    : code_(code), sentence_(std::move(sentence)), what_(toUtf8(line())) {}

Failure::Failure(ExitCode code, std::wstring sentence, const korv::GenericEvent& event)
    : code_(code), sentence_(std::move(sentence)), event_(event.clone()), what_(toUtf8(line())) {}

std::wstring Failure::line() const {
    return event_ ? sentence_ + L" (" + describe(*event_) + L")" : sentence_;
}

std::wstring describe(const korv::GenericEvent& event) {
    std::wstring text = toWide(event.what());
    const wchar_t* separator = L": ";
    for (const auto& [key, value] : event.params()) {
        text += separator + toString(key) + L"=" + toString(value);
        separator = L", ";
    }
    if (event.parent())
        text += L"; because of " + describe(*event.parent());
    return text;
}

bool meansLostSession(const korv::GenericEvent& event) {
    if (!dynamic_cast<const pkcs11::Pkcs11Error*>(&event))
        return false;
    const unsigned long code = answerOf(event);
    return code == answer::sessionClosed || code == answer::sessionHandleInvalid ||
           code == answer::userNotLoggedIn;
}

Failure refusedByWindows(const std::wstring& certificate) {
    return {ExitCode::incomplete,
            L"the certificate " + certificate +
                L" cannot be registered, because Windows does not accept it; have it issued anew"};
}

Failure explain(const Activity& activity, const korv::GenericEvent& event) {
    const Failure failure = inWords(activity, event);
    return {failure.code(), failure.sentence(), event};
}

} // namespace updater
