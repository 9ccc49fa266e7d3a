// Comparison with OpenSSL: what is accepted here it accepts too, and reads the same from it.
#include "acceptedcertificates.h"
#include "asn1support.h"
#include "cacertificates.h"
#include "oids.h"

#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <iterator>
#include <memory>

namespace asn1_test {
namespace {

using namespace testsupport;

template <auto Free>
struct FreeWith {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};
using X509Ptr = std::unique_ptr<X509, FreeWith<X509_free>>;
using BitsPtr = std::unique_ptr<ASN1_BIT_STRING, FreeWith<ASN1_BIT_STRING_free>>;
using ConstraintsPtr = std::unique_ptr<BASIC_CONSTRAINTS, FreeWith<BASIC_CONSTRAINTS_free>>;

/// Null unless all of `der` is a certificate.
X509Ptr parsed(const Bytes& der) {
    const unsigned char* position = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    if (certificate && position != der.data() + der.size())
        certificate.reset();
    return certificate;
}

template <class T, class Encode>
Bytes encodedBy(Encode encode, T* object) {
    unsigned char* out = nullptr;
    const int size = encode(object, &out);
    Bytes bytes(out, out + size);
    OPENSSL_free(out);
    return bytes;
}

Bytes nameBytes(const X509_NAME* name) {
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
    EXPECT_EQ(X509_NAME_get0_der(name, &bytes, &size), 1);
    return Bytes(bytes, bytes + size);
}

void expectSameKeyUsage(const asn1::Certificate& ours, X509* theirs) {
    int critical = 0;
    const BitsPtr usage(
        static_cast<ASN1_BIT_STRING*>(X509_get_ext_d2i(theirs, NID_key_usage, &critical, nullptr)));
    EXPECT_EQ(usage != nullptr, ours.hasExtension(asn1::id_ce_keyUsage));
    for (int bit = 0; bit <= 9; ++bit)
        EXPECT_EQ(ours.checkUsage(static_cast<unsigned>(bit)),
                  !usage || ASN1_BIT_STRING_get_bit(usage.get(), bit) == 1);
}

void expectSameConstraints(const asn1::Certificate& ours, X509* theirs) {
    int critical = 0;
    const ConstraintsPtr constraints(static_cast<BASIC_CONSTRAINTS*>(
        X509_get_ext_d2i(theirs, NID_basic_constraints, &critical, nullptr)));
    ASSERT_EQ(constraints != nullptr, ours.hasExtension(asn1::id_ce_basicConstraints));
    if (!constraints)
        return;
    asn1::BasicConstraintsSyntax read;
    ours.extensionValue(asn1::id_ce_basicConstraints, read);
    EXPECT_EQ(read.isAuthority(), constraints->ca != 0);
    ASSERT_EQ(read.pathLenConstraint.has_value(), constraints->pathlen != nullptr);
    if (constraints->pathlen) {
        EXPECT_EQ(read.pathLenConstraint->value(), ASN1_INTEGER_get(constraints->pathlen));
    }
}

void expectSame(const Bytes& der) {
    const auto ours = decoded<asn1::Certificate>(der);
    const X509Ptr theirs = parsed(der);
    ASSERT_TRUE(theirs);
    EXPECT_EQ(encoded(ours.subject()), nameBytes(X509_get_subject_name(theirs.get())));
    EXPECT_EQ(encoded(ours.issuer()), nameBytes(X509_get_issuer_name(theirs.get())));
    EXPECT_EQ(encoded(ours.serialNumber()),
              encodedBy(i2d_ASN1_INTEGER, X509_get_serialNumber(theirs.get())));
    EXPECT_EQ(ours.version().value(), X509_get_version(theirs.get()));
    EXPECT_EQ(encoded(ours.subjectPublicKeyInfo()),
              encodedBy(i2d_X509_PUBKEY, X509_get_X509_PUBKEY(theirs.get())));
    EXPECT_EQ(encoded(ours), encodedBy(i2d_X509, theirs.get()));
    const int extensions = X509_get_ext_count(theirs.get());
    EXPECT_EQ(ours.extensions().size(), static_cast<std::size_t>(extensions));
    expectSameKeyUsage(ours, theirs.get());
    expectSameConstraints(ours, theirs.get());
}

TEST(OpenSsl, ReadsTheSameFromCaCertificates) {
    for (const auto& [file, der] : caCertificates()) {
        SCOPED_TRACE(file);
        expectSame(der);
    }
}

TEST(OpenSsl, ReadsTheSameFromBuiltCertificates) {
    const std::vector<CertBuilder> builders = {
        CertBuilder(),
        fullCertificate(),
        CertBuilder().version({}),
        fullCertificate().serialNumber(fromHex("02 01 80")),
        fullCertificate().serialNumber(fromHex("02 09 00 FF FF FF FF FF FF FF FF")),
        fullCertificate().subject(name({})),
        fullCertificate().extensions({keyUsage({})}),
        fullCertificate().extensions({keyUsage({8})}),
        fullCertificate().extensions({basicConstraints(std::nullopt, 7)}),
        fullCertificate().extensions({keyUsage({5, 6}), basicConstraints(true, 0)}),
        fullCertificate().subject(nameOf(
            {set({attribute("C", printableString("DE")), attribute("CN", bmpString(u"\u20AC"))})})),
        fullCertificate().signature(bitString({0x80}, 7)),
        fullCertificate().signatureAlgorithm(sequence({objectIdentifier("2.999.1")})),
        fullCertificate().validity(
            sequence({utcTime("500101000000Z"), generalizedTime("99991231235959Z")})),
    };
    for (std::size_t i = 0; i != builders.size(); ++i) {
        SCOPED_TRACE(i);
        expectSame(builders[i].build());
    }
}

/// How both judge a certificate of which one octet was changed.
struct Verdicts {
    std::size_t bothAccept = 0;
    std::size_t bothRefuse = 0;
    struct Change {
        std::size_t offset;
        Bytes certificate;
    };
    std::vector<Change> onlyWeAccept;
};

bool areAccepted(const Bytes& der) {
    asn1::Certificate certificate;
    return thrownBy([&] { decode(der, certificate); }).type == typeid(void);
}

Verdicts compareChangedCertificates(const Bytes& der) {
    Verdicts verdicts;
    for (std::size_t i = 0; i != der.size(); ++i)
        for (const unsigned char change : fromHex("01 02 20 40 80 FF")) {
            Bytes changed = der;
            changed[i] = static_cast<unsigned char>(changed[i] ^ change);
            const bool theyAccept = parsed(changed) != nullptr;
            if (!areAccepted(changed))
                verdicts.bothRefuse += theyAccept ? 0 : 1;
            else if (theyAccept)
                ++verdicts.bothAccept;
            else
                verdicts.onlyWeAccept.push_back({i, changed});
        }
    return verdicts;
}

bool isWithin(const Bytes& part, std::size_t offset, const Bytes& whole) {
    for (auto at = whole.begin();; ++at) {
        at = std::search(at, whole.end(), part.begin(), part.end());
        if (at == whole.end())
            return false;
        const auto begin = static_cast<std::size_t>(at - whole.begin());
        if (offset >= begin && offset < begin + part.size())
            return true;
    }
}

// OpenSSL looks at the constructed bit and into the values of names and of algorithms' parameters;
// here neither is looked at before somebody asks for the value.
TEST(OpenSsl, AcceptsChangedCertificatesThatAreAcceptedHere) {
    const Bytes good = fullCertificate().build();
    const Bytes openTypes[] = {utf8String("DE"), utf8String("Example"), utf8String("Issuer"),
                               utf8String("Subject"), null()};
    const Verdicts verdicts = compareChangedCertificates(good);
    EXPECT_GT(verdicts.bothAccept, 100u);
    EXPECT_GT(verdicts.bothRefuse, 100u);
    for (const Verdicts::Change& change : verdicts.onlyWeAccept) {
        const bool isConstructedBit =
            encoded(decoded<asn1::Certificate>(change.certificate)) != change.certificate;
        const bool isInOpenType =
            std::any_of(std::begin(openTypes), std::end(openTypes),
                        [&](const Bytes& value) { return isWithin(value, change.offset, good); });
        EXPECT_TRUE(isConstructedBit || isInOpenType) << "octet " << change.offset;
    }
}

TEST(OpenSsl, AcceptsWhateverIsAcceptedHereButOddTagsAndOddValues) {
    std::size_t alsoAccepted = 0;
    for (const Accepted& row : acceptedCertificates()) {
        if (parsed(row.certificate))
            ++alsoAccepted;
        else
            EXPECT_TRUE(row.reason == Reason::constructedBit || row.reason == Reason::opaqueValue)
                << row.what;
    }
    EXPECT_GT(alsoAccepted, 20u);
}

} // namespace
} // namespace asn1_test
