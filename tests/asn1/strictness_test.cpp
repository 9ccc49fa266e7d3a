// Every rule of DER that a certificate can break: each certificate of the table differs from a
// good one in one element, and is refused because of that.
#include "asn1support.h"

#include <cctype>

namespace asn1_test {
namespace {

using namespace testsupport;

struct Refused {
    const char* what;
    Bytes certificate;
    Thrown error;
};

void PrintTo(const Refused& row, std::ostream* out) {
    *out << row.what;
}

const Bytes sha256WithRsa = sequence({objectIdentifier("1.2.840.113549.1.1.11"), null()});
const Bytes rsaKey = sequence({objectIdentifier("1.2.840.113549.1.1.1"), null()});
const Bytes time2026 = utcTime("260101000000Z");
const Bytes time2036 = utcTime("360101000000Z");
const Bytes commonName = objectIdentifier("2.5.4.3");
const Bytes someId = objectIdentifier("1.3.6.1.4.1.99999");
const Bytes someValue = octetString(fromHex("3000"));

/// A row whose error is at `offset` of the first occurrence of `broken`.
Refused mismatchAt(const char* what, const CertBuilder& builder, const Bytes& broken,
                   std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, certificate, mismatch(offsetOf(broken, certificate) + offset)};
}

/// The same for the position just behind `broken`: something is missing there.
Refused missingBehind(const char* what, const CertBuilder& builder, const Bytes& broken) {
    return mismatchAt(what, builder, broken, broken.size());
}

Refused wrongTagAt(const char* what, const CertBuilder& builder, std::string_view expected,
                   std::string_view found, const Bytes& broken, std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, certificate, wrongTag(expected, found, offsetOf(broken, certificate) + offset)};
}

Refused causeAt(const char* what, const CertBuilder& builder, std::string_view cause,
                const Bytes& broken, std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, certificate, decodeError(cause, offsetOf(broken, certificate) + offset)};
}

constexpr std::string_view indefinite = "UndefinedLengthPresentInDerEncoding";
constexpr std::string_view encodedDefault = "DefaultValuePresentInDEREncoding";
constexpr std::string_view notConstructed = "ExplicitTagWithoutConstructorBit";

/// The length of an element in one octet more than it needs. Elements of at most 127 octets.
Bytes withLongLength(const Bytes& element) {
    Bytes longer = element;
    longer.insert(longer.begin() + 1, 0x81);
    return longer;
}

/// An element of at most 127 octets with an indefinite length.
Bytes withIndefiniteLength(const Bytes& element) {
    Bytes open = element;
    open[1] = 0x80;
    return open + fromHex("0000");
}

Bytes withTag(unsigned char identifier, Bytes element) {
    element[0] = identifier;
    return element;
}

CertBuilder full() {
    return fullCertificate();
}

std::vector<Refused> brokenFrames() {
    const Bytes good = full().build();
    const Bytes toBeSigned = full().toBeSigned();
    const Bytes signature = bitString(Bytes(32, 0x5A));
    const auto frame = [&](std::initializer_list<Bytes> members) { return sequence(members); };
    const Bytes withSurplus = frame({toBeSigned, sha256WithRsa, signature, null()});
    Bytes leadingZeroLength = good;
    leadingZeroLength.insert(leadingZeroLength.begin() + 2, 0x00);
    leadingZeroLength[1] = 0x83;
    const Bytes noAlgorithm = frame({toBeSigned, signature});
    const Bytes noSignature = frame({toBeSigned, sha256WithRsa});
    const Bytes noToBeSigned = frame({sha256WithRsa, signature});
    const std::size_t toBeSignedEnd = 4 + toBeSigned.size();
    return {
        {"a certificate that is a SET", withTag(0x31, good), wrongTag("30", "31", 0)},
        {"a certificate that is an OCTET STRING", octetString(good), wrongTag("30", "04", 0)},
        {"a certificate as text", fromText("-----BEGIN CERTIFICATE-----"), wrongTag("30", "2D", 0)},
        {"a wrong tag before a wrong length", fromHex("31 FF"), wrongTag("30", "31", 0)},
        {"a tag number in several octets", fromHex("3F 81 30 00"), wrongTag("30", "3F", 0)},
        {"a length with a leading zero octet", leadingZeroLength, mismatch(0)},
        {"an indefinite length of the certificate",
         Bytes{0x30, 0x80} + Bytes(good.begin() + 4, good.end()) + fromHex("0000"),
         decodeError(indefinite, 0)},
        {"an element behind the signature", withSurplus, mismatch(withSurplus.size() - 2)},
        {"no toBeSigned", noToBeSigned, wrongTag("02", "06", 4)},
        {"no algorithm", noAlgorithm, wrongTag("30", "03", toBeSignedEnd)},
        {"no signature", noSignature, mismatch(noSignature.size())},
        {"a toBeSigned that is a SET", frame({withTag(0x31, toBeSigned), sha256WithRsa, signature}),
         wrongTag("30", "31", 4)},
        {"an indefinite length of toBeSigned",
         frame(
             {Bytes{0x30, 0x80} + Bytes(toBeSigned.begin() + 4, toBeSigned.end()) + fromHex("0000"),
              sha256WithRsa, signature}),
         decodeError(indefinite, 4)},
        {"an algorithm that is a SET", frame({toBeSigned, withTag(0x31, sha256WithRsa), signature}),
         wrongTag("30", "31", toBeSignedEnd)},
        {"an algorithm without identifier", frame({toBeSigned, sequence({}), signature}),
         mismatch(toBeSignedEnd + 2)},
    };
}

