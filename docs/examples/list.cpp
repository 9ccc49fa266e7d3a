// Lists a store's certificates that are bound to a CSP, with what a person wants to know of them.
#include <certstorehelper.h>
#include <nametext.h>

#include <windows.h>

#include <iostream>
#include <string>
#include <string_view>

using namespace pkcs11::certstoreupdater;

namespace {

std::wstring_view view(const buffer::GenericBuffer<wchar_t>& text) {
    return {text.c_str(), text.size()};
}

std::string utf8(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    std::string bytes(3 * text.size(), '\0');
    bytes.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(),
                            static_cast<int>(bytes.size()), nullptr, nullptr)));
    return bytes;
}

void list(const std::wstring& storeName, const std::wstring& csp) {
    CertStoreHelper store(storeName);
    const auto certificates = store.listCertsByCsp(csp, false);
    for (const auto& [container, item] : *certificates) {
        const asn1::Certificate& certificate = item.certificate;
        std::cout << utf8(view(container)) << "\n    "
                  << utf8(view(asn1::toText(certificate.subject().rdnSequence))) << "\n    until "
                  << utf8(view(certificate.validity().notAfter.text()))
                  << (certificate.isAuthority() ? ", an authority\n" : "\n");
    }
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) {
        std::cerr << "usage: list STORE CSP\n";
        return 2;
    }
    try {
        list(argv[1], argv[2]);
    } catch (const CertStoreUpdaterError_OpenSystemStore& error) {
        std::cerr << "cannot open the store " << utf8(view(*error.param(L"STORE"))) << "\n";
        return 1;
    } catch (const korv::GenericEvent& event) {
        std::cerr << utf8(view(event.dump()));
        return 1;
    }
    return 0;
}
