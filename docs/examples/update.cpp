// Registers a token's certificates in the personal store, in place of those of the last time.
#include <certstorehelper.h>
#include <pkcs11helper.h>

#include <iostream>

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

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: update MODULE CSP PIN\n";
        return 2;
    }
    try {
        const std::string csp = argv[2];
        const std::string_view pin = argv[3];
        update(argv[1], std::wstring(csp.begin(), csp.end()),
               {reinterpret_cast<const unsigned char*>(pin.data()), pin.size()});
    } catch (const korv::GenericEvent& event) {
        std::wcerr << event.dump().c_str();
        return 1;
    }
}