std::vector<Refused> brokenSignatures() {
    const auto refused = [](const char* what, const char* signature) {
        return mismatchAt(what, full().signature(fromHex(signature)),
                          sha256WithRsa + fromHex(signature), sha256WithRsa.size());
    };
    const Bytes octets = octetString(fromHex("5A5B5C"));
    const Bytes longLength = withLongLength(bitString(fromHex("5A5B5C")));
    const Bytes segmented = withIndefiniteLength(withTag(0x23, element(0x03, bitString({0x5A}))));
    return {
        wrongTagAt("a signature that is an OCTET STRING", full().signature(octets), "03", "04",
                   octets),
        refused("a signature without octets", "03 00"),
        refused("a signature with 8 unused bits", "03 02 08 00"),
        refused("a signature with unused bits and no octets", "03 01 01"),
        refused("a signature with an unused bit that is 1", "03 03 01 5A 5B"),
        refused("a signature with 7 unused bits that are 1", "03 02 07 FF"),
        mismatchAt("a signature's length in the long form", full().signature(longLength),
                   longLength),
        causeAt("a signature in segments of indefinite length", full().signature(segmented),
                indefinite, segmented),
        refused("a signature that ends behind the certificate", "03 04 00 5A 5B"),
    };
}

std::vector<Refused> brokenAlgorithms() {
    const Bytes oid = objectIdentifier("1.2.840.113549.1.1.11");
    const auto withParameters = [&](const Bytes& parameters) {
        return full().signatureAlgorithm(sequence({oid, parameters}));
    };
    const auto badParameters = [&](const char* what, const char* parameters) {
        return mismatchAt(what, withParameters(fromHex(parameters)), oid + fromHex(parameters),
                          oid.size());
    };
    const auto badIdentifier = [&](const char* what, const Bytes& identifier) {
        return mismatchAt(what, full().signatureAlgorithm(sequence({identifier, null()})),
                          identifier);
    };
    const Bytes longest = element(0x06, Bytes(4096 + 1, 0x01));
    return {
        badParameters("parameters with a long form of a short length", "05 81 00"),
        badParameters("parameters with tag 0", "00 00"),
        badParameters("parameters with constructed tag 0", "20 00"),
        badParameters("parameters with a small tag number in the form for large ones", "1F 1E 00"),
        badParameters("parameters with a tag number that begins with an empty octet",
                      "1F 80 1F 00"),
        badParameters("parameters with a tag number of more than 31 bits", "1F 88 80 80 80 00 00"),
        badParameters("parameters with a tag number that does not end", "1F FF"),
        badParameters("parameters without length", "05"),
        badParameters("parameters longer than the algorithm", "04 01"),
        badParameters("parameters with the reserved length", "04 FF 00"),
        causeAt("parameters of indefinite length", withParameters(fromHex("30 80 00 00")),
                indefinite, fromHex("30 80 00 00")),
        causeAt("an algorithm of indefinite length",
                full().signatureAlgorithm(withIndefiniteLength(sha256WithRsa)), indefinite,
                withIndefiniteLength(sha256WithRsa)),
        missingBehind("an element behind the parameters",
                      full().signatureAlgorithm(sequence({oid, null(), null()})), oid + null()),
        wrongTagAt("an algorithm whose identifier is a RELATIVE-OID",
                   full().signatureAlgorithm(sequence({withTag(0x0D, oid), null()})), "06", "0D",
                   withTag(0x0D, oid)),
        badIdentifier("an identifier without octets", fromHex("06 00")),
        badIdentifier("an identifier whose first arc begins with an empty octet",
                      fromHex("06 03 80 2A 03")),
        badIdentifier("an identifier whose second arc begins with an empty octet",
                      fromHex("06 04 2A 80 01 03")),
        badIdentifier("an identifier whose last arc does not end", fromHex("06 03 2A 03 81")),
        badIdentifier("an identifier of more than 4096 octets", longest),
        badIdentifier("an identifier's length in the long form", fromHex("06 81 02 2A 03")),
    };
}

