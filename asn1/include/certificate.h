// The X.509 certificate (RFC 5280 4.1).
#pragma once

#include "name.h"

namespace asn1 {

/// Version: v1 = 0, v2 = 1, v3 = 2.
using Version = Integer;
using CertificateSerialNumber = Integer;
using UniqueIdentifier = BitString;
/// KeyUsage (RFC 5280 4.2.1.3): bit 0 digitalSignature to bit 8 decipherOnly.
using KeyUsage = BitString;

/// AlgorithmIdentifier (RFC 5280 4.1.1.2).
class CERTSTOREUPDATER_API AlgorithmIdentifier : public Sequence {
public:
    ObjectIdentifier algorithm;         ///< which one
    std::optional<OpenType> parameters; ///< of a type that the algorithm tells

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// Time (RFC 5280 4.1.2.5).
class CERTSTOREUPDATER_API Time : public Choice {
public:
    Time() noexcept = default;
    /// Chooses `utcTime`.
    explicit Time(UTCTime time) : utcTime(std::move(time)) { choose(0); }
    /// Chooses `generalTime`.
    explicit Time(GeneralizedTime time) : generalTime(std::move(time)) { choose(1); }

    UTCTime utcTime;             ///< alternative 0: two-digit years
    GeneralizedTime generalTime; ///< alternative 1: four-digit years

    /// ISO 8601 in UTC with a four-digit year, for example 2026-11-21T00:39:00Z. Two-digit years
    /// from 50 on belong to the 20th century (RFC 5280 4.1.2.5.1).
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "Time"
    TmpBuffer<wchar_t> text() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// Validity (RFC 5280 4.1.2.5).
class CERTSTOREUPDATER_API Validity : public Sequence {
public:
    Time notBefore; ///< the first second of validity
    Time notAfter;  ///< the last second of validity

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// SubjectPublicKeyInfo (RFC 5280 4.1.2.7).
class CERTSTOREUPDATER_API PublicKeyInfo : public Sequence {
public:
    AlgorithmIdentifier algorithm; ///< of the key
    BitString subjectPublicKey;    ///< in the form of that algorithm

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// The value of an extension: octets, or a value of which they are the encoding.
class CERTSTOREUPDATER_API ExtensionValue : public OctetString {
public:
    ExtensionValue() noexcept = default;
    /// Holds octets; shares them.
    explicit ExtensionValue(Buffer<unsigned char> octets) : OctetString(std::move(octets)) {}

    /// Holds a decoded value. Throws what encoding it throws.
    template <class Value>
    static ExtensionValue holding(Value value) {
        return ExtensionValue(std::make_shared<const Value>(std::move(value)));
    }

    /// The decoded value that was set, or null if only octets are held.
    const Asn1* decoded() const noexcept { return decoded_.get(); }

    /// Decodes the value, which may be BER, into `target`.
    /// \throws QuorError_Asn1_Decode, QuorError_Asn1_Encode; QuorError_Asn1_UnsetValue if neither
    ///   octets nor a value were set
    void read(Asn1& target) const;

    /// Octets replace the decoded value.
    void assignContents(Octets contents) override;

private:
    explicit ExtensionValue(std::shared_ptr<const Asn1> decoded);

    std::shared_ptr<const Asn1> decoded_;
};

/// Extension (RFC 5280 4.1.2.9).
class CERTSTOREUPDATER_API Extension : public Sequence {
public:
    ObjectIdentifier extnId;         ///< which extension
    std::optional<Boolean> critical; ///< DEFAULT FALSE
    ExtensionValue extnValue;        ///< its value

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// Extensions (RFC 5280 4.1.2.9).
class CERTSTOREUPDATER_API Extensions : public ListOf<Extension> {
public:
    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// BasicConstraints (RFC 5280 4.2.1.9).
class CERTSTOREUPDATER_API BasicConstraintsSyntax : public Sequence {
public:
    std::optional<Boolean> cA;                ///< DEFAULT FALSE
    std::optional<Integer> pathLenConstraint; ///< how many authorities may follow

