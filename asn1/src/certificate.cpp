// The X.509 certificate.
#include "certificate.h"

#include "der.h"
#include "element.h"
#include "oids.h"
#include "unset.h"
#include "valuereader.h"

#include <algorithm>
#include <string>

namespace asn1 {

namespace {

constexpr wchar_t sourceFile[] = L"asn1\\src\\certificate.cpp";

constexpr unsigned char falseContents[] = {0x00};
constexpr unsigned char v1Contents[] = {0x00};

constexpr unsigned keyCertSign = 5;

} // namespace

// AlgorithmIdentifier ::= SEQUENCE {
//     algorithm OBJECT IDENTIFIER, parameters ANY DEFINED BY algorithm OPTIONAL }
static constexpr Member algorithmIdentifierMembers[] = {
    member<&AlgorithmIdentifier::algorithm>("algorithm"),
    member<&AlgorithmIdentifier::parameters>("parameters"),
};
constinit const Type AlgorithmIdentifier::asn1Type =
    sequence("AlgorithmIdentifier", algorithmIdentifierMembers);
const Type& AlgorithmIdentifier::type() const noexcept {
    return asn1Type;
}

// Time ::= CHOICE { utcTime UTCTime, generalTime GeneralizedTime }
static constexpr Member timeAlternatives[] = {
    member<&Time::utcTime>("utcTime"),
    member<&Time::generalTime>("generalTime"),
};
constinit const Type Time::asn1Type = choice("Time", timeAlternatives);
const Type& Time::type() const noexcept {
    return asn1Type;
}

TmpBuffer<wchar_t> Time::text() const {
    std::string iso;
    if (chosen() == 0) {
        const std::string_view time = utcTime.text();
        iso.append(time[0] >= '5' ? "19" : "20").append(time);
    } else if (chosen() == 1)
        iso = generalTime.text();
    else
        throw unsetValue(sourceFile, asn1Type);
    iso.insert(12, ":").insert(10, ":").insert(8, "T").insert(6, "-").insert(4, "-");
    TmpBuffer<wchar_t> text(iso.size());
    std::copy(iso.begin(), iso.end(), text.data());
    return text;
}

// Validity ::= SEQUENCE { notBefore Time, notAfter Time }
static constexpr Member validityMembers[] = {
    member<&Validity::notBefore>("notBefore"),
    member<&Validity::notAfter>("notAfter"),
};
constinit const Type Validity::asn1Type = sequence("Validity", validityMembers);
const Type& Validity::type() const noexcept {
    return asn1Type;
}

// SubjectPublicKeyInfo ::= SEQUENCE {
//     algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }
static constexpr Member publicKeyInfoMembers[] = {
    member<&PublicKeyInfo::algorithm>("algorithm"),
    member<&PublicKeyInfo::subjectPublicKey>("subjectPublicKey"),
};
constinit const Type PublicKeyInfo::asn1Type =
    sequence("SubjectPublicKeyInfo", publicKeyInfoMembers);
const Type& PublicKeyInfo::type() const noexcept {
    return asn1Type;
}

// Extension ::= SEQUENCE {
//     extnId OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
static constexpr Member extensionMembers[] = {
    member<&Extension::extnId>("extnId"),
    member<&Extension::critical>("critical").withDefault(falseContents),
    member<&Extension::extnValue>("extnValue"),
};
constinit const Type Extension::asn1Type = sequence("Extension", extensionMembers);
const Type& Extension::type() const noexcept {
    return asn1Type;
}

ExtensionValue::ExtensionValue(std::shared_ptr<const Asn1> decoded)
    : OctetString(aux::encodeDer(*decoded, false)), decoded_(std::move(decoded)) {}

void ExtensionValue::read(Asn1& target) const {
    aux::decodeBer(decoded_ ? aux::encodeDer(*decoded_, false) : contentsOrThrow(), target, false);
}

void ExtensionValue::assignContents(Octets contents) {
    OctetString::assignContents(std::move(contents));
    decoded_.reset();
}

// Extensions ::= SEQUENCE OF Extension
constinit const Type Extensions::asn1Type = sequenceOf("Extensions", Extension::asn1Type);
const Type& Extensions::type() const noexcept {
    return asn1Type;
}

// BasicConstraints ::= SEQUENCE {
//     cA BOOLEAN DEFAULT FALSE, pathLenConstraint INTEGER OPTIONAL }
static constexpr Member basicConstraintsMembers[] = {
    member<&BasicConstraintsSyntax::cA>("cA").withDefault(falseContents),
    member<&BasicConstraintsSyntax::pathLenConstraint>("pathLenConstraint"),
};
constinit const Type BasicConstraintsSyntax::asn1Type =
    sequence("BasicConstraintsSyntax", basicConstraintsMembers);
const Type& BasicConstraintsSyntax::type() const noexcept {
    return asn1Type;
}

bool BasicConstraintsSyntax::isAuthority() const {
    return cA && cA->value();
}

// TBSCertificate ::= SEQUENCE {
//     version [0] EXPLICIT INTEGER DEFAULT v1, serialNumber INTEGER,
//     signature AlgorithmIdentifier, issuer Name, validity Validity, subject Name,
//     subjectPublicKeyInfo SubjectPublicKeyInfo,
//     issuerUId [1] IMPLICIT BIT STRING OPTIONAL, subjectUId [2] IMPLICIT BIT STRING OPTIONAL,
//     extensions [3] EXPLICIT Extensions OPTIONAL }
static constexpr Member toBeSignedMembers[] = {
    member<&CertificateV3::version>("version").explicitly(0).withDefault(v1Contents),
    member<&CertificateV3::serialNumber>("serialNumber"),
    member<&CertificateV3::signature>("signature"),
    member<&CertificateV3::issuer>("issuer"),
    member<&CertificateV3::validity>("validity"),
    member<&CertificateV3::subject>("subject"),
    member<&CertificateV3::subjectPublicKeyInfo>("subjectPublicKeyInfo"),
    member<&CertificateV3::issuerUId>("issuerUId").implicitly(1),
    member<&CertificateV3::subjectUId>("subjectUId").implicitly(2),
    member<&CertificateV3::extensions>("extensions").explicitly(3),
};
constinit const Type CertificateV3::asn1Type = sequence("TBSCertificate", toBeSignedMembers);
const Type& CertificateV3::type() const noexcept {
    return asn1Type;
}

// Certificate ::= SEQUENCE {
//     toBeSigned TBSCertificate, algorithm AlgorithmIdentifier, signature BIT STRING }
static constexpr Member signedMembers[] = {
    member<&Signed::toBeSigned>("toBeSigned"),
    member<&Signed::algorithm>("algorithm"),
    member<&Signed::signature>("signature"),
};
constinit const Type Signed::asn1Type = sequence("Signed", signedMembers);
const Type& Signed::type() const noexcept {
    return asn1Type;
}

constinit const Type Certificate::asn1Type{
    "Certificate", TypeClass::kept, tag::none, {}, &Signed::asn1Type};
const Type& Certificate::type() const noexcept {
    return asn1Type;
}

namespace {

using Range = BufferRange<unsigned char>;

Range contentsOf(Range encoding) noexcept {
    return elementAt(encoding.begin(), encoding.end()).contentsRange();
}

} // namespace

Certificate::Certificate(const Signed& values) {
    encoding_ = Octets(aux::encodeDer(values, false));
}

Signed Certificate::values() const {
    if (!hasValue())
        throw unsetValue(sourceFile, asn1Type);
    Signed all;
    readValue(encoding_, encoding(), all);
    return all;
}

CertificateV3 Certificate::toBeSigned() const {
    CertificateV3 part;
    readValue(encoding_, toBeSignedEncoding(), part);
    return part;
}

AlgorithmIdentifier Certificate::algorithm() const {
    return values().algorithm;
}

BitString Certificate::signature() const {
    return values().signature;
}

Range Certificate::toBeSignedEncoding() const {
    if (!hasValue())
        throw unsetValue(sourceFile, asn1Type);
    static_assert(indexOf(signedMembers, "toBeSigned") == 0);
    const Range members = contentsOf(encoding());
    return elementAt(members.begin(), members.end()).range();
}

template <class Value>
Value Certificate::toBeSignedMember(std::size_t index) const {
    Value value;
    if (const auto found = findMember(toBeSignedMembers, contentsOf(toBeSignedEncoding()), index))
        readValue(encoding_, *found, value);
    return value;
}

Version Certificate::version() const {
    const auto version = toBeSignedMember<Version>(indexOf(toBeSignedMembers, "version"));
    return version.hasValue() ? version : Version(0);
}

CertificateSerialNumber Certificate::serialNumber() const {
    return toBeSignedMember<CertificateSerialNumber>(indexOf(toBeSignedMembers, "serialNumber"));
}

Name Certificate::issuer() const {
    return toBeSignedMember<Name>(indexOf(toBeSignedMembers, "issuer"));
}

Validity Certificate::validity() const {
    return toBeSignedMember<Validity>(indexOf(toBeSignedMembers, "validity"));
}

Name Certificate::subject() const {
    return toBeSignedMember<Name>(indexOf(toBeSignedMembers, "subject"));
}

PublicKeyInfo Certificate::subjectPublicKeyInfo() const {
    return toBeSignedMember<PublicKeyInfo>(indexOf(toBeSignedMembers, "subjectPublicKeyInfo"));
}

Extensions Certificate::extensions() const {
    return toBeSignedMember<Extensions>(indexOf(toBeSignedMembers, "extensions"));
}

// Walks over the encodings: an object for every extension would cost more than the question.
std::optional<Range> Certificate::findExtension(const ObjectIdentifier& extnId) const {
    const auto all = findMember(toBeSignedMembers, contentsOf(toBeSignedEncoding()),
                                indexOf(toBeSignedMembers, "extensions"));
    if (!all)
        return std::nullopt;
    const Range wanted = extnId.contents();
    const Range list = contentsOf(*all);
    for (const unsigned char* position = list.begin(); position != list.end();) {
        const Element extension = elementAt(position, list.end());
        const Element identifier = elementAt(extension.contents, extension.contentsEnd);
        if (std::ranges::equal(identifier.contentsRange(), wanted))
            return contentsOf(*findMember(extensionMembers, extension.contentsRange(),
                                          indexOf(extensionMembers, "extnValue")));
        position = extension.end;
    }
    return std::nullopt;
}

bool Certificate::hasExtension(const ObjectIdentifier& extnId) const {
    return findExtension(extnId).has_value();
}

void Certificate::extensionValue(const ObjectIdentifier& extnId, Asn1& value) const {
    const std::optional<Range> octets = findExtension(extnId);
    if (!octets)
        throw korv::makeEvent<QuorError_Asn1_ObjectMissing>(
            sourceFile, {{L"EXTENSION", Buffer<wchar_t>(extnId.text())}});
    aux::decodeBer(*octets, value, false);
}

namespace {

/// \param octets of the extension's value
bool asserts(Range octets, unsigned bit) {
    KeyUsage usage;
    aux::decodeBer(octets, usage, false);
    return usage.bit(bit);
}

} // namespace

bool Certificate::checkUsage(unsigned bit) const {
    const std::optional<Range> usage = findExtension(id_ce_keyUsage);
    return !usage || asserts(*usage, bit);
}

bool Certificate::isAuthority() const {
    if (const std::optional<Range> usage = findExtension(id_ce_keyUsage))
        return asserts(*usage, keyCertSign);
    const std::optional<Range> octets = findExtension(id_ce_basicConstraints);
    if (!octets)
        return false;
    BasicConstraintsSyntax constraints;
    aux::decodeBer(*octets, constraints, false);
    return constraints.isAuthority();
}

} // namespace asn1
