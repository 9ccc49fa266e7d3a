// Reading a token's certificates and sorting them.
#include "certstoreupdatererror.h"
#include "der.h"
#include "helpertest.h"

#include <gmock/gmock.h>

#include <memory>

namespace {

using faketoken::Bytes;
using faketoken::Call;
using faketoken::certificate;
using faketoken::modulePath;
using faketoken::Object;
using faketoken::privateKey;
using faketoken::TemplateEntry;
using faketoken::Value;
using helpertest::leaf;
using helpertest::namesIn;
using helpertest::pinOf;
using helpertest::textOf;
using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertListPackage;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::Pkcs11Helper;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::CertBuilder;

constexpr unsigned digitalSignature = 0;
constexpr unsigned keyCertSign = 5;

Bytes selfSigned(std::string_view name = "Self") {
    return CertBuilder().names(name, name).build();
}

Bytes withExtensions(std::initializer_list<Bytes> extensions) {
    return CertBuilder().names("Somebody", "Issuer").extensions(extensions).build();
}

Bytes authority() {
    return withExtensions({testsupport::keyUsage({keyCertSign})});
}

class Harvest : public faketoken::TokenTest {
protected:
    void SetUp() override {
        helper_ = std::make_unique<Pkcs11Helper>(modulePath());
        helper_->login(pinOf("1234"));
        token->forgetCalls();
    }
    void TearDown() override {
        closeHelper();
        TokenTest::TearDown();
    }

    Pkcs11Helper& helper() { return *helper_; }
    void closeHelper() { helper_.reset(); }