std::vector<Refused> brokenVersions() {
    const Bytes serial = integer(0x1234567);
    const auto bad = [](const char* what, const char* version, std::size_t offset) {
        return mismatchAt(what, full().version(fromHex(version)), fromHex(version), offset);
    };
    return {
        causeAt("version v1, which is the default", full().version(explicitly(0, integer(0))),
                encodedDefault, explicitly(0, integer(0))),
        causeAt("a version whose tag has no constructed bit",
                full().version(fromHex("80 03 02 01 02")), notConstructed,
                fromHex("80 03 02 01 02")),
        causeAt("a version with an implicit tag", full().version(fromHex("80 01 02")),
                notConstructed, fromHex("80 01 02")),
        causeAt("a version's tag of indefinite length",
                full().version(fromHex("A0 80 02 01 02 00 00")), indefinite,
                fromHex("A0 80 02 01 02 00 00")),
        bad("an empty version", "A0 00", 2),
        bad("a version of no octets", "A0 02 02 00", 2),
        bad("a version with a leading zero octet", "A0 04 02 02 00 02", 2),
        bad("a version with something behind it", "A0 05 02 01 02 05 00", 5),
        bad("a version with its tag's length in the long form", "A0 81 03 02 01 02", 0),
        wrongTagAt("a version that is a BOOLEAN", full().version(fromHex("A0 03 01 01 FF")), "02",
                   "01", fromHex("A0 03 01 01 FF"), 2),
        wrongTagAt("a version without its tag", full().version(integer(2)), "30", "02", serial),
        wrongTagAt("a second version",
                   full().version(explicitly(0, integer(2)) + explicitly(0, integer(2))), "02",
                   "A0", explicitly(0, integer(2)) + explicitly(0, integer(2)), 5),
        wrongTagAt("a version behind the serial number",
                   full().version({}).serialNumber(serial + explicitly(0, integer(2))), "30", "A0",
                   explicitly(0, integer(2))),
    };
}

std::vector<Refused> brokenSerialNumbers() {
    const auto bad = [](const char* what, const char* serial) {
        return mismatchAt(what, full().serialNumber(fromHex(serial)), fromHex(serial));
    };
    const Bytes version = explicitly(0, integer(2));
    return {
        wrongTagAt("no serial number", full().serialNumber(Bytes()), "02", "30",
                   version + sha256WithRsa, version.size()),
        wrongTagAt("a serial number that is ENUMERATED", full().serialNumber(fromHex("0A 01 77")),
                   "02", "0A", fromHex("0A 01 77")),
        bad("a serial number of no octets", "02 00"),
        bad("a positive serial number with a redundant octet", "02 02 00 7F"),
        bad("a negative serial number with a redundant octet", "02 02 FF 80"),
        bad("zero in two octets", "02 02 00 00"),
        bad("a serial number's length in the long form", "02 81 01 77"),
        bad("a serial number's length in the long form with zeros", "02 82 00 01 77"),
        causeAt("a serial number of indefinite length",
                full().serialNumber(fromHex("02 80 77 00 00")), indefinite,
                fromHex("02 80 77 00 00")),
    };
}

