// What the token holds.
#include "token.h"

#include "pkcs11helper.h"

#include <windows.h>

namespace updater {

namespace {

using pkcs11::certstoreupdater::Pkcs11Helper;

std::string toActiveCodePage(const std::wstring& text) {
    const int size = static_cast<int>(text.size());
    std::string narrow;
    narrow.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_ACP, 0, text.data(), size, nullptr, 0, nullptr, nullptr)));
    WideCharToMultiByte(CP_ACP, 0, text.data(), size, narrow.data(),
                        static_cast<int>(narrow.size()), nullptr, nullptr);
    return narrow;
}

std::wstring fromActiveCodePage(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide;
    wide.resize(
        static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), size, nullptr, 0)));
    MultiByteToWideChar(CP_ACP, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

/// The path as the library takes it. Another file of a similar name must not be loaded instead,
/// so there is no best fit.
std::string pathForLibrary(const std::wstring& module) {
    const std::string path = toActiveCodePage(module);
    if (fromActiveCodePage(path) != module)
        throw Failure(ExitCode::module,
                      L"the path of the module \"" + module +
                          L"\" has characters outside the system's code page; give it by its short "
                          L"name (dir /x) or put the module into another folder");
    return path;
}

} // namespace

TokenContents readToken(const std::wstring& module, const PinSource& pinSource, Reading reading) {
    const std::string path = pathForLibrary(module);
    TokenContents contents;
    Activity activity{Activity::Kind::loadModule, module};
    try {
        Pkcs11Helper token(path);
        activity.kind = Activity::Kind::logIn;
        token.login(readPin(pinSource).bytes());
        activity.kind = Activity::Kind::readToken;
        contents.withKey = std::move(*token.getCertsWithPrivateKey());
        if (reading == Reading::allClasses)
            contents.classes = std::move(*token.getAllCerts());
        activity.kind = Activity::Kind::unloadModule;
    } catch (const korv::GenericEvent& event) {
        const Failure failure = explain(activity, event);
        if (activity.kind != Activity::Kind::unloadModule)
            throw failure;
        contents.unloadFailure = failure;
    }
    return contents;
}

} // namespace updater