    // The one certificate of a token, as it is read.
    CertItem readOne(Object object) {
        objects() = {std::move(object)};
        const std::unique_ptr<CertMap> certs = helper().getOtherCerts();
        if (certs->size() == 1)
            return certs->begin()->second;
        ADD_FAILURE() << certs->size() << " certificates";
        return {};
    }

private:
    std::unique_ptr<Pkcs11Helper> helper_;
};

class HarvestOrder : public Harvest {};

std::vector<CK_ATTRIBUTE_TYPE> typesOf(const std::vector<TemplateEntry>& entries) {
    std::vector<CK_ATTRIBUTE_TYPE> types;
    for (const TemplateEntry& entry : entries)
        types.push_back(entry.type);
    return types;
}

void expectEntry(const TemplateEntry& entry, CK_ATTRIBUTE_TYPE type, const Bytes& bytes) {
    EXPECT_EQ(entry.type, type);
    EXPECT_TRUE(entry.hasRoom);
    EXPECT_EQ(entry.length, bytes.size());
    EXPECT_EQ(entry.bytes, bytes);
}

TEST_F(HarvestOrder, SearchesX509CertificatesAndThenPrivateKeysOfTheToken) {
    helper().getAllCerts();
    const std::vector<Call> searches = token->callsOf("C_FindObjectsInit");
    ASSERT_EQ(searches.size(), 2u);

    const std::vector<TemplateEntry>& certificates = searches[0].entries;
    ASSERT_EQ(certificates.size(), 3u);
    expectEntry(certificates[0], CKA_CLASS, Value::number(1).bytes);
    expectEntry(certificates[1], CKA_TOKEN, Bytes{1});
    expectEntry(certificates[2], CKA_CERTIFICATE_TYPE, Value::number(0).bytes);

    const std::vector<TemplateEntry>& keys = searches[1].entries;
    ASSERT_EQ(keys.size(), 2u);
    expectEntry(keys[0], CKA_CLASS, Value::number(3).bytes);
    expectEntry(keys[1], CKA_TOKEN, Bytes{1});
}

#ifdef _WIN32
TEST_F(HarvestOrder, WritesNumbersAsFourBytes) {
    helper().getAllCerts();
    const Call search = token->callsOf("C_FindObjectsInit").at(0);
    EXPECT_EQ(search.entries.at(0).bytes, (Bytes{1, 0, 0, 0}));
    EXPECT_EQ(search.entries.at(2).bytes, (Bytes{0, 0, 0, 0}));
}
#endif

TEST_F(HarvestOrder, ReadsAllCertificatesBeforeTheFirstKeyAndEachObjectTwice) {
    objects() = {privateKey({1}), certificate(leaf(), {1}, "a"), certificate(leaf(), {2}, "b")};
    helper().getAllCerts();
    EXPECT_THAT(token->sequence(),
                ElementsAre("C_FindObjectsInit", "C_FindObjects", "C_GetAttributeValue",
                            "C_GetAttributeValue", "C_GetAttributeValue", "C_GetAttributeValue",
                            "C_FindObjects", "C_FindObjectsFinal", "C_FindObjectsInit",
                            "C_FindObjects", "C_GetAttributeValue", "C_GetAttributeValue",
                            "C_FindObjects", "C_FindObjectsFinal"));
    std::vector<CK_OBJECT_HANDLE> read;
    for (const Call& call : token->callsOf("C_GetAttributeValue"))
        read.push_back(call.object);
    EXPECT_THAT(read, ElementsAre(2u, 2u, 3u, 3u, 1u, 1u));
}

TEST_F(HarvestOrder, AsksForTheLengthsFirstAndThenForValuesOfExactlyThem) {
    const Bytes der = leaf();
    objects() = {certificate(der, {1, 2, 3}, "label"), privateKey({7, 8})};
    helper().getAllCerts();
    const std::vector<Call> reads = token->callsOf("C_GetAttributeValue");
    ASSERT_EQ(reads.size(), 4u);
    for (const std::size_t i : {0u, 1u})
        EXPECT_THAT(typesOf(reads[i].entries), ElementsAre(CKA_VALUE, CKA_ID, CKA_LABEL));
    for (const std::size_t i : {2u, 3u})
        EXPECT_THAT(typesOf(reads[i].entries), ElementsAre(CKA_ID));
    for (const TemplateEntry& entry : reads[0].entries) {
        EXPECT_FALSE(entry.hasRoom);
        EXPECT_EQ(entry.length, 0u);
    }
    EXPECT_EQ(reads[1].entries[0].length, der.size());
    EXPECT_EQ(reads[1].entries[1].length, 3u);
    EXPECT_EQ(reads[1].entries[2].length, 5u);
    EXPECT_EQ(reads[3].entries[0].length, 2u);
}

TEST_F(HarvestOrder, MakesTheSecondReadEvenWhenNothingHasALength) {
    objects() = {privateKey({})};
    helper().getAllCerts();
    EXPECT_EQ(token->count("C_GetAttributeValue"), 2u);
}

TEST_F(HarvestOrder, LeavesTheSessionOpen) {
    helper().getAllCerts();
    helper().getCertsWithPrivateKey();
    helper().getOtherCerts();
    EXPECT_EQ(token->count("C_CloseSession"), 0u);
    EXPECT_EQ(token->activeSearches(), 0u);
}

class HarvestCalls : public Harvest, public testing::WithParamInterface<std::size_t> {};

TEST_P(HarvestCalls, StayWithinTwoReadsAnObjectAndASearchCallForEach64) {
    const std::size_t n = GetParam();
    for (std::size_t i = 0; i != n; ++i)
        objects().push_back(certificate(leaf(), {static_cast<unsigned char>(i)}, "a"));
    EXPECT_EQ(helper().getOtherCerts()->size(), n);
    EXPECT_EQ(token->count("C_GetAttributeValue"), 2 * n);
    const std::size_t searchCalls = token->count("C_FindObjectsInit") +
                                    token->count("C_FindObjects") +
                                    token->count("C_FindObjectsFinal");
    const std::size_t searchCallsForNoKeys = 3;
    EXPECT_LE(searchCalls, 3 + (n + 63) / 64 + searchCallsForNoKeys);
}

INSTANTIATE_TEST_SUITE_P(Of, HarvestCalls, testing::Values(0, 1, 20, 64, 65, 200),
                         testing::PrintToStringParamName());

class HarvestItem : public Harvest {};

TEST_F(HarvestItem, HoldsIdLabelAndCertificate) {
    const Bytes der = leaf("Alice");
    const CertItem item = readOne(certificate(der, {0x01, 0xA2, 0xFF}, "My label"));
    EXPECT_EQ(Bytes(item.id.begin(), item.id.end()), (Bytes{0x01, 0xA2, 0xFF}));
    EXPECT_EQ(textOf(item.label), L"My label");
    const buffer::Buffer<unsigned char> encoded = asn1::aux::encodeDer(item.certificate, false);
    EXPECT_EQ(Bytes(encoded.begin(), encoded.end()), der);
}

TEST_F(HarvestItem, IsFiledUnderTheHexadecimalIdOfItsObject) {
    objects() = {certificate(leaf(), {0x01, 0xA2, 0xFF}, "a")};
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(L"CKAIDHEX:01A2FF"));
}

