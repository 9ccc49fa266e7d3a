// Lists the certificates in a store that are bound to a CSP: subject, end of validity, and whether
// it is an authority's.
#include <bufcodecs.h>
#include <certstorehelper.h>
#include <nametext.h>

#include <iostream>
#include <string>

using namespace pkcs11::certstoreupdater;

namespace {

std::string utf8(buffer::BufferRange<wchar_t> text) {
    buffer::Buffer<unsigned char> bytes;
    buffer::Utf8Encoder::encode(text, bytes);
    return std::string(bytes.begin(), bytes.end());
}

void list(const std::wstring& storeName, const std::wstring& csp) {
    CertStoreHelper store(storeName);
    const auto certificates = store.listCertsByCsp(csp, false);
    for (const auto& [container, item] : *certificates) {
        const asn1::Certificate& certificate = item.certificate;
        std::cout << utf8(container) << "\n    "
                  << utf8(asn1::toText(certificate.subject().rdnSequence)) << "\n    until "
                  << utf8(certificate.validity().notAfter.text())
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
        std::cerr << "cannot open the store " << utf8(*error.param(L"STORE")) << "\n";
        return 1;
    } catch (const korv::GenericEvent& event) {
        std::cerr << utf8(event.dump());
        return 1;
    }
    return 0;
}
