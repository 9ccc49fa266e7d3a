// What a harvest does with objects that cannot be used: nothing is skipped, the first failure ends
// it and arrives as it was thrown.
#include "asn1error.h"
#include "buffererror.h"
#include "expectcryptokierror.h"
#include "helpertest.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

using asn1::QuorError_Asn1_Decode;
using buffer::BufferError_InvalidEncodingUnit;
using faketoken::Bytes;
using faketoken::certificate;
using faketoken::expectCryptokiError;
using faketoken::modulePath;
using faketoken::paramOf;
using faketoken::privateKey;
using helpertest::leaf;
using helpertest::pinOf;
using pkcs11::certstoreupdater::Pkcs11Helper;

struct Reading {
    const char* name;
    std::function<void(const Pkcs11Helper&)> read;
};

const Reading readings[] = {
    {"getAllCerts", [](const Pkcs11Helper& helper) { helper.getAllCerts(); }},
    {"getCertsWithPrivateKey", [](const Pkcs11Helper& helper) { helper.getCertsWithPrivateKey(); }},
    {"getOtherCerts", [](const Pkcs11Helper& helper) { helper.getOtherCerts(); }},
};

class Malformed : public faketoken::TokenTest, public testing::WithParamInterface<Reading> {
protected:
    void SetUp() override {
        helper_ = std::make_unique<Pkcs11Helper>(modulePath());
        helper_->login(pinOf("1234"));
        token->forgetCalls();
    }
    void TearDown() override {
        EXPECT_EQ(token->activeSearches(), 0u);
        EXPECT_EQ(token->openSessions(), 1u) << "a failed reading leaves the session open";
        helper_.reset();
        TokenTest::TearDown();
    }

    void read() { GetParam().read(*helper_); }

    void expectDecodeError(const wchar_t* cause) {
        try {
            read();
            ADD_FAILURE() << "no QuorError_Asn1_Decode";
        } catch (const QuorError_Asn1_Decode& error) {
            EXPECT_STREQ(error.what(), "QuorError_Asn1_Decode");
            EXPECT_EQ(paramOf(error, L"CAUSE"), cause);
        }
        EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
    }

private:
    std::unique_ptr<Pkcs11Helper> helper_;
};

INSTANTIATE_TEST_SUITE_P(By, Malformed, testing::ValuesIn(readings),
                         [](const auto& reading) { return reading.param.name; });

TEST_P(Malformed, RefusesACertificateThatIsNotDer) {
    objects() = {certificate(leaf(), {1}, "good"), certificate({0xDE, 0xAD}, {2}, "bad")};
    expectDecodeError(L"ValueDoesNotMatch");
}

TEST_P(Malformed, RefusesAnEmptyCertificate) {
    objects() = {certificate({}, {1}, "a")};
    expectDecodeError(L"ValueDoesNotMatch");
}

TEST_P(Malformed, RefusesACertificateThatIsCutShort) {
    Bytes der = leaf();
    der.pop_back();
    objects() = {certificate(der, {1}, "a")};
    expectDecodeError(L"ValueDoesNotMatch");
}

TEST_P(Malformed, RefusesBytesBehindACertificate) {
    Bytes der = leaf();
    der.push_back(0);
    objects() = {certificate(der, {1}, "a")};
    expectDecodeError(L"NotAllBufferConsumed");
}

TEST_P(Malformed, RefusesALabelThatIsNotUtf8) {
    objects() = {certificate(leaf(), {1}, "\xC3")};
    try {
        read();
        ADD_FAILURE() << "no BufferError_InvalidEncodingUnit";
    } catch (const BufferError_InvalidEncodingUnit& error) {
        EXPECT_EQ(paramOf(error, L"CODEC"), L"Utf8Decoder");
        EXPECT_EQ(paramOf(error, L"CAUSE"), L"BadUft8Encoding");
    }
}

TEST_P(Malformed, RefusesALabelWithAByteThatBeginsNoCharacter) {
    objects() = {certificate(leaf(), {1}, "A\xFF")};
    try {
        read();
        ADD_FAILURE() << "no BufferError_InvalidEncodingUnit";
    } catch (const BufferError_InvalidEncodingUnit& error) {
        EXPECT_TRUE(error.params().empty());
    }
}

