// Registers a token's certificates in the personal store, replacing those registered before.
#include <certstorehelper.h>
#include <pkcs11helper.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

using namespace pkcs11::certstoreupdater;

void update(const std::string& module, const std::wstring& csp,
            const buffer::Buffer<unsigned char>& pin) {
    Pkcs11Helper token(module);
    token.login(pin);
    const auto certificates = token.getCertsWithPrivateKey();

    CertStoreHelper store;
    store.deleteCspCertificates(csp, false);
    store.addCspCertificates(csp, *certificates, true);
}

// Takes the PIN from the environment variable TOKEN_PIN, because others can read command lines.
int main(int argc, char** argv) {
    const char* pin = std::getenv("TOKEN_PIN");
    if (argc != 2 || !pin) {
        std::cerr << "usage: set TOKEN_PIN, then: update MODULE\n";
        return 2;
    }
    try {
        const std::string_view digits = pin;
        update(argv[1], L"My Token CSP",
               {reinterpret_cast<const unsigned char*>(digits.data()), digits.size()});
    } catch (const korv::GenericEvent& event) {
        std::wcerr << event.dump().c_str();
        return 1;
    }
}