std::vector<Refused> brokenNames() {
    const Bytes value = utf8String("Broken");
    const Bytes attribute = sequence({commonName, value});
    const auto withAttribute = [](const Bytes& broken) {
        return full().issuer(sequence({set({broken})}));
    };
    const Bytes rdn = set({attribute});
    const Bytes surplusAttribute = sequence({commonName, value, null()});
    const Bytes onlyValue = sequence({value});
    const Bytes onlyType = sequence({objectIdentifier("2.5.4.77")});
    const Bytes tooLongValue = sequence({commonName, fromHex("0C 02 41")});
    const Bytes tooLongRdn = sequence({fromHex("31 10") + attribute});
    return {
        wrongTagAt("an issuer that is a SET", full().issuer(withTag(0x31, sequence({rdn}))), "30",
                   "31", withTag(0x31, sequence({rdn}))),
        wrongTagAt("a subject that is a SET", full().subject(withTag(0x31, sequence({rdn}))), "30",
                   "31", withTag(0x31, sequence({rdn}))),
        wrongTagAt("no subject", full().subject({}), "31", "30", rsaKey),
        causeAt("a name of indefinite length", full().issuer(withIndefiniteLength(sequence({rdn}))),
                indefinite, withIndefiniteLength(sequence({rdn}))),
        mismatchAt("a name's length in the long form",
                   full().subject(withLongLength(sequence({rdn}))),
                   withLongLength(sequence({rdn}))),
        wrongTagAt("an RDN that is a SEQUENCE", full().issuer(sequence({withTag(0x30, rdn)})), "31",
                   "30", withTag(0x30, rdn)),
        causeAt("an RDN of indefinite length", full().issuer(sequence({withIndefiniteLength(rdn)})),
                indefinite, withIndefiniteLength(rdn)),
        mismatchAt("an RDN's length in the long form",
                   full().issuer(sequence({withLongLength(rdn)})), withLongLength(rdn)),
        mismatchAt("an RDN longer than its name", full().issuer(tooLongRdn), tooLongRdn, 2),
        wrongTagAt("an attribute that is a SET", withAttribute(withTag(0x31, attribute)), "30",
                   "31", withTag(0x31, attribute)),
        causeAt("an attribute of indefinite length", withAttribute(withIndefiniteLength(attribute)),
                indefinite, withIndefiniteLength(attribute)),
        wrongTagAt("an attribute without type", withAttribute(onlyValue), "06", "0C", onlyValue, 2),
        missingBehind("an attribute without value", withAttribute(onlyType), onlyType),
        missingBehind("an empty attribute", withAttribute(sequence({})),
                      sequence({set({sequence({})})})),
        mismatchAt("an attribute with something behind its value", withAttribute(surplusAttribute),
                   surplusAttribute, surplusAttribute.size() - 2),
        mismatchAt("an attribute's value longer than the attribute", withAttribute(tooLongValue),
                   fromHex("0C 02 41")),
        mismatchAt("a value's length in the long form",
                   withAttribute(sequence({commonName, withLongLength(value)})),
                   withLongLength(value)),
        causeAt("a value of indefinite length",
                withAttribute(sequence({commonName, withIndefiniteLength(withTag(0x2C, value))})),
                indefinite, withIndefiniteLength(withTag(0x2C, value))),
        mismatchAt("a value with tag 0",
                   withAttribute(sequence({commonName, withTag(0x00, value)})),
                   withTag(0x00, value)),
        mismatchAt("an attribute's type that does not end",
                   withAttribute(sequence({fromHex("06 03 55 04 83"), value})),
                   fromHex("06 03 55 04 83")),
    };
}

std::vector<Refused> brokenValidities() {
    const Bytes none = sequence({});
    const Bytes subject = name({{"C", "DE"}, {"O", "Example"}, {"CN", "Subject"}});
    const Bytes one = sequence({utcTime("270101000000Z")});
    const Bytes three = sequence({time2026, time2036, time2036});
    const Bytes printable = printableString("260101000000Z");
    return {
        wrongTagAt("a validity that is a SET",
                   full().validity(withTag(0x31, sequence({time2026, time2036}))), "30", "31",
                   withTag(0x31, sequence({time2026, time2036}))),
        mismatchAt("a validity without times", full().validity(none), none + subject, 2),
        missingBehind("a validity with one time", full().validity(one), one),
        missingBehind("a validity with three times", full().validity(three), time2026 + time2036),
        wrongTagAt("a time that is a PrintableString",
                   full().validity(sequence({printable, time2036})), "17 18", "13", printable),
        causeAt("a validity of indefinite length",
                full().validity(withIndefiniteLength(sequence({time2026, time2036}))), indefinite,
                withIndefiniteLength(sequence({time2026, time2036}))),
        causeAt("a time of indefinite length",
                full().validity(sequence({withIndefiniteLength(time2026), time2036})), indefinite,
                withIndefiniteLength(time2026)),
        mismatchAt("a time's length in the long form",
                   full().validity(sequence({withLongLength(time2026), time2036})),
                   withLongLength(time2026)),
    };
}