TEST_F(HarvestItem, OfALongIdIsFiledUnderAllOfIt) {
    objects() = {certificate(leaf(), Bytes(20, 0xBE), "a")};
    std::wstring expected = L"CKAIDHEX:";
    for (int i = 0; i != 20; ++i)
        expected += L"BE";
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(expected));
}

TEST_F(HarvestItem, WithoutAnIdHasNoneAndIsFiledUnderThePrefixAlone) {
    const CertItem item = readOne(certificate(leaf(), {}, "a"));
    EXPECT_TRUE(item.id.isNull());
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(L"CKAIDHEX:"));
}

TEST_F(HarvestItem, WithAnEmptyIdThatIsPresentKeepsItEmpty) {
    Object object = certificate(leaf(), {}, "a");
    object.attributes[CKA_ID].claimedLength = 4;
    const CertItem item = readOne(object);
    EXPECT_FALSE(item.id.isNull());
    EXPECT_TRUE(item.id.empty());
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(L"CKAIDHEX:"));
}

TEST_F(HarvestItem, HasAnEmptyLabelWhenTheTokenGivesNone) {
    const CertItem item = readOne(certificate(leaf(), {1}, ""));
    EXPECT_FALSE(item.label.isNull());
    EXPECT_TRUE(item.label.empty());
}

TEST_F(HarvestItem, HasAnEmptyLabelWhenTheTokenGivesAnEmptyOne) {
    Object object = certificate(leaf(), {1}, "");
    object.attributes[CKA_LABEL].claimedLength = 4;
    const CertItem item = readOne(object);
    EXPECT_FALSE(item.label.isNull());
    EXPECT_TRUE(item.label.empty());
}

TEST_F(HarvestItem, HasItsLabelDecodedFromUtf8) {
    const CertItem item = readOne(certificate(leaf(), {1}, "\xC5\xBBubr \xE2\x82\xAC"));
    EXPECT_EQ(textOf(item.label), L"\u017Bubr \u20AC");
}

TEST_F(HarvestItem, OutlivesTheHelper) {
    const Bytes der = leaf("Alice");
    const CertItem item = readOne(certificate(der, Bytes(20, 7), "a label of many characters"));
    closeHelper();
    EXPECT_EQ(textOf(item.label), L"a label of many characters");
    EXPECT_EQ(item.id.size(), 20u);
    const buffer::Buffer<unsigned char> encoded = asn1::aux::encodeDer(item.certificate, false);
    EXPECT_EQ(Bytes(encoded.begin(), encoded.end()), der);
}

class HarvestClass : public Harvest {};

TEST_F(HarvestClass, OfATokenWithoutCertificatesAreAllEmpty) {
    objects() = {privateKey({1})};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_THAT(all->selfSignedCerts, IsEmpty());
    EXPECT_THAT(all->caCerts, IsEmpty());
    EXPECT_THAT(all->certsWithPrivateKey, IsEmpty());
    EXPECT_THAT(all->otherCerts, IsEmpty());
    EXPECT_THAT(*helper().getCertsWithPrivateKey(), IsEmpty());
    EXPECT_THAT(*helper().getOtherCerts(), IsEmpty());
}