    /// The value of `cA`, false if it is absent.
    /// \throws QuorError_Asn1_UnsetValue with "TYPE" = "BOOLEAN" if it is there without a value
    bool isAuthority() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// The part of a certificate that is signed (TBSCertificate, RFC 5280 4.1.2).
class CERTSTOREUPDATER_API CertificateV3 : public Sequence {
public:
    std::optional<Version> version;             ///< [0] EXPLICIT, DEFAULT v1
    CertificateSerialNumber serialNumber;       ///< RFC 5280 4.1.2.2
    AlgorithmIdentifier signature;              ///< RFC 5280 4.1.2.3
    Name issuer;                                ///< RFC 5280 4.1.2.4
    Validity validity;                          ///< RFC 5280 4.1.2.5
    Name subject;                               ///< RFC 5280 4.1.2.6
    PublicKeyInfo subjectPublicKeyInfo;         ///< RFC 5280 4.1.2.7
    std::optional<UniqueIdentifier> issuerUId;  ///< [1] IMPLICIT
    std::optional<UniqueIdentifier> subjectUId; ///< [2] IMPLICIT
    std::optional<Extensions> extensions;       ///< [3] EXPLICIT

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};
/// Earlier versions leave the last members out; which version it is, "version" says.
using CertificateV2 = CertificateV3;
using CertificateV1 = CertificateV3;

/// A certificate's values, apart from each other (RFC 5280 4.1.1).
class CERTSTOREUPDATER_API Signed : public Sequence {
public:
    CertificateV3 toBeSigned;      ///< RFC 5280 4.1.1.1
    AlgorithmIdentifier algorithm; ///< RFC 5280 4.1.1.2
    BitString signature;           ///< RFC 5280 4.1.1.3

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;
};

/// An X.509 certificate. It is held as one shared copy of its DER encoding: copying it is
/// counting a reference, and a member is decoded from it when it is asked for. A certificate is
/// not changed in place: take `values`, change them, make a certificate of them.
///
/// `asn1::der::decode` fills a certificate from bytes. Accessors of a certificate without a value
/// throw QuorError_Asn1_UnsetValue with "TYPE" = "Certificate".
class CERTSTOREUPDATER_API Certificate : public EncodedValue {
public:
    Certificate() noexcept = default;
    /// Encodes `values`. \throws QuorError_Asn1_Encode for a member without a value
    explicit Certificate(const Signed& values);

    Signed values() const;                 ///< all of it, taken apart
    CertificateV3 toBeSigned() const;      ///< RFC 5280 4.1.1.1
    AlgorithmIdentifier algorithm() const; ///< RFC 5280 4.1.1.2
    BitString signature() const;           ///< RFC 5280 4.1.1.3; never verified

    /// v1 = 0, v2 = 1, v3 = 2.
    Version version() const;
    CertificateSerialNumber serialNumber() const; ///< up to 20 octets, often more than 64 bits
    Name issuer() const;                          ///< RFC 5280 4.1.2.4
    Validity validity() const;                    ///< RFC 5280 4.1.2.5
    Name subject() const;                         ///< RFC 5280 4.1.2.6; may be empty
    PublicKeyInfo subjectPublicKeyInfo() const;   ///< RFC 5280 4.1.2.7
    /// Without a value if the certificate has no extensions.
    Extensions extensions() const;

    /// Whether KeyUsage asserts `bit` (RFC 5280 4.2.1.3: 0 digitalSignature, 1 nonRepudiation,
    /// 2 keyEncipherment, 3 dataEncipherment, 4 keyAgreement, 5 keyCertSign, 6 cRLSign,
    /// 7 encipherOnly, 8 decipherOnly). A certificate without KeyUsage may be used for anything.
    /// \throws QuorError_Asn1_Decode if the extension's value is not a BIT STRING
    bool checkUsage(unsigned bit) const;

    bool hasExtension(const ObjectIdentifier& extnId) const; ///< whether there is one of this kind

    /// Decodes the value of the first extension with this identifier into `value`.
    /// \throws QuorError_Asn1_ObjectMissing with "EXTENSION" = the identifier, dotted decimal;
    ///   QuorError_Asn1_Decode if the octets are not a value of that type
    void extensionValue(const ObjectIdentifier& extnId, Asn1& value) const;

    /// Whether this is the certificate of a certification authority. KeyUsage decides if it is
    /// there, BasicConstraints otherwise; a certificate with neither is none.
    /// \throws QuorError_Asn1_Decode if the extension that decides is malformed
    bool isAuthority() const;

    static const Type asn1Type; ///< how it is encoded
    const Type& type() const noexcept override;

private:
    /// The encoding of the part that is signed.
    BufferRange<unsigned char> toBeSignedEncoding() const;
    /// A member of that part, by its position; without a value if it is absent.
    template <class Value>
    Value toBeSignedMember(std::size_t index) const;
    /// The octets of the value of the first extension with this identifier.
    std::optional<BufferRange<unsigned char>> findExtension(const ObjectIdentifier& extnId) const;
};

} // namespace asn1