std::vector<Refused> brokenTimes() {
    std::vector<Refused> rows;
    const auto add = [&rows](const char* what, const Bytes& time) {
        rows.push_back(mismatchAt(what, full().validity(sequence({time2026, time})), time));
    };
    add("an empty UTCTime", utcTime(""));
    add("a UTCTime without seconds", utcTime("2601010000Z"));
    add("a UTCTime without Z", utcTime("260101000000"));
    add("a UTCTime with a small z", utcTime("260101000000z"));
    add("a UTCTime with an offset", utcTime("260101000000+0000"));
    add("a UTCTime with a fraction", utcTime("260101000000.5Z"));
    add("a UTCTime in a year of four digits", utcTime("20260101000000Z"));
    add("a UTCTime with a blank", utcTime(" 60101000000Z"));
    add("a UTCTime with a letter", utcTime("26010100000aZ"));
    add("a UTCTime with a sign", utcTime("26+101000000Z"));
    add("a UTCTime in month 0", utcTime("260001000000Z"));
    add("a UTCTime in month 13", utcTime("261301000000Z"));
    add("a UTCTime on day 0", utcTime("260100000000Z"));
    add("a UTCTime on 32 January", utcTime("260132000000Z"));
    add("a UTCTime on 31 April", utcTime("260431000000Z"));
    add("a UTCTime on 29 February of no leap year", utcTime("270229000000Z"));
    add("a UTCTime on 30 February of a leap year", utcTime("280230000000Z"));
    add("a UTCTime at hour 24", utcTime("260101240000Z"));
    add("a UTCTime at minute 60", utcTime("260101006000Z"));
    add("a UTCTime at second 60", utcTime("260101000060Z"));
    add("an empty GeneralizedTime", generalizedTime(""));
    add("a GeneralizedTime without seconds", generalizedTime("202601010000Z"));
    add("a GeneralizedTime without Z", generalizedTime("20260101000000"));
    add("a GeneralizedTime with an offset", generalizedTime("20260101000000+0100"));
    add("a GeneralizedTime with an empty fraction", generalizedTime("20260101000000.Z"));
    add("a GeneralizedTime with a fraction that ends in zero",
        generalizedTime("20260101000000.50Z"));
    add("a GeneralizedTime with a fraction of zero", generalizedTime("20260101000000.0Z"));
    add("a GeneralizedTime with a comma", generalizedTime("20260101000000,5Z"));
    add("a GeneralizedTime with a letter in its fraction", generalizedTime("20260101000000.5x5Z"));
    add("a GeneralizedTime on 29 February 1900", generalizedTime("19000229000000Z"));
    add("a GeneralizedTime in month 13", generalizedTime("20261301000000Z"));
    add("a GeneralizedTime with a letter in its century", generalizedTime("2a260101000000Z"));
    add("a GeneralizedTime with a letter in its year", generalizedTime("202a0101000000Z"));
    return rows;
}

std::vector<Refused> brokenKeys() {
    const Bytes key = bitString(fromHex("3000"));
    const Bytes octets = octetString(fromHex("30FE"));
    const Bytes dirty = bitString(fromHex("0103"), 1);
    const Bytes surplusKey = sequence({rsaKey, key, null()});
    const Bytes onlyAlgorithm = sequence({rsaKey});
    return {
        wrongTagAt("a public key that is a SET",
                   full().publicKey(withTag(0x31, sequence({rsaKey, key}))), "30", "31",
                   withTag(0x31, sequence({rsaKey, key}))),
        wrongTagAt("a public key without algorithm", full().publicKey(sequence({key})), "30", "03",
                   sequence({key}), 2),
        missingBehind("a public key that is missing", full().publicKey(onlyAlgorithm),
                      onlyAlgorithm),
        wrongTagAt("a public key in an OCTET STRING", full().publicKey(sequence({rsaKey, octets})),
                   "03", "04", octets),
        causeAt("a public key of indefinite length",
                full().publicKey(withIndefiniteLength(sequence({rsaKey, key}))), indefinite,
                withIndefiniteLength(sequence({rsaKey, key}))),
        mismatchAt("a public key with an unused bit that is 1",
                   full().publicKey(sequence({rsaKey, dirty})), dirty),
        mismatchAt("something behind the public key", full().publicKey(surplusKey), surplusKey,
                   surplusKey.size() - 2),
    };
}