TEST_F(HarvestClass, IsTheFirstThatACertificateBelongsTo) {
    objects() = {certificate(selfSigned(), {1}, "self-signed"),
                 certificate(authority(), {2}, "authority"), certificate(leaf(), {3}, "with a key"),
                 privateKey({3}), certificate(leaf(), {4}, "other")};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_THAT(namesIn(all->selfSignedCerts), ElementsAre(L"CKAIDHEX:01"));
    EXPECT_THAT(namesIn(all->caCerts), ElementsAre(L"CKAIDHEX:02"));
    EXPECT_THAT(namesIn(all->certsWithPrivateKey), ElementsAre(L"CKAIDHEX:03"));
    EXPECT_THAT(namesIn(all->otherCerts), ElementsAre(L"CKAIDHEX:04"));
    EXPECT_EQ(textOf(all->caCerts.begin()->second.label), L"authority");
}

// A certificate in the map of those with a key may be of any class there is.
TEST_F(HarvestClass, DoesNotMatterForTheCertificatesWithAPrivateKey) {
    objects() = {certificate(selfSigned(), {1}, "a"), privateKey({1}),
                 certificate(authority(), {2}, "b"),  privateKey({2}),
                 certificate(leaf(), {3}, "c"),       privateKey({3}),
                 certificate(leaf(), {4}, "d")};
    EXPECT_THAT(namesIn(*helper().getCertsWithPrivateKey()),
                ElementsAre(L"CKAIDHEX:01", L"CKAIDHEX:02", L"CKAIDHEX:03"));
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_THAT(namesIn(all->selfSignedCerts), ElementsAre(L"CKAIDHEX:01"));
    EXPECT_THAT(namesIn(all->caCerts), ElementsAre(L"CKAIDHEX:02"));
    EXPECT_THAT(namesIn(all->certsWithPrivateKey), ElementsAre(L"CKAIDHEX:03"));
}

TEST_F(HarvestClass, OfOthersIsTheSameByItself) {
    objects() = {certificate(selfSigned(), {1}, "a"), certificate(authority(), {2}, "b"),
                 certificate(leaf(), {3}, "c"),       privateKey({3}),
                 certificate(leaf(), {4}, "d"),       certificate(leaf(), {5}, "e")};
    EXPECT_EQ(namesIn(*helper().getOtherCerts()), namesIn(helper().getAllCerts()->otherCerts));
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(L"CKAIDHEX:04", L"CKAIDHEX:05"));
}

TEST_F(HarvestClass, OfASelfSignedAuthorityIsSelfSigned) {
    objects() = {certificate(
        CertBuilder()
            .names("Root", "Root")
            .extensions({testsupport::keyUsage({keyCertSign}), testsupport::basicConstraints(true)})
            .build(),
        {1}, "root")};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_EQ(all->selfSignedCerts.size(), 1u);
    EXPECT_THAT(all->caCerts, IsEmpty());
}

TEST_F(HarvestClass, OfNamesThatOnlyLookAlikeIsNotSelfSigned) {
    const auto nameWith = [](const Bytes& value) {
        return testsupport::nameOf({testsupport::set({testsupport::attribute("2.5.4.3", value)})});
    };
    objects() = {certificate(CertBuilder()
                                 .subject(nameWith(testsupport::printableString("Name")))
                                 .issuer(nameWith(testsupport::utf8String("Name")))
                                 .build(),
                             {1}, "a")};
    EXPECT_THAT(helper().getAllCerts()->selfSignedCerts, IsEmpty());
}

struct AuthorityCase {
    const char* name;
    Bytes certificate;
    bool isAuthority;
};

class HarvestAuthority : public Harvest, public testing::WithParamInterface<AuthorityCase> {};

