// Strict decoding of certificates, and everything that is asked of one that was accepted.
#include "certificate.h"

#include "buffererror.h"
#include "certbuilder.h"
#include "der.h"
#include "fuzztarget.h"
#include "nametext.h"
#include "oids.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fuzz {

namespace {

using asn1::QuorError_Asn1_Decode;
using asn1::QuorError_Asn1_ObjectMissing;
using asn1::QuorError_Asn1_RangeViolation;
using buffer::BufferError_InvalidEncodingUnit;
using Bytes = std::vector<unsigned char>;

Bytes encoded(const asn1::Asn1& value) {
    const buffer::Buffer<unsigned char> encoding = asn1::aux::encodeDer(value, false);
    return Bytes(encoding.begin(), encoding.end());
}

/// Walks over the encoding of a certificate, knowing its structure but nothing of the decoder, and
/// sets the constructed bit of each tag as DER has it. Open types stay as they are.
class ConstructedBits {
public:
    explicit ConstructedBits(Bytes encoding) : bytes_(std::move(encoding)) {}

    Bytes corrected() && {
        constructed([this] {
            toBeSigned();
            algorithm();
            primitive();
        });
        return std::move(bytes_);
    }

private:
    static constexpr unsigned char constructedBit = 0x20;

    void toBeSigned() {
        constructed([this] {
            if (isNext(0x80))
                constructed([this] { primitive(); });
            primitive();
            algorithm();
            name();
            constructed([this] { primitives(); });
            name();
            constructed([this] {
                algorithm();
                primitive();
            });
            while (isNext(0x81) || isNext(0x82))
                primitive();
            if (isNext(0x83))
                constructed([this] { list([this] { constructed([this] { primitives(); }); }); });
        });
    }

    void algorithm() {
        constructed([this] {
            primitive();
            if (at_ != end_)
                open();
        });
    }

    void name() {
        list([this] {
            list([this] {
                constructed([this] {
                    primitive();
                    open();
                });
            });
        });
    }

    template <class Item>
    void list(Item item) {
        constructed([&] {
            while (at_ != end_)
                item();
        });
    }
    void primitives() {
        while (at_ != end_)
            primitive();
    }

    template <class Members>
    void constructed(Members members) {
        bytes_.at(at_) |= constructedBit;
        const std::size_t outerEnd = end_;
        end_ = enter();
        members();
        require(at_ == end_, "an accepted certificate has something else where it should end");
        end_ = outerEnd;
    }
    void primitive() {
        bytes_.at(at_) &= static_cast<unsigned char>(~constructedBit);
        at_ = enter();
    }
    void open() { at_ = enter(); }

    bool isNext(unsigned char identifier) const {
        return at_ != end_ && (bytes_.at(at_) & ~constructedBit) == identifier;
    }

    /// Goes on to the contents of the element; returns their end.
    std::size_t enter() {
        if ((bytes_.at(at_++) & 0x1F) == 0x1F)
            while ((bytes_.at(at_++) & 0x80) != 0) {
            }
        std::size_t length = bytes_.at(at_++);
        if (length >= 0x80) {
            std::size_t octets = length & 0x7F;
            for (length = 0; octets != 0; --octets)
                length = length << 8 | bytes_.at(at_++);
        }
        require(length <= end_ - at_, "an accepted element is longer than what it lies in");
        return at_ + length;
    }