std::vector<Refused> brokenUniqueIds() {
    const Bytes issuerId = fromHex("81 02 00 C1");
    const Bytes subjectId = fromHex("82 02 00 C2");
    const auto with = [](const Bytes& ids) { return full().uniqueIds(ids); };
    return {
        mismatchAt("an empty issuerUId", with(fromHex("81 00") + subjectId),
                   fromHex("81 00") + subjectId),
        mismatchAt("an issuerUId with 8 unused bits", with(fromHex("81 02 08 00")),
                   fromHex("81 02 08 00")),
        mismatchAt("a subjectUId with an unused bit that is 1", with(fromHex("82 02 01 C1")),
                   fromHex("82 02 01 C1")),
        mismatchAt("an issuerUId behind subjectUId", with(subjectId + issuerId), issuerId),
        mismatchAt("a second issuerUId", with(issuerId + fromHex("81 02 00 C3")),
                   fromHex("81 02 00 C3")),
        mismatchAt("a member that no certificate has", with(fromHex("84 02 00 C1")),
                   fromHex("84 02 00 C1")),
        causeAt("an issuerUId of indefinite length", with(fromHex("A1 80 03 02 00 C1 00 00")),
                indefinite, fromHex("A1 80 03 02 00 C1 00 00")),
    };
}

std::vector<Refused> brokenExtensions() {
    const Bytes good = sequence({someId, someValue});
    const Bytes tagged = explicitly(3, sequence({good}));
    const auto raw = [](const Bytes& extensions) { return full().rawExtensions(extensions); };
    const auto with = [](const Bytes& extension) {
        return full().rawExtensions(explicitly(3, sequence({extension})));
    };
    const auto withCritical = [&](const Bytes& critical) {
        return with(sequence({someId, critical, someValue}));
    };
    const auto badCritical = [&](const char* what, const char* critical) {
        return mismatchAt(what, withCritical(fromHex(critical)), fromHex(critical) + someValue);
    };
    const Bytes lateCritical = sequence({someId, someValue, boolean(true)});
    const Bytes onlyId = sequence({someId});
    const Bytes bits = bitString(fromHex("3000"));
    const Bytes badId = fromHex("06 03 2B 06 81");
    const Bytes surplusInTag = explicitly(3, sequence({good}) + null());
    return {
        causeAt("critical FALSE, which is the default", withCritical(boolean(false)),
                encodedDefault, boolean(false) + someValue),
        badCritical("critical neither 00 nor FF", "01 01 01"),
        badCritical("critical of no octets", "01 00"),
        badCritical("critical of two octets", "01 02 FF FF"),
        badCritical("critical with its length in the long form", "01 81 01 FF"),
        wrongTagAt("critical that is an INTEGER", withCritical(integer(255)), "04", "02",
                   integer(255) + someValue),
        wrongTagAt("critical twice", withCritical(boolean(true) + boolean(true)), "04", "01",
                   boolean(true) + someValue),
        mismatchAt("critical behind the value", with(lateCritical), lateCritical,
                   lateCritical.size() - 3),
        causeAt("extensions whose tag has no constructed bit", raw(withTag(0x83, tagged)),
                notConstructed, withTag(0x83, tagged)),
        causeAt("extensions' tag of indefinite length", raw(withIndefiniteLength(tagged)),
                indefinite, withIndefiniteLength(tagged)),
        causeAt("extensions of indefinite length",
                raw(explicitly(3, withIndefiniteLength(sequence({good})))), indefinite,
                withIndefiniteLength(sequence({good}))),
        missingBehind("an empty tag of extensions", raw(fromHex("A3 00")), fromHex("A3 00")),
        wrongTagAt("extensions that are a SET", raw(explicitly(3, withTag(0x31, sequence({good})))),
                   "30", "31", withTag(0x31, sequence({good}))),
        mismatchAt("something behind the extensions within their tag", raw(surplusInTag),
                   surplusInTag, surplusInTag.size() - 2),
        mismatchAt("extensions twice", raw(tagged + tagged), tagged + tagged, tagged.size()),
        mismatchAt("extensions before the unique ids",
                   full().uniqueIds({}).rawExtensions(tagged + fromHex("81 02 00 C1")),
                   fromHex("81 02 00 C1")),
        wrongTagAt("an extension that is a SET", with(withTag(0x31, good)), "30", "31",
                   withTag(0x31, good)),
        causeAt("an extension of indefinite length", with(withIndefiniteLength(good)), indefinite,
                withIndefiniteLength(good)),
        mismatchAt("an extension's length in the long form", with(withLongLength(good)),
                   withLongLength(good)),
        missingBehind("an empty extension", with(sequence({})),
                      explicitly(3, sequence({sequence({})}))),
        wrongTagAt("an extension without identifier", with(sequence({someValue})), "06", "04",
                   sequence({someValue}), 2),
        mismatchAt("an extension's identifier that does not end",
                   with(sequence({badId, someValue})), badId),
        missingBehind("an extension without value", with(onlyId), onlyId),
        wrongTagAt("an extension's value in a BIT STRING", with(sequence({someId, bits})), "04",
                   "03", bits),
        mismatchAt("an extension's value with its length in the long form",
                   with(sequence({someId, withLongLength(someValue)})), withLongLength(someValue)),
        causeAt("an extension's value of indefinite length",
                with(sequence({someId, withIndefiniteLength(withTag(0x24, someValue))})),
                indefinite, withIndefiniteLength(withTag(0x24, someValue))),
        mismatchAt("an extension's value longer than the extension",
                   with(sequence({someId, fromHex("04 03 30 00")})), fromHex("04 03 30 00")),
    };
}

