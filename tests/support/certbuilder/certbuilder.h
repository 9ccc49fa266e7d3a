// Certificates made to measure, written octet by octet, so that tests can also make those that no
// proper tool writes. Nothing here uses the library.
#pragma once

#include "hex.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes a, const Bytes& b);
Bytes fromText(std::string_view text);

/// One element with a definite length in its shortest form.
Bytes element(unsigned char identifier, const Bytes& contents);
Bytes sequence(std::initializer_list<Bytes> members);
Bytes set(std::initializer_list<Bytes> members);
Bytes integer(std::int64_t value);
Bytes boolean(bool value);
Bytes null();
Bytes octetString(const Bytes& contents);
Bytes bitString(const Bytes& bits, unsigned char unusedBits = 0);
/// A BIT STRING as named bits are written: no zero bits at its end.
Bytes namedBits(std::initializer_list<unsigned> bits);
/// \param dotted for example "2.5.29.15"; arcs fit into 64 bits
Bytes objectIdentifier(std::string_view dotted);
Bytes utf8String(std::string_view text);
Bytes printableString(std::string_view text);
Bytes ia5String(std::string_view text);
Bytes teletexString(const Bytes& octets);
Bytes bmpString(std::u16string_view text);
Bytes universalString(std::u32string_view text);
Bytes utcTime(std::string_view text);
Bytes generalizedTime(std::string_view text);
/// Explicit context-specific tag.
Bytes explicitly(unsigned number, const Bytes& inner);

/// AttributeTypeAndValue.
Bytes attribute(std::string_view type, const Bytes& value);
/// A name with one attribute in each RDN, all of them UTF8String: pairs of a type ("CN", "O", "OU",
/// "C", "L", "ST" or dotted) and a value, such as {"C", "DE"}.
Bytes name(std::initializer_list<std::pair<std::string_view, std::string_view>> attributes);
/// A name of whole RDNs.
Bytes nameOf(std::initializer_list<Bytes> rdns);
/// \param critical left out if it is std::nullopt
Bytes extension(std::string_view extnId, const Bytes& value,
                std::optional<bool> critical = std::nullopt);
Bytes keyUsage(std::initializer_list<unsigned> bits);
/// \param cA, pathLength left out if they are std::nullopt
Bytes basicConstraints(std::optional<bool> cA, std::optional<int> pathLength = std::nullopt);

/// A certificate of version 3, each of whose parts may be replaced by any bytes. Its signature is
/// not a real one.
class CertBuilder {
public:
    CertBuilder();

    CertBuilder& version(const Bytes& taggedVersion);
    CertBuilder& serialNumber(std::int64_t number);
    CertBuilder& serialNumber(const Bytes& encoding);
    CertBuilder& signatureAlgorithm(const Bytes& encoding);
    CertBuilder& issuer(const Bytes& name);
    CertBuilder& subject(const Bytes& name);
    /// Subject and issuer, each with a common name only.
    CertBuilder& names(std::string_view subject, std::string_view issuer);
    CertBuilder& validity(const Bytes& encoding);
    CertBuilder& publicKey(const Bytes& encoding);
    /// issuerUId, subjectUId: whatever stands between public key and extensions.
    CertBuilder& uniqueIds(const Bytes& encodings);
    CertBuilder& extensions(std::initializer_list<Bytes> list);
    CertBuilder& rawExtensions(const Bytes& taggedExtensions);
    CertBuilder& signature(const Bytes& encoding);

    Bytes toBeSigned() const;
    Bytes build() const;

private:
    Bytes version_, serialNumber_, algorithm_, issuer_, validity_, subject_, publicKey_, uniqueIds_,
        extensions_, signature_;
};

} // namespace testsupport