// The label is decoded before the certificate is.
TEST_P(Malformed, ReportsALabelBeforeACertificate) {
    objects() = {certificate({0xDE, 0xAD}, {1}, "\xFF")};
    EXPECT_THROW(read(), BufferError_InvalidEncodingUnit);
}

TEST_P(Malformed, PassesOnThatACertificateHasNoSuchAttribute) {
    for (const CK_ATTRIBUTE_TYPE type : {CKA_VALUE, CKA_ID, CKA_LABEL}) {
        objects() = {certificate(leaf(), {1}, "a")};
        objects()[0].attributes.erase(type);
        expectCryptokiError(L"18", [&] { read(); });
    }
}

TEST_P(Malformed, PassesOnThatAPrivateKeyHasNoId) {
    objects() = {privateKey({1})};
    objects()[0].attributes.erase(CKA_ID);
    expectCryptokiError(L"18", [&] { read(); });
}

TEST_P(Malformed, RefusesALengthWithoutAValue) {
    for (const CK_ATTRIBUTE_TYPE type : {CKA_VALUE, CKA_ID, CKA_LABEL}) {
        objects() = {certificate(leaf(), {1}, "a")};
        // Nothing at first, so that no room is given; then a length all the same.
        objects()[0].attributes[type].claimedLength = 0;
        token->hook = [&](const faketoken::Call& call) -> std::optional<CK_RV> {
            if (call.function == "C_GetAttributeValue")
                objects()[0].attributes[type].claimedLength =
                    token->count(call.function) % 2 == 0 ? 1u : 0u;
            return std::nullopt;
        };
        token->forgetCalls();
        expectCryptokiError(L"19", [&] { read(); });
    }
    token->hook = nullptr;
}

TEST_P(Malformed, RefusesLengthsThatAreNoLengths) {
    for (const CK_ATTRIBUTE_TYPE type : {CKA_VALUE, CKA_ID, CKA_LABEL})
        for (const CK_ULONG length :
             {CK_ULONG{CK_UNAVAILABLE_INFORMATION}, CK_ULONG{1} << 30, CK_ULONG{0x1000001}}) {
            objects() = {certificate(leaf(), {1}, "a")};
            objects()[0].attributes[type].claimedLength = length;
            expectCryptokiError(L"19", [&] { read(); });
        }
}

TEST_P(Malformed, RefusesALongerSecondRead) {
    for (const CK_ATTRIBUTE_TYPE type : {CKA_VALUE, CKA_ID, CKA_LABEL})
        for (const CK_ULONG length : {CK_ULONG{CK_UNAVAILABLE_INFORMATION}, CK_ULONG{100'000}}) {
            objects() = {certificate(leaf(), {1}, "a")};
            objects()[0].attributes[type].filledLength = length;
            expectCryptokiError(L"19", [&] { read(); });
        }
}

TEST_P(Malformed, PassesOnThatAValueGrewBetweenTheReads) {
    objects() = {certificate(leaf(), {1, 2, 3}, "a")};
    objects()[0].attributes[CKA_ID].claimedLength = 2;
    expectCryptokiError(L"336", [&] { read(); });
}

TEST_P(Malformed, RefusesMoreObjectsThanWereAskedFor) {
    objects() = {certificate(leaf(), {1}, "a")};
    token->claimedFoundCount = 0xFFFF'FFFF;
    expectCryptokiError(L"5", [&] { read(); });
}

class MalformedExtension : public Malformed {};

INSTANTIATE_TEST_SUITE_P(By, MalformedExtension, testing::Values(readings[0], readings[2]),
                         [](const auto& reading) { return reading.param.name; });

Bytes withBadBasicConstraints(const char* subject, const char* issuer) {
    return testsupport::CertBuilder()
        .names(subject, issuer)
        .extensions({testsupport::extension("2.5.29.19", {0x30, 0x05})})
        .build();
}

TEST_P(MalformedExtension, FailsTheQuestionWhetherACertificateIsAnAuthoritys) {
    objects() = {certificate(withBadBasicConstraints("Subject", "Issuer"), {1}, "a")};
    EXPECT_THROW(read(), QuorError_Asn1_Decode);
}

TEST_P(MalformedExtension, DoesNotMatterInASelfSignedCertificate) {
    objects() = {certificate(withBadBasicConstraints("Self", "Self"), {1}, "a")};
    EXPECT_NO_THROW(read());
}

} // namespace