std::vector<Refused> allRows() {
    std::vector<Refused> all;
    for (const auto& rows :
         {brokenFrames(), brokenSignatures(), brokenAlgorithms(), brokenVersions(),
          brokenSerialNumbers(), brokenNames(), brokenValidities(), brokenTimes(), brokenKeys(),
          brokenUniqueIds(), brokenExtensions()})
        all.insert(all.end(), rows.begin(), rows.end());
    return all;
}

class StrictDecoding : public ::testing::TestWithParam<Refused> {};

TEST_P(StrictDecoding, RefusesACertificateWith) {
    asn1::Certificate certificate;
    EXPECT_EQ(thrownBy([&] { decode(GetParam().certificate, certificate); }), GetParam().error);
    EXPECT_FALSE(certificate.hasValue());
}

TEST_P(StrictDecoding, LeavesTheTargetAsItWasGiven) {
    const Bytes earlier = CertBuilder().build();
    auto certificate = decoded<asn1::Certificate>(earlier);
    auto values = decoded<asn1::Signed>(earlier);
    EXPECT_THROW(decode(GetParam().certificate, certificate), asn1::QuorError_Asn1_Decode);
    EXPECT_THROW(decode(GetParam().certificate, values), asn1::QuorError_Asn1_Decode);
    EXPECT_EQ(encoded(certificate), earlier);
    EXPECT_EQ(encoded(values), earlier);
}

TEST_P(StrictDecoding, RefusesTheSameForSeparateValues) {
    asn1::Signed values;
    EXPECT_EQ(thrownBy([&] { decode(GetParam().certificate, values); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Certificates, StrictDecoding, ::testing::ValuesIn(allRows()),
                         [](const ::testing::TestParamInfo<Refused>& row) {
                             std::string name;
                             for (const char* c = row.param.what; *c; ++c)
                                 name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
                             return name;
                         });

TEST(StrictDecodingTable, DiffersFromACertificateThatIsAccepted) {
    const Bytes good = full().build();
    EXPECT_EQ(encoded(decoded<asn1::Certificate>(good)), good);
    for (const Refused& row : allRows())
        EXPECT_NE(row.certificate, good) << row.what;
}

} // namespace
} // namespace asn1_test
