// What strict decoding accepts although a stricter reader might not.
#include "acceptedcertificates.h"

#include "asn1support.h"

#include <ostream>

namespace asn1_test {

using namespace testsupport;

namespace {

CertBuilder full() {
    return fullCertificate();
}

Accepted same(const char* what, const CertBuilder& builder, Reason reason) {
    return {what, builder.build(), builder.build(), reason};
}

std::vector<Accepted> constructedBits() {
    const Bytes good = full().build();
    const Bytes someId = objectIdentifier("1.3.6.1.4.1.99999");
    const Bytes oid = objectIdentifier("1.2.840.113549.1.1.11");
    const Bytes time = utcTime("260101000000Z");
    const Bytes later = generalizedTime("20510101000000Z");
    const Bytes attribute = sequence({objectIdentifier("2.5.4.3"), utf8String("Name")});
    const Bytes rdn = set({attribute});
    const auto row = [](const char* what, const CertBuilder& odd, const CertBuilder& usual) {
        return Accepted{what, odd.build(), usual.build(), Reason::constructedBit};
    };
    const auto string = [&](const char* what, const CertBuilder& odd, const CertBuilder& usual) {
        Accepted accepted = row(what, odd, usual);
        accepted.hasConstructedString = true;
        return accepted;
    };
    const auto issuer = [](const Bytes& encoding) { return full().issuer(encoding); };
    const auto algorithm = [](const Bytes& encoding) {
        return full().signatureAlgorithm(encoding);
    };
    const auto extensions = [](const Bytes& list) {
        return full().rawExtensions(explicitly(3, list));
    };
    const Bytes usualExtension = sequence({someId, boolean(true), octetString({1, 2})});
    return {
        {"a primitive certificate", withTag(0x10, good), good, Reason::constructedBit},
        {"a primitive toBeSigned",
         sequence({withTag(0x10, full().toBeSigned()), sequence({oid, null()}), bitString({1})}),
         full().signature(bitString({1})).build(), Reason::constructedBit},
        row("a constructed serial number", full().serialNumber(fromHex("22 01 05")),
            full().serialNumber(5)),
        row("a constructed version", full().version(fromHex("A0 03 22 01 02")), full()),
        row("a primitive algorithm", algorithm(withTag(0x10, sequence({oid, null()}))), full()),
        row("a constructed identifier", algorithm(sequence({withTag(0x26, oid), null()})), full()),
        row("a primitive name", issuer(withTag(0x10, sequence({rdn}))), issuer(sequence({rdn}))),
        row("a primitive RDN", issuer(sequence({withTag(0x11, rdn)})), issuer(sequence({rdn}))),
        row("a primitive attribute", issuer(sequence({set({withTag(0x10, attribute)})})),
            issuer(sequence({rdn}))),
        string("constructed times",
               full().validity(sequence({withTag(0x37, time), withTag(0x38, later)})),
               full().validity(sequence({time, later}))),
        string("a constructed unique id", full().uniqueIds(fromHex("A1 02 00 C1")),
               full().uniqueIds(fromHex("81 02 00 C1"))),
        string("a constructed signature", full().signature(fromHex("23 02 00 5A")),
               full().signature(bitString({0x5A}))),
        string("a signature in segments, which are taken for its octets",
               full().signature(fromHex("23 07 03 02 00 5A 03 01 00")),
               full().signature(fromHex("03 07 03 02 00 5A 03 01 00"))),
        string("an issuerUId with an explicit tag, whose contents are taken for its octets",
               full().uniqueIds(fromHex("A1 04 03 02 00 C0")),
               full().uniqueIds(fromHex("81 04 03 02 00 C0"))),
        row("primitive extensions", extensions(withTag(0x10, sequence({usualExtension}))),
            extensions(sequence({usualExtension}))),
        row("a primitive extension", extensions(sequence({withTag(0x10, usualExtension)})),
            extensions(sequence({usualExtension}))),
        row("a constructed critical",
            extensions(sequence({sequence({someId, fromHex("21 01 FF"), octetString({1, 2})})})),
            extensions(sequence({usualExtension}))),
        string("a constructed extension value",
               extensions(sequence({sequence({someId, boolean(true), fromHex("24 02 01 02")})})),
               extensions(sequence({usualExtension}))),
        string(
            "an extension value in segments, which are taken for its octets",
            extensions(sequence({sequence({someId, boolean(true), fromHex("24 04 04 02 01 02")})})),
            extensions(sequence({sequence({someId, boolean(true), octetString({4, 2, 1, 2})})}))),
    };
}

std::vector<Accepted> names() {
    const Bytes a = attribute("CN", utf8String("A"));
    const Bytes b = attribute("C", printableString("DE"));
    const auto value = [](const char* what, const Bytes& encoding) {
        return same(what, full().subject(nameOf({set({attribute("CN", encoding)})})),
                    Reason::opaqueValue);
    };
    return {
        same("a SET OF in descending order", full().subject(nameOf({set({a, b})})),
             Reason::setOrder),
        same("a SET OF in ascending order", full().subject(nameOf({set({b, a})})),
             Reason::setOrder),
        same("a SET OF with the same item twice", full().subject(nameOf({set({a, a})})),
             Reason::range),
        same("an RDN without attributes", full().subject(nameOf({set({})})), Reason::range),
        same("an issuer without RDNs", full().issuer(nameOf({})), Reason::range),
        value("a UTF8String that is malformed", utf8String("\xC3")),
        value("a PrintableString with an underscore", printableString("a_b")),
        value("a BMPString of three octets", element(0x1E, {0, 0x41, 0})),
        value("a UniversalString of two octets", element(0x1C, {0, 0x41})),
        value("an IA5String beyond ASCII", ia5String("\xE9")),
        value("a NumericString with a letter", element(0x12, fromText("1a"))),
        value("a VisibleString with a control character", element(0x1A, {7})),
        value("a TeletexString that changes its character set", teletexString({0x1B, 0x28, 0x42})),
        value("a UTF8String of an overlong form", utf8String("\xC0\x80")),
        value("a NULL with an octet", element(0x05, {0})),
        value("an INTEGER without octets", element(0x02, {})),
        value("an identifier that does not end", element(0x06, {0x81})),
        value("a BIT STRING with 8 unused bits", element(0x03, {8, 0})),
        value("a UTCTime without seconds", utcTime("2601010000Z")),
        value("an empty string", utf8String("")),
        value("a BOOLEAN that is neither 00 nor FF", element(0x01, {1})),
        value("a string in segments", element(0x2C, utf8String("A"))),
        value("an element with an indefinite length inside", sequence({fromHex("30 80 00 00")})),
        value("octets inside that are no element", element(0x30, {0xFF})),
        value("a tag number of 31", fromHex("1F 1F 01 00")),
        value("a tag number of 31 bits", fromHex("5F 87 FF FF FF 7F 01 00")),
        value("a private constructed tag", fromHex("FF 81 00 00")),
    };
}

std::vector<Accepted> rest() {
    const Bytes oid = objectIdentifier("1.2.840.113549.1.1.11");
    const auto serial = [](const char* what, const char* hex) {
        return same(what, full().serialNumber(fromHex(hex)), Reason::range);
    };
    const auto extensionValue = [](const char* what, const Bytes& value) {
        return same(what, full().extensions({extension("2.5.29.19", value)}), Reason::opaqueValue);
    };
    const auto parameters = [&](const char* what, const Bytes& value) {
        return same(what, full().signatureAlgorithm(sequence({oid, value})), Reason::opaqueValue);
    };
    const Bytes time1 = utcTime("500101000000Z");
    const Bytes time2 = generalizedTime("20260101000000.25Z");
    Bytes twoAlgorithms =
        sequence({full().toBeSigned(), sequence({objectIdentifier("1.2.3")}), bitString({})});
    return {
        {"two different algorithms", twoAlgorithms, twoAlgorithms, Reason::otherAlgorithm},
        same("an algorithm without parameters", full().signatureAlgorithm(sequence({oid})),
             Reason::isDer),
        parameters("parameters that are a NULL with an octet", fromHex("05 01 00")),
        parameters("parameters that are a constructed NULL", fromHex("25 00")),
        parameters("parameters of SEQUENCEs in each other, fifty deep", nested(0x30, 50)),
        same("a version of 4", full().version(explicitly(0, integer(4))), Reason::range),
        same("a version of 512", full().version(explicitly(0, integer(512))), Reason::range),
        same("a negative version", full().version(explicitly(0, integer(-1))), Reason::range),
        same("extensions in version v1", full().version({}), Reason::range),
        same("version v1 without extensions", CertBuilder().version({}), Reason::isDer),
        same("an empty list of extensions", full().extensions({}), Reason::range),
        same("unique identifiers in version v1",
             full().version({}).rawExtensions({}).uniqueIds(fromHex("81 02 00 C1")), Reason::range),
        same("a subjectUId without an issuerUId", full().uniqueIds(fromHex("82 02 00 C1")),
             Reason::isDer),
        same("a unique identifier of no bits", full().uniqueIds(fromHex("81 01 00")),
             Reason::isDer),
        same("a UTCTime of 1950 and a GeneralizedTime of the year 0",
             full().validity(
                 sequence({generalizedTime("00000101000000Z"), utcTime("500101000000Z")})),
             Reason::range),
        same("an extension twice",
             full().extensions({keyUsage({0}), basicConstraints(true), keyUsage({5})}),
             Reason::range),
        serial("a serial number of 0", "02 01 00"),
        serial("a negative serial number", "02 01 80"),
        serial("a negative serial number of two octets", "02 02 80 00"),
        serial("a serial number of 21 octets",
               "02 15 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF"),
        serial("a serial number with a leading zero that it needs", "02 02 00 80"),
        same("a public key of no bits",
             full().publicKey(sequence({sequence({oid}), bitString({})})), Reason::range),
        same("a signature with clean unused bits", full().signature(bitString({0x80}, 7)),
             Reason::isDer),
        extensionValue("an extension with an encoded default", sequence({boolean(false)})),
        extensionValue("an extension of indefinite length", fromHex("30 80 00 00")),
        extensionValue("key usage with zero bits at its end, which named bits do not have",
                       bitString({0x80, 0x00})),
        extensionValue("an extension without octets", {}),
        extensionValue("an extension that is no element", fromHex("FF")),
        same("an expiry before the beginning", full().validity(sequence({time2, time1})),
             Reason::range),
        same("a GeneralizedTime before 2050 with a fraction",
             full().validity(sequence({time2, time2})), Reason::isDer),
        same("29 February of a leap year",
             full().validity(
                 sequence({utcTime("280229235959Z"), generalizedTime("20000229235959Z")})),
             Reason::isDer),
    };
}

} // namespace

void PrintTo(const Accepted& row, std::ostream* out) {
    *out << row.what;
}

const std::vector<ReasonText>& reasons() {
    static const std::vector<ReasonText> texts = {
        {Reason::constructedBit, "Constructed bits",
         "Tags match whatever their constructed bit is, and encoding corrects the bit. Only "
         "explicit tags must have the right bit. A string in segments counts as a string with a "
         "wrong bit: the segments are not joined."},
        {Reason::opaqueValue, "Values that nobody has asked for",
         "The values of names, the parameters of algorithms and the octets of extensions are kept "
         "as they are, and decoded when somebody asks for them. If one is malformed, that "
         "question fails, not the certificate. Only the outermost tag and length must be DER; in "
         "the octets of an extension not even these."},
        {Reason::range, "Ranges and combinations",
         "DER says how a value is encoded, not which values a certificate may have. Some "
         "certificates on tokens break rules of RFC 5280. Whether they are good enough is for "
         "their users to decide."},
        {Reason::setOrder, "Order in a SET OF",
         "X.690 11.6 requires ascending order. Names are signed, compared and looked up as they "
         "are, so their order is kept, as in all parsers."},
        {Reason::otherAlgorithm, "Two algorithms",
         "RFC 5280 4.1.1.2 requires both to be the same. Whoever verifies the signature has to "
         "check that."},
        {Reason::isDer, "Unusual, but DER", "These are correct DER."},
    };
    return texts;
}

std::vector<Accepted> acceptedCertificates() {
    std::vector<Accepted> all;
    for (const auto& rows : {constructedBits(), names(), rest()})
        all.insert(all.end(), rows.begin(), rows.end());
    return all;
}

} // namespace asn1_test
