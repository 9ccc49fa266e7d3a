// Reads the token.
#include "token.h"

#include "pkcs11helper.h"

namespace updater {

using Kind = Activity::Kind;
using pkcs11::certstoreupdater::Pkcs11Helper;

namespace {

std::wstring countOf(std::size_t count) {
    return std::to_wstring(count) + (count == 1 ? L" certificate" : L" certificates");
}

} // namespace

void Token::logIn(const Pin& pin) {
    during({Kind::logIn, module_}, [&] { helper_.login(pin.bytes()); });
}

TokenContents Token::read(Reading reading) const {
    return during({Kind::readToken, module_}, [&] {
        TokenContents contents;
        contents.withKey = std::move(*helper_.getCertsWithPrivateKey());
        if (reading == Reading::allClasses)
            contents.classes = std::move(*helper_.getAllCerts());
        return contents;
    });
}

std::optional<Failure> withToken(const ModuleFile& module, const std::function<void(Token&)>& use) {
    Activity activity{Kind::loadModule, module.path()};
    try {
        Pkcs11Helper helper(module.pathForLibrary());
        activity.kind = Kind::unloadModule;
        Token token(helper, module.path());
        during({Kind::readToken, module.path()}, [&] { use(token); });
    } catch (const korv::GenericEvent& event) {
        Failure failure = explain(activity, event);
        if (activity.kind == Kind::loadModule)
            throw failure;
        return failure;
    }
    return std::nullopt;
}

TokenContents readToken(const ModuleFile& module, const PinSource& pinSource, Reading reading,
                        Output& output) {
    TokenContents contents;
    output.detail(L"loading the module \"" + module.path() + L"\"");
    const auto unloadFailure = withToken(module, [&](Token& token) {
        output.detail(L"logging in to the token");
        token.logIn(readPin(pinSource));
        contents = token.read(reading);
        output.detail(L"read " + countOf(contents.withKey.size()) + L" with a private key");
    });
    if (unloadFailure)
        output.fail(*unloadFailure);
    return contents;
}

} // namespace updater
