// OpenSSL as a second reader of certificates.
#include "opensslpeer.h"

#include "der.h"
#include "oids.h"

#include <openssl/crypto.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <optional>

namespace testsupport {

namespace {

using Range = buffer::BufferRange<unsigned char>;
using Bytes = std::vector<unsigned char>;

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

X509Ptr parsed(Range der) {
    const unsigned char* position = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(der.size())));
    if (certificate && position != der.end())
        certificate.reset();
    return certificate;
}

template <class T, class Encode>
Bytes encodedBy(Encode encode, T* object) {
    unsigned char* out = nullptr;
    const int size = encode(object, &out);
    if (size < 0)
        return {};
    Bytes bytes(out, out + size);
    OPENSSL_free(out);
    return bytes;
}

Bytes nameBytes(const X509_NAME* name) {
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
    return X509_NAME_get0_der(name, &bytes, &size) == 1 ? Bytes(bytes, bytes + size) : Bytes();
}

Bytes bytesOf(Range range) {
    return Bytes(range.begin(), range.end());
}

Bytes encoded(const asn1::Asn1& value) {
    return bytesOf(asn1::aux::encodeDer(value, false));
}

asn1::RDNSequence withPlainValues(const asn1::RDNSequence& names) {
    const buffer::Buffer<unsigned char> text(std::size_t{0});
    const asn1::OpenType plain(asn1::UTF8String{text});
    asn1::RDNSequence plainNames;
    plainNames.clear();
    for (const asn1::RelativeDistinguishedName& rdn : names) {
        asn1::RelativeDistinguishedName plainRdn;
        plainRdn.clear();
        for (asn1::AttributeTypeAndValue attribute : rdn) {
            attribute.value = plain;
            plainRdn.append(attribute);
        }
        plainNames.append(plainRdn);
    }
    return plainNames;
}

asn1::Certificate withPlainOpenTypes(const asn1::Certificate& certificate) {
    asn1::Signed values = certificate.values();
    asn1::CertificateV3& part = values.toBeSigned;
    for (asn1::AlgorithmIdentifier* algorithm :
         {&values.algorithm, &part.signature, &part.subjectPublicKeyInfo.algorithm})
        algorithm->parameters.reset();
    part.issuer.rdnSequence = withPlainValues(part.issuer.rdnSequence);
    part.subject.rdnSequence = withPlainValues(part.subject.rdnSequence);
    return asn1::Certificate(values);
}

/// How many pieces the string at `position` is in, 1 if it has no segments. Goes to its end.
std::size_t piecesAt(const unsigned char*& position, const unsigned char* end) {
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const int form = ASN1_get_object(&position, &length, &tag, &tagClass, end - position);
    if ((form & V_ASN1_CONSTRUCTED) == 0) {
        position += length;
        return 1;
    }
    const bool isIndefinite = (form & 1) != 0;
    const unsigned char* const contentsEnd = isIndefinite ? end : position + length;
    std::size_t pieces = 0;
    while (position != contentsEnd) {
        if (isIndefinite && position[0] == 0 && position[1] == 0) {
            position += 2;
            break;
        }
        pieces += piecesAt(position, contentsEnd);
    }
    return pieces;
}

/// What OpenSSL encodes of a certificate.
struct Encodings {
    Bytes certificate;
    Bytes publicKey;
    friend bool operator==(const Encodings&, const Encodings&) = default;
};

Encodings encodingsBy(X509* certificate) {
    return {encodedBy(i2d_X509, certificate),
            encodedBy(i2d_X509_PUBKEY, X509_get_X509_PUBKEY(certificate))};
}

Encodings encodingsOf(const asn1::Certificate& certificate) {
    return {encoded(certificate), encoded(certificate.subjectPublicKeyInfo())};
}

/// Whether both encode the certificate to the same bytes. OpenSSL puts the segments of a
/// constructed string together, also in an algorithm's parameters; so it is enough if they do so
/// without those.
bool isEncodedTheSame(const asn1::Certificate& ours, X509* theirs) {
    if (encodingsOf(ours) == encodingsBy(theirs))
        return true;
    const asn1::Certificate plain = withPlainOpenTypes(ours);
    const X509Ptr plainTheirs = parsed(asn1::aux::encodeDer(plain, false));
    return plainTheirs && encodingsOf(plain) == encodingsBy(plainTheirs.get());
}

class Comparison {
public:
    explicit Comparison(const asn1::Certificate& ours)
        : ours_(ours), theirs_(parsed(asn1::aux::encodeDer(ours, false))) {}

    std::vector<std::string> differences() && {
        expect(theirs_ != nullptr, "acceptance");
        if (theirs_) {
            compareFields();
            compareKeyUsage();
            compareConstraints();
        }
        return std::move(differences_);
    }

private:
    void expect(bool same, const char* what) {
        if (!same)
            differences_.emplace_back(what);
    }