    Bytes bytes_;
    std::size_t at_ = 0;
    std::size_t end_ = bytes_.size();
};

void checkRefusal(const QuorError_Asn1_Decode& error, std::size_t size) {
    const std::wstring cause = textParam(error, L"CAUSE");
    if (cause == L"NotAllBufferConsumed") {
        require(numberParam(error, L"CONSUMED_BYTES") < size, "nothing was left over");
        require(numberParam(error, L"BUFFER_SIZE") == size, "another size was given");
        return;
    }
    const std::wstring_view causes[] = {L"UndefinedLengthPresentInDerEncoding",
                                        L"DefaultValuePresentInDEREncoding",
                                        L"ExplicitTagWithoutConstructorBit", L"ValueDoesNotMatch"};
    require(std::ranges::find(causes, cause) != std::end(causes), "there is no such cause");
    require(numberParam(error, L"POSITION") <= size, "the position is outside");
}

/// Decodes into a certificate that has a value already, which a refusal must leave alone.
bool isAccepted(Input input, asn1::Certificate& certificate) {
    static const asn1::Certificate other = [] {
        const Bytes der = testsupport::CertBuilder().build();
        asn1::Certificate decoded;
        asn1::der::decode({der.data(), der.size()}, decoded);
        return decoded;
    }();
    certificate = other;
    try {
        asn1::der::decode(input, certificate);
        return true;
    } catch (const QuorError_Asn1_Decode& error) {
        checkRefusal(error, input.size());
        require(certificate.cmp(other, asn1::Amatch::exact) == 0, "a refusal changed the value");
        return false;
    }
}

void checkEncoding(Input input, const asn1::Certificate& certificate) {
    const Bytes encoding = encoded(certificate);
    require(encoding == ConstructedBits(Bytes(input.begin(), input.end())).corrected(),
            "it encodes to other bytes");
    asn1::Certificate again;
    asn1::der::decode({encoding.data(), encoding.size()}, again);
    require(again.cmp(certificate, asn1::Amatch::exact) == 0, "its encoding means something else");
}

void requireSame(const asn1::Asn1& a, const asn1::Asn1& b) {
    require(a.cmp(b, asn1::Amatch::exact) == 0, "an accessor and the values disagree");
}

void checkValues(const asn1::Certificate& certificate) {
    const asn1::Signed values = certificate.values();
    const asn1::CertificateV3& part = values.toBeSigned;
    requireSame(part, certificate.toBeSigned());
    requireSame(values.algorithm, certificate.algorithm());
    requireSame(values.signature, certificate.signature());
    requireSame(part.version.value_or(asn1::Version(0)), certificate.version());
    requireSame(part.serialNumber, certificate.serialNumber());
    requireSame(part.issuer, certificate.issuer());
    requireSame(part.validity, certificate.validity());
    requireSame(part.subject, certificate.subject());
    requireSame(part.subjectPublicKeyInfo, certificate.subjectPublicKeyInfo());
    require(part.extensions.has_value() == certificate.extensions().hasValue(),
            "an accessor and the values disagree about extensions");
    if (part.extensions)
        requireSame(*part.extensions, certificate.extensions());
    require(encoded(asn1::Certificate(values)) == encoded(certificate),
            "its values encode to other bytes");
}

void checkText(const asn1::Name& name) {
    returns<QuorError_Asn1_Decode>(
        [&] { returns<BufferError_InvalidEncodingUnit>([&] { asn1::toText(name.rdnSequence); }); });
}

void readMembers(const asn1::Certificate& certificate) {
    checkText(certificate.subject());
    checkText(certificate.issuer());
    require(certificate.validity().notBefore.text().size() >= 20, "a time is too short");
    require(certificate.validity().notAfter.text().size() >= 20, "a time is too short");
    returns<QuorError_Asn1_RangeViolation>([&] { certificate.serialNumber().value(); });
    returns<QuorError_Asn1_RangeViolation>([&] { certificate.version().value(); });
    require(certificate.signature().unusedBits() < 8, "there are too many unused bits");
    certificate.subjectPublicKeyInfo().algorithm.algorithm.text();
}

template <class Value>
void readExtension(const asn1::Certificate& certificate, const asn1::ObjectIdentifier& extnId) {
    returns<QuorError_Asn1_Decode>([&] {
        Value value;
        certificate.extensionValue(extnId, value);
    });
}

void readExtensions(const asn1::Certificate& certificate) {
    for (const asn1::Extension& extension : certificate.extensions()) {
        require(certificate.hasExtension(extension.extnId), "an extension is not found");
        readExtension<asn1::BasicConstraintsSyntax>(certificate, extension.extnId);
        readExtension<asn1::KeyUsage>(certificate, extension.extnId);
        readExtension<asn1::Certificate>(certificate, extension.extnId);
        readExtension<asn1::OpenType>(certificate, extension.extnId);
    }
    asn1::BasicConstraintsSyntax constraints;
    const bool isThere = returns<QuorError_Asn1_Decode>([&] {
        require(returns<QuorError_Asn1_ObjectMissing>([&] {
                    certificate.extensionValue(asn1::id_ce_basicConstraints, constraints);
                }) == certificate.hasExtension(asn1::id_ce_basicConstraints),
                "presence and value disagree");
    });
    bool isAuthority = false;
    if (returns<QuorError_Asn1_Decode>([&] { isAuthority = certificate.isAuthority(); }) &&
        isThere && !certificate.hasExtension(asn1::id_ce_keyUsage))
        require(isAuthority == constraints.isAuthority(), "the constraints say something else");
    for (const unsigned bit : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 0xFFFFFFFFu})
        returns<QuorError_Asn1_Decode>([&] { certificate.checkUsage(bit); });
}

} // namespace

void certificate(Input input) {
    asn1::Certificate certificate;
    if (!isAccepted(input, certificate))
        return;
    checkEncoding(input, certificate);
    checkValues(certificate);
    readMembers(certificate);
    readExtensions(certificate);
}

} // namespace fuzz
