// The certificates of Debian's package ca-certificates.
#include "cacertificates.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace asn1_test {

namespace {

using testsupport::Bytes;

Bytes fromBase64(std::string_view text) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Bytes bytes;
    unsigned bits = 0;
    unsigned count = 0;
    for (const char c : text) {
        const std::size_t value = alphabet.find(c);
        if (value == std::string_view::npos)
            continue;
        bits = bits << 6 | static_cast<unsigned>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes.push_back(static_cast<unsigned char>(bits >> count & 0xFF));
        }
    }
    return bytes;
}

Bytes fromPem(const std::string& text) {
    constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----";
    const std::size_t first = text.find(begin);
    const std::size_t last = text.find("-----END");
    if (first == std::string::npos || last == std::string::npos)
        throw std::runtime_error("no certificate in PEM");
    const std::size_t start = first + begin.size();
    return fromBase64(std::string_view(text).substr(start, last - start));
}

std::vector<CaCertificate> load() {
    std::vector<CaCertificate> all;
    for (const auto& entry :
         std::filesystem::directory_iterator("/usr/share/ca-certificates/mozilla")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        all.push_back({entry.path().filename().string(), fromPem(text)});
    }
    if (all.empty())
        throw std::runtime_error("the package ca-certificates has no certificates");
    // A folder lists its files in no particular order.
    std::sort(all.begin(), all.end(), [](const CaCertificate& one, const CaCertificate& other) {
        return one.file < other.file;
    });
    return all;
}

} // namespace

const std::vector<CaCertificate>& caCertificates() {
    static const std::vector<CaCertificate> all = load();
    return all;
}

} // namespace asn1_test
