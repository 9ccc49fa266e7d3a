// Prints the certificates of a token, as p11tool and pkcs11-tool do: readtoken MODULE PIN
#include "bufcodecs.h"
#include "nametext.h"
#include "pkcs11helper.h"

#include <cstdio>
#include <exception>
#include <string_view>

namespace {

using pkcs11::certstoreupdater::CertMap;

void printLine(const char* what, buffer::BufferRange<wchar_t> text) {
    buffer::TmpBuffer<unsigned char> utf8;
    buffer::Utf8Encoder::encode(text, utf8);
    std::printf("%s: %.*s\n", what, static_cast<int>(utf8.size()),
                reinterpret_cast<const char*>(utf8.data()));
}

void print(const char* kind, const CertMap& certificates) {
    for (const auto& [container, item] : certificates) {
        printLine(kind, container);
        printLine("  label", item.label);
        printLine("  subject", asn1::toText(item.certificate.subject().rdnSequence));
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fprintf(stderr, "usage: readtoken MODULE PIN\n");
        return 2;
    }
    try {
        pkcs11::certstoreupdater::Pkcs11Helper token(arguments[1]);
        const std::string_view pin = arguments[2];
        token.login({reinterpret_cast<const unsigned char*>(pin.data()), pin.size()});
        const auto all = token.getAllCerts();
        print("own", all->certsWithPrivateKey);
        print("self-signed", all->selfSignedCerts);
        print("authority", all->caCerts);
        print("other", all->otherCerts);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "readtoken: %s\n", error.what());
        return 1;
    }
}