TEST_P(HarvestAuthority, DecidesBetweenAuthoritiesAndOthers) {
    objects() = {certificate(GetParam().certificate, {1}, "a")};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_EQ(all->caCerts.size(), GetParam().isAuthority ? 1u : 0u);
    EXPECT_EQ(all->otherCerts.size(), GetParam().isAuthority ? 0u : 1u);
    EXPECT_EQ(helper().getOtherCerts()->size(), GetParam().isAuthority ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(
    By, HarvestAuthority,
    testing::Values(AuthorityCase{"KeyCertSign", authority(), true},
                    AuthorityCase{"KeyUsageBeforeBasicConstraints",
                                  withExtensions({testsupport::basicConstraints(true),
                                                  testsupport::keyUsage({digitalSignature})}),
                                  false},
                    AuthorityCase{"KeyCertSignWithoutCa",
                                  withExtensions({testsupport::keyUsage({keyCertSign}),
                                                  testsupport::basicConstraints(std::nullopt)}),
                                  true},
                    AuthorityCase{"BasicConstraintsWithoutKeyUsage",
                                  withExtensions({testsupport::basicConstraints(true)}), true},
                    AuthorityCase{"BasicConstraintsWithoutCa",
                                  withExtensions({testsupport::basicConstraints(std::nullopt)}),
                                  false},
                    AuthorityCase{"NeitherExtension", leaf(), false}),
    [](const auto& tested) { return tested.param.name; });

class HarvestMatch : public Harvest {};

std::vector<std::wstring> labelsIn(const CertMap& certs) {
    std::vector<std::wstring> labels;
    for (const auto& [name, item] : certs)
        labels.push_back(textOf(item.label));
    return labels;
}

TEST_F(HarvestMatch, IsMadeByAllBytesOfTheId) {
    objects() = {certificate(leaf(), {1, 2}, "a"), certificate(leaf(), {1, 2, 3}, "b"),
                 certificate(leaf(), {1, 3}, "c"), privateKey({9}), privateKey({1, 2})};
    EXPECT_THAT(namesIn(*helper().getCertsWithPrivateKey()), ElementsAre(L"CKAIDHEX:0102"));
}

TEST_F(HarvestMatch, IsMadeByTheFrontOfALongIdToo) {
    objects() = {certificate(leaf(), {1, 9, 9, 9, 9, 9, 9, 9, 9}, "a"),
                 certificate(leaf(), {9, 9, 9, 9, 9, 9, 9, 9}, "b"),
                 privateKey({2, 9, 9, 9, 9, 9, 9, 9, 9})};
    EXPECT_THAT(*helper().getCertsWithPrivateKey(), IsEmpty());
    objects().push_back(privateKey({1, 9, 9, 9, 9, 9, 9, 9, 9}));
    EXPECT_THAT(namesIn(*helper().getCertsWithPrivateKey()),
                ElementsAre(L"CKAIDHEX:010909090909090909"));
}

TEST_F(HarvestMatch, IsMadeByTwoAbsentIds) {
    objects() = {certificate(leaf(), {}, "a"), privateKey({})};
    EXPECT_THAT(namesIn(*helper().getCertsWithPrivateKey()), ElementsAre(L"CKAIDHEX:"));
}

TEST_F(HarvestMatch, IsNotMadeByAnAbsentIdAndAnEmptyOne) {
    objects() = {certificate(leaf(), {}, "a"), privateKey({})};
    objects()[0].attributes[CKA_ID].claimedLength = 4;
    EXPECT_THAT(*helper().getCertsWithPrivateKey(), IsEmpty());
    EXPECT_EQ(helper().getOtherCerts()->size(), 1u);

    objects()[0].attributes[CKA_ID].claimedLength.reset();
    objects()[1].attributes[CKA_ID].claimedLength = 4;
    EXPECT_THAT(*helper().getCertsWithPrivateKey(), IsEmpty());
}

TEST_F(HarvestMatch, IsMadeByTwoEmptyIds) {
    objects() = {certificate(leaf(), {}, "a"), privateKey({})};
    for (Object& object : objects())
        object.attributes[CKA_ID].claimedLength = 4;
    EXPECT_EQ(helper().getCertsWithPrivateKey()->size(), 1u);
}

TEST_F(HarvestMatch, KeepsTheFirstOfCertificatesWithOneId) {
    objects() = {certificate(leaf("First"), {1}, "first"),
                 certificate(leaf("Second"), {1}, "second"), privateKey({1})};
    const std::unique_ptr<CertMap> withKey = helper().getCertsWithPrivateKey();
    ASSERT_EQ(withKey->size(), 1u);
    EXPECT_EQ(textOf(withKey->begin()->second.label), L"first");

    objects().pop_back();
    const std::unique_ptr<CertMap> others = helper().getOtherCerts();
    ASSERT_EQ(others->size(), 1u);
    EXPECT_EQ(textOf(others->begin()->second.label), L"first");
    EXPECT_EQ(textOf(helper().getAllCerts()->otherCerts.begin()->second.label), L"first");
}

TEST_F(HarvestMatch, KeepsTheFirstOfCertificatesWithOneIdInEachClass) {
    objects() = {certificate(selfSigned("Self 1"), {1}, "first self-signed"),
                 certificate(selfSigned("Self 2"), {1}, "second self-signed"),
                 certificate(authority(), {2}, "first authority"),
                 certificate(authority(), {2}, "second authority"),
                 certificate(leaf("First"), {3}, "first with a key"),
                 certificate(leaf("Second"), {3}, "second with a key"),
                 privateKey({3})};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_THAT(labelsIn(all->selfSignedCerts), ElementsAre(L"first self-signed"));
    EXPECT_THAT(labelsIn(all->caCerts), ElementsAre(L"first authority"));
    EXPECT_THAT(labelsIn(all->certsWithPrivateKey), ElementsAre(L"first with a key"));
    EXPECT_THAT(all->otherCerts, IsEmpty());
}

TEST_F(HarvestMatch, KeepsCertificatesWithOneIdInDifferentClasses) {
    objects() = {certificate(leaf(), {1}, "leaf"), certificate(authority(), {1}, "authority"),
                 certificate(selfSigned(), {1}, "self-signed")};
    const std::unique_ptr<CertListPackage> all = helper().getAllCerts();
    EXPECT_EQ(all->otherCerts.size(), 1u);
    EXPECT_EQ(all->caCerts.size(), 1u);
    EXPECT_EQ(all->selfSignedCerts.size(), 1u);
}

class HarvestObjects : public Harvest {};

TEST_F(HarvestObjects, AreOnlyX509CertificatesThatTheTokenKeeps) {
    Object attributeCertificate = certificate({1}, {1}, "a");
    attributeCertificate.attributes[CKA_CERTIFICATE_TYPE] = Value::number(CKC_X_509_ATTR_CERT);
    Object sessionCertificate = certificate({1}, {2}, "b");
    sessionCertificate.attributes[CKA_TOKEN] = Value::boolean(false);
    Object publicKey = privateKey({3});
    publicKey.attributes[CKA_CLASS] = Value::number(CKO_PUBLIC_KEY);
    objects() = {attributeCertificate, sessionCertificate, publicKey,
                 certificate(leaf(), {3}, "c")};
    EXPECT_THAT(namesIn(*helper().getOtherCerts()), ElementsAre(L"CKAIDHEX:03"));
}

TEST_F(HarvestObjects, AreReadAnewEachTime) {
    objects() = {certificate(leaf(), {1}, "a")};
    EXPECT_EQ(helper().getOtherCerts()->size(), 1u);
    objects().push_back(certificate(leaf(), {2}, "b"));
    EXPECT_EQ(helper().getOtherCerts()->size(), 2u);
    objects().clear();
    EXPECT_THAT(*helper().getOtherCerts(), IsEmpty());
}

TEST_F(HarvestObjects, ComeInTheOrderOfTheirNamesWhateverThatOfTheToken) {
    objects() = {certificate(leaf(), {0xFF}, "a"), certificate(leaf(), {0x10}, "b"),
                 certificate(leaf(), {0x10, 0x00}, "c"), certificate(leaf(), {0x0A}, "d")};
    EXPECT_THAT(namesIn(*helper().getOtherCerts()),
                ElementsAre(L"CKAIDHEX:0A", L"CKAIDHEX:10", L"CKAIDHEX:1000", L"CKAIDHEX:FF"));
}

} // namespace
