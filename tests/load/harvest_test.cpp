// A token with ten thousand certificates.
#include "certbuilder.h"
#include "pkcs11helper.h"
#include "tokentest.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using faketoken::Bytes;
using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::Pkcs11Helper;
using testsupport::CertBuilder;

constexpr std::size_t certificateCount = 10'000;
constexpr std::size_t classCount = 4;
constexpr std::size_t perClass = certificateCount / classCount;

enum Class : std::size_t { selfSigned, authority, withPrivateKey, other };

Class classOf(std::size_t number) {
    return static_cast<Class>(number % classCount);
}

Bytes idOf(std::size_t number) {
    return {static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
}

Bytes encodingOf(std::size_t number) {
    const std::string holder = "Holder " + std::to_string(number);
    CertBuilder builder;
    builder.serialNumber(static_cast<std::int64_t>(number))
        .names(holder, classOf(number) == selfSigned ? holder : "Issuer");
    if (classOf(number) == authority)
        builder.extensions({testsupport::basicConstraints(true)});
    return builder.build();
}

std::wstring containerOf(std::size_t number) {
    wchar_t text[] = L"CKAIDHEX:0000";
    constexpr wchar_t digits[] = L"0123456789ABCDEF";
    for (std::size_t i = 0; i != 4; ++i)
        text[9 + i] = digits[number >> (12 - 4 * i) & 0xF];
    return text;
}

/// What each map is to hold of a certificate.
void expectItem(const CertMap& certs, std::size_t number) {
    const auto found = certs.find(buffer::Buffer<wchar_t>(containerOf(number).c_str()));
    ASSERT_NE(found, certs.end()) << number;
    const CertItem& item = found->second;
    EXPECT_EQ(Bytes(item.id.begin(), item.id.end()), idOf(number));
    const std::string label = "Label " + std::to_string(number);
    EXPECT_EQ(std::wstring(item.label.c_str()), std::wstring(label.begin(), label.end()));
    const auto encoding = item.certificate.encoding();
    EXPECT_EQ(Bytes(encoding.begin(), encoding.end()), encodingOf(number));
}

void expectClass(const CertMap& certs, Class wanted) {
    EXPECT_EQ(certs.size(), perClass);
    for (std::size_t number = 0; number != certificateCount; ++number)
        if (classOf(number) == wanted)
            expectItem(certs, number);
}

class LargeToken : public faketoken::TokenTest {
protected:
    LargeToken() {
        for (std::size_t number = 0; number != certificateCount; ++number) {
            const std::string label = "Label " + std::to_string(number);
            objects().push_back(faketoken::certificate(encodingOf(number), idOf(number), label));
            if (classOf(number) == withPrivateKey)
                objects().push_back(faketoken::privateKey(idOf(number)));
        }
    }

    buffer::Buffer<unsigned char> pin() {
        const Bytes& pin = token->slots[0].pin;
        return {pin.data(), pin.size()};
    }
};

TEST_F(LargeToken, IsReadWholeWithTwoCallsForEachObject) {
    Pkcs11Helper helper(faketoken::modulePath());
    helper.login(pin());
    token->forgetCalls();
    const auto package = helper.getAllCerts();
    // The lengths and the values of the attributes, of certificates and of private keys.
    EXPECT_EQ(token->count("C_GetAttributeValue"), 2 * (certificateCount + perClass));
    EXPECT_EQ(token->count("C_FindObjectsInit"), 2u);
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 2u);

    expectClass(package->selfSignedCerts, selfSigned);
    expectClass(package->caCerts, authority);
    expectClass(package->certsWithPrivateKey, withPrivateKey);
    expectClass(package->otherCerts, other);
}

TEST_F(LargeToken, IsReadWholeThoughItGivesOneObjectAtATime) {
    token->objectsPerFind = 1;
    Pkcs11Helper helper(faketoken::modulePath());
    helper.login(pin());
    token->forgetCalls();
    const auto certs = helper.getCertsWithPrivateKey();
    // One more for each search, which tells its end.
    EXPECT_EQ(token->count("C_FindObjects"), certificateCount + 1 + perClass + 1);
    expectClass(*certs, withPrivateKey);
}

} // namespace