    void compareFields() {
        X509* theirs = theirs_.get();
        expect(encoded(ours_.subject()) == nameBytes(X509_get_subject_name(theirs)), "subject");
        expect(encoded(ours_.issuer()) == nameBytes(X509_get_issuer_name(theirs)), "issuer");
        expect(encoded(ours_.serialNumber()) ==
                   encodedBy(i2d_ASN1_INTEGER, X509_get_serialNumber(theirs)),
               "serial number");
        expect(!isLong(ours_.version()) && ours_.version().value() == X509_get_version(theirs),
               "version");
        expect(isEncodedTheSame(ours_, theirs), "encoding");
        expect(ours_.extensions().size() == static_cast<std::size_t>(X509_get_ext_count(theirs)),
               "number of extensions");
    }

    static bool isLong(const asn1::Integer& number) {
        return number.contents().size() > sizeof(std::int64_t);
    }

    /// The first extension of a kind as read here, or none.
    template <class Value>
    std::optional<Value> read(const asn1::ObjectIdentifier& extnId) const {
        Value value;
        try {
            ours_.extensionValue(extnId, value);
        } catch (const asn1::QuorError_Asn1_Decode&) {
            return std::nullopt;
        }
        return value;
    }

    /// The only extension of a kind as OpenSSL reads it, or null.
    template <class Value>
    Value* extension(int nid, const asn1::ObjectIdentifier& extnId, const char* what) {
        constexpr int absent = -1;
        int critical = absent;
        void* value = X509_get_ext_d2i(theirs_.get(), nid, &critical, nullptr);
        expect(ours_.hasExtension(extnId) == (critical != absent), what);
        return static_cast<Value*>(value);
    }

    /// The octets of the first extension of a kind, which is there.
    Bytes octetsOf(const asn1::ObjectIdentifier& extnId) const {
        for (const asn1::Extension& extension : ours_.extensions())
            if (extension.extnId == extnId)
                return bytesOf(extension.extnValue.contents());
        return {};
    }

    bool isEncodedAs(const asn1::ObjectIdentifier& extnId, const Bytes& encoding) const {
        return octetsOf(extnId) == encoding;
    }

    void compareKeyUsage() {
        const asn1::ObjectIdentifier& id = asn1::id_ce_keyUsage;
        const BitsPtr usage(extension<ASN1_BIT_STRING>(NID_key_usage, id, "presence of key usage"));
        if (!usage)
            return;
        const auto ours = read<asn1::KeyUsage>(id);
        if (!ours) {
            expect(!isEncodedAs(id, encodedBy(i2d_ASN1_BIT_STRING, usage.get())), "DER key usage");
            return;
        }
        // OpenSSL takes the counts of unused bits of all segments but the first for bits.
        const Bytes octets = octetsOf(id);
        const unsigned char* position = octets.data();
        const std::size_t pieces = piecesAt(position, position + octets.size());
        if (pieces > 1) {
            expect(static_cast<std::size_t>(usage->length) == ours->octets().size() + pieces - 1,
                   "segments of key usage");
            return;
        }
        for (int bit = 0; bit <= 9; ++bit)
            expect(ours_.checkUsage(static_cast<unsigned>(bit)) ==
                       (ASN1_BIT_STRING_get_bit(usage.get(), bit) == 1),
                   "key usage");
    }

    void compareConstraints() {
        const asn1::ObjectIdentifier& id = asn1::id_ce_basicConstraints;
        const ConstraintsPtr theirs(extension<BASIC_CONSTRAINTS>(NID_basic_constraints, id,
                                                                 "presence of basic constraints"));
        if (!theirs)
            return;
        const auto ours = read<asn1::BasicConstraintsSyntax>(id);
        if (!ours) {
            expect(!isEncodedAs(id, encodedBy(i2d_BASIC_CONSTRAINTS, theirs.get())),
                   "DER basic constraints");
            return;
        }
        expect(ours->isAuthority() == (theirs->ca != 0), "authority");
        const bool isLimited = ours->pathLenConstraint.has_value();
        expect(isLimited == (theirs->pathlen != nullptr), "presence of the path length");
        if (isLimited && theirs->pathlen)
            expect(encoded(*ours->pathLenConstraint) ==
                       encodedBy(i2d_ASN1_INTEGER, theirs->pathlen),
                   "path length");
    }

    const asn1::Certificate& ours_;
    X509Ptr theirs_;
    std::vector<std::string> differences_;
};

} // namespace

std::string versionOfOpenSsl() {
    return OpenSSL_version(OPENSSL_VERSION_STRING);
}

bool isAcceptedByOpenSsl(Range der) {
    return parsed(der) != nullptr;
}

bool isAcceptedByOpenSslButForOpaqueParts(const asn1::Certificate& certificate) {
    const auto isAccepted = [](const asn1::Certificate& candidate) {
        return isAcceptedByOpenSsl(asn1::aux::encodeDer(candidate, false));
    };
    return isAccepted(certificate) || isAccepted(withPlainOpenTypes(certificate));
}

std::vector<std::string> differencesFromOpenSsl(const asn1::Certificate& certificate) {
    return Comparison(certificate).differences();
}

} // namespace testsupport
