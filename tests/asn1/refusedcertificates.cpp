// Certificates that break a rule of DER, each differing from a good one in one element.
#include "refusedcertificates.h"

#include <ostream>

namespace asn1_test {

using namespace testsupport;

namespace {

const Bytes sha256WithRsa = sequence({objectIdentifier("1.2.840.113549.1.1.11"), null()});
const Bytes rsaKey = sequence({objectIdentifier("1.2.840.113549.1.1.1"), null()});
const Bytes time2026 = utcTime("260101000000Z");
const Bytes time2036 = utcTime("360101000000Z");
const Bytes commonName = objectIdentifier("2.5.4.3");
const Bytes someId = objectIdentifier("1.3.6.1.4.1.99999");
const Bytes someValue = octetString(fromHex("3000"));

/// A row whose error is at `offset` of the first occurrence of `broken`.
Refused mismatchAt(const char* what, Rule rule, const CertBuilder& builder, const Bytes& broken,
                   std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, rule, certificate, mismatch(offsetOf(broken, certificate) + offset)};
}

/// The same for the position just behind `broken`: something is missing there.
Refused missingBehind(const char* what, Rule rule, const CertBuilder& builder,
                      const Bytes& broken) {
    return mismatchAt(what, rule, builder, broken, broken.size());
}

Refused wrongTagAt(const char* what, Rule rule, const CertBuilder& builder,
                   std::string_view expected, std::string_view found, const Bytes& broken,
                   std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, rule, certificate,
            wrongTag(expected, found, offsetOf(broken, certificate) + offset)};
}

Refused causeAt(const char* what, Rule rule, const CertBuilder& builder, std::string_view cause,
                const Bytes& broken, std::size_t offset = 0) {
    const Bytes certificate = builder.build();
    return {what, rule, certificate, decodeError(cause, offsetOf(broken, certificate) + offset)};
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
        {"a certificate that is a SET", Rule::typeTag, withTag(0x31, good),
         wrongTag("30", "31", 0)},
        {"a certificate that is an OCTET STRING", Rule::typeTag, octetString(good),
         wrongTag("30", "04", 0)},
        {"a certificate as text", Rule::typeTag, fromText("-----BEGIN CERTIFICATE-----"),
         wrongTag("30", "2D", 0)},
        {"a wrong tag before a wrong length", Rule::typeTag, fromHex("31 FF"),
         wrongTag("30", "31", 0)},
        {"a tag number in several octets", Rule::typeTag, fromHex("3F 81 30 00"),
         wrongTag("30", "3F", 0)},
        {"a length with a leading zero octet", Rule::shortestLength, leadingZeroLength,
         mismatch(0)},
        {"an indefinite length of the certificate", Rule::definiteLength,
         Bytes{0x30, 0x80} + Bytes(good.begin() + 4, good.end()) + fromHex("0000"),
         decodeError(indefinite, 0)},
        {"an element behind the signature", Rule::members, withSurplus,
         mismatch(withSurplus.size() - 2)},
        {"no toBeSigned", Rule::members, noToBeSigned, wrongTag("02", "06", 4)},
        {"no algorithm", Rule::members, noAlgorithm, wrongTag("30", "03", toBeSignedEnd)},
        {"no signature", Rule::members, noSignature, mismatch(noSignature.size())},
        {"a toBeSigned that is a SET", Rule::typeTag,
         frame({withTag(0x31, toBeSigned), sha256WithRsa, signature}), wrongTag("30", "31", 4)},
        {"an indefinite length of toBeSigned", Rule::definiteLength,
         frame(
             {Bytes{0x30, 0x80} + Bytes(toBeSigned.begin() + 4, toBeSigned.end()) + fromHex("0000"),
              sha256WithRsa, signature}),
         decodeError(indefinite, 4)},
        {"an algorithm that is a SET", Rule::typeTag,
         frame({toBeSigned, withTag(0x31, sha256WithRsa), signature}),
         wrongTag("30", "31", toBeSignedEnd)},
        {"an algorithm without identifier", Rule::members,
         frame({toBeSigned, sequence({}), signature}), mismatch(toBeSignedEnd + 2)},
        {"SEQUENCEs in each other, fifty deep", Rule::typeTag, nested(0x30, 50),
         wrongTag("02", "30", 4)},
        {"no octets", Rule::extent, Bytes(), mismatch(0)},
        {"a certificate without its last octet", Rule::extent, Bytes(good.begin(), good.end() - 1),
         mismatch(0)},
        {"a certificate's length without its last octet", Rule::extent,
         Bytes(good.begin(), good.begin() + 3), mismatch(0)},
        {"a certificate with a zero behind it", Rule::wholeInput, good + fromHex("00"),
         surplus(good.size(), good.size() + 1)},
        {"a certificate with end-of-contents octets behind it", Rule::wholeInput,
         good + fromHex("0000"), surplus(good.size(), good.size() + 2)},
        {"a certificate with another behind it", Rule::wholeInput, good + good,
         surplus(good.size(), 2 * good.size())},
    };
}

std::vector<Refused> brokenSignatures() {
    const auto refused = [](const char* what, Rule rule, const char* signature) {
        return mismatchAt(what, rule, full().signature(fromHex(signature)),
                          sha256WithRsa + fromHex(signature), sha256WithRsa.size());
    };
    const Bytes octets = octetString(fromHex("5A5B5C"));
    const Bytes longLength = withLongLength(bitString(fromHex("5A5B5C")));
    const Bytes applied = withTag(0x43, bitString(fromHex("5A5B5C")));
    const Bytes segmented = withIndefiniteLength(withTag(0x23, element(0x03, bitString({0x5A}))));
    return {
        wrongTagAt("a signature that is an OCTET STRING", Rule::typeTag, full().signature(octets),
                   "03", "04", octets),
        refused("a signature without octets", Rule::unusedBits, "03 00"),
        refused("a signature with 8 unused bits", Rule::unusedBits, "03 02 08 00"),
        refused("a signature with unused bits and no octets", Rule::unusedBits, "03 01 01"),
        refused("a signature with an unused bit that is 1", Rule::clearedBits, "03 03 01 5A 5B"),
        refused("a signature with 7 unused bits that are 1", Rule::clearedBits, "03 02 07 FF"),
        mismatchAt("a signature's length in the long form", Rule::shortestLength,
                   full().signature(longLength), longLength),
        causeAt("a signature in segments of indefinite length", Rule::definiteLength,
                full().signature(segmented), indefinite, segmented),
        wrongTagAt("a signature with a tag of the application class", Rule::typeTag,
                   full().signature(applied), "03", "43", applied),
        refused("a signature that ends behind the certificate", Rule::extent, "03 04 00 5A 5B"),
    };
}

std::vector<Refused> brokenAlgorithms() {
    const Bytes oid = objectIdentifier("1.2.840.113549.1.1.11");
    const auto withParameters = [&](const Bytes& parameters) {
        return full().signatureAlgorithm(sequence({oid, parameters}));
    };
    const auto badParameters = [&](const char* what, Rule rule, const char* parameters) {
        return mismatchAt(what, rule, withParameters(fromHex(parameters)),
                          oid + fromHex(parameters), oid.size());
    };
    const auto badIdentifier = [&](const char* what, Rule rule, const Bytes& identifier) {
        return mismatchAt(what, rule, full().signatureAlgorithm(sequence({identifier, null()})),
                          identifier);
    };
    const Bytes longest = element(0x06, Bytes(4096 + 1, 0x01));
    return {
        badParameters("parameters with a long form of a short length", Rule::shortestLength,
                      "05 81 00"),
        badParameters("parameters with tag 0", Rule::endOfContentsTag, "00 00"),
        badParameters("parameters with constructed tag 0", Rule::endOfContentsTag, "20 00"),
        badParameters("parameters with a small tag number in the form for large ones",
                      Rule::tagNumber, "1F 1E 00"),
        badParameters("parameters with a tag number that begins with an empty octet",
                      Rule::tagNumber, "1F 80 1F 00"),
        badParameters("parameters with a tag number of more than 31 bits", Rule::tagNumber,
                      "1F 88 80 80 80 00 00"),
        badParameters("parameters with a tag number that does not end", Rule::tagNumber, "1F FF"),
        badParameters("parameters without length", Rule::extent, "05"),
        badParameters("parameters longer than the algorithm", Rule::extent, "04 01"),
        badParameters("parameters with the reserved length", Rule::reservedLength, "04 FF 00"),
        causeAt("parameters of indefinite length", Rule::definiteLength,
                withParameters(fromHex("30 80 00 00")), indefinite, fromHex("30 80 00 00")),
        causeAt("an algorithm of indefinite length", Rule::definiteLength,
                full().signatureAlgorithm(withIndefiniteLength(sha256WithRsa)), indefinite,
                withIndefiniteLength(sha256WithRsa)),
        missingBehind("an element behind the parameters", Rule::members,
                      full().signatureAlgorithm(sequence({oid, null(), null()})), oid + null()),
        wrongTagAt("an algorithm whose identifier is a RELATIVE-OID", Rule::typeTag,
                   full().signatureAlgorithm(sequence({withTag(0x0D, oid), null()})), "06", "0D",
                   withTag(0x0D, oid)),
        badIdentifier("an identifier without octets", Rule::arcs, fromHex("06 00")),
        badIdentifier("an identifier whose first arc begins with an empty octet", Rule::arcs,
                      fromHex("06 03 80 2A 03")),
        badIdentifier("an identifier whose second arc begins with an empty octet", Rule::arcs,
                      fromHex("06 04 2A 80 01 03")),
        badIdentifier("an identifier whose last arc does not end", Rule::arcs,
                      fromHex("06 03 2A 03 81")),
        badIdentifier("an identifier that is one empty octet", Rule::arcs, fromHex("06 01 80")),
        causeAt("an identifier of indefinite length", Rule::definiteLength,
                full().signatureAlgorithm(sequence({withIndefiniteLength(oid)})), indefinite,
                withIndefiniteLength(oid)),
        badIdentifier("an identifier of more than 4096 octets", Rule::identifierBound, longest),
        badIdentifier("an identifier's length in the long form", Rule::shortestLength,
                      fromHex("06 81 02 2A 03")),
    };
}

std::vector<Refused> brokenVersions() {
    const Bytes serial = integer(0x1234567);
    const auto bad = [](const char* what, Rule rule, const char* version, std::size_t offset) {
        return mismatchAt(what, rule, full().version(fromHex(version)), fromHex(version), offset);
    };
    return {
        causeAt("version v1, which is the default", Rule::omittedDefault,
                full().version(explicitly(0, integer(0))), encodedDefault,
                explicitly(0, integer(0))),
        causeAt("a version whose tag has no constructed bit", Rule::constructedExplicitTag,
                full().version(fromHex("80 03 02 01 02")), notConstructed,
                fromHex("80 03 02 01 02")),
        causeAt("a version with an implicit tag", Rule::constructedExplicitTag,
                full().version(fromHex("80 01 02")), notConstructed, fromHex("80 01 02")),
        causeAt("a version's tag of indefinite length", Rule::definiteLength,
                full().version(fromHex("A0 80 02 01 02 00 00")), indefinite,
                fromHex("A0 80 02 01 02 00 00")),
        bad("an empty version", Rule::members, "A0 00", 2),
        bad("a version of no octets", Rule::integerOctets, "A0 02 02 00", 2),
        bad("a version with a leading zero octet", Rule::shortestInteger, "A0 04 02 02 00 02", 2),
        bad("a version with something behind it", Rule::members, "A0 05 02 01 02 05 00", 5),
        bad("a version with its tag's length in the long form", Rule::shortestLength,
            "A0 81 03 02 01 02", 0),
        bad("a negative version with a redundant octet", Rule::shortestInteger, "A0 04 02 02 FF FE",
            2),
        bad("a version longer than its tag", Rule::extent, "A0 03 02 02 02", 2),
        causeAt("a version of indefinite length within its tag", Rule::definiteLength,
                full().version(fromHex("A0 05 02 80 02 00 00")), indefinite,
                fromHex("02 80 02 00 00")),
        wrongTagAt("a version that is a BOOLEAN", Rule::typeTag,
                   full().version(fromHex("A0 03 01 01 FF")), "02", "01", fromHex("A0 03 01 01 FF"),
                   2),
        wrongTagAt("a version without its tag", Rule::members, full().version(integer(2)), "30",
                   "02", serial),
        wrongTagAt("a second version", Rule::members,
                   full().version(explicitly(0, integer(2)) + explicitly(0, integer(2))), "02",
                   "A0", explicitly(0, integer(2)) + explicitly(0, integer(2)), 5),
        wrongTagAt("a version behind the serial number", Rule::members,
                   full().version({}).serialNumber(serial + explicitly(0, integer(2))), "30", "A0",
                   explicitly(0, integer(2))),
    };
}

std::vector<Refused> brokenSerialNumbers() {
    const auto bad = [](const char* what, Rule rule, const char* serial) {
        return mismatchAt(what, rule, full().serialNumber(fromHex(serial)), fromHex(serial));
    };
    const Bytes version = explicitly(0, integer(2));
    return {
        wrongTagAt("no serial number", Rule::members, full().serialNumber(Bytes()), "02", "30",
                   version + sha256WithRsa, version.size()),
        wrongTagAt("a serial number that is ENUMERATED", Rule::typeTag,
                   full().serialNumber(fromHex("0A 01 77")), "02", "0A", fromHex("0A 01 77")),
        wrongTagAt("a serial number with a context-specific tag", Rule::typeTag,
                   full().serialNumber(fromHex("82 01 77")), "02", "82", fromHex("82 01 77")),
        wrongTagAt("a serial number twice", Rule::members,
                   full().serialNumber(integer(5) + integer(6)), "30", "02",
                   integer(5) + integer(6), 3),
        bad("a serial number of no octets", Rule::integerOctets, "02 00"),
        bad("a positive serial number with a redundant octet", Rule::shortestInteger,
            "02 02 00 7F"),
        bad("a negative serial number with a redundant octet", Rule::shortestInteger,
            "02 02 FF 80"),
        bad("zero in two octets", Rule::shortestInteger, "02 02 00 00"),
        bad("a serial number's length in the long form", Rule::shortestLength, "02 81 01 77"),
        bad("a serial number's length in the long form with zeros", Rule::shortestLength,
            "02 82 00 01 77"),
        causeAt("a serial number of indefinite length", Rule::definiteLength,
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
        wrongTagAt("an issuer that is a SET", Rule::typeTag,
                   full().issuer(withTag(0x31, sequence({rdn}))), "30", "31",
                   withTag(0x31, sequence({rdn}))),
        wrongTagAt("a subject that is a SET", Rule::typeTag,
                   full().subject(withTag(0x31, sequence({rdn}))), "30", "31",
                   withTag(0x31, sequence({rdn}))),
        wrongTagAt("no subject", Rule::members, full().subject({}), "31", "30", rsaKey),
        causeAt("a name of indefinite length", Rule::definiteLength,
                full().issuer(withIndefiniteLength(sequence({rdn}))), indefinite,
                withIndefiniteLength(sequence({rdn}))),
        mismatchAt("a name's length in the long form", Rule::shortestLength,
                   full().subject(withLongLength(sequence({rdn}))),
                   withLongLength(sequence({rdn}))),
        wrongTagAt("an RDN that is a SEQUENCE", Rule::typeTag,
                   full().issuer(sequence({withTag(0x30, rdn)})), "31", "30", withTag(0x30, rdn)),
        causeAt("an RDN of indefinite length", Rule::definiteLength,
                full().issuer(sequence({withIndefiniteLength(rdn)})), indefinite,
                withIndefiniteLength(rdn)),
        mismatchAt("an RDN's length in the long form", Rule::shortestLength,
                   full().issuer(sequence({withLongLength(rdn)})), withLongLength(rdn)),
        mismatchAt("an RDN longer than its name", Rule::extent, full().issuer(tooLongRdn),
                   tooLongRdn, 2),
        wrongTagAt("an attribute that is a SET", Rule::typeTag,
                   withAttribute(withTag(0x31, attribute)), "30", "31", withTag(0x31, attribute)),
        causeAt("an attribute of indefinite length", Rule::definiteLength,
                withAttribute(withIndefiniteLength(attribute)), indefinite,
                withIndefiniteLength(attribute)),
        wrongTagAt("an attribute without type", Rule::members, withAttribute(onlyValue), "06", "0C",
                   onlyValue, 2),
        missingBehind("an attribute without value", Rule::members, withAttribute(onlyType),
                      onlyType),
        missingBehind("an empty attribute", Rule::members, withAttribute(sequence({})),
                      sequence({set({sequence({})})})),
        mismatchAt("an attribute with something behind its value", Rule::members,
                   withAttribute(surplusAttribute), surplusAttribute, surplusAttribute.size() - 2),
        mismatchAt("an attribute's value longer than the attribute", Rule::extent,
                   withAttribute(tooLongValue), fromHex("0C 02 41")),
        mismatchAt("a value's length in the long form", Rule::shortestLength,
                   withAttribute(sequence({commonName, withLongLength(value)})),
                   withLongLength(value)),
        causeAt("a value of indefinite length", Rule::definiteLength,
                withAttribute(sequence({commonName, withIndefiniteLength(withTag(0x2C, value))})),
                indefinite, withIndefiniteLength(withTag(0x2C, value))),
        mismatchAt("a value with tag 0", Rule::endOfContentsTag,
                   withAttribute(sequence({commonName, withTag(0x00, value)})),
                   withTag(0x00, value)),
        wrongTagAt("an attribute with its value before its type", Rule::members,
                   withAttribute(sequence({value, commonName})), "06", "0C", value + commonName),
        wrongTagAt("an attribute that is a string", Rule::typeTag, withAttribute(value), "30", "0C",
                   value),
        mismatchAt("an attribute's length in the long form", Rule::shortestLength,
                   withAttribute(withLongLength(attribute)), withLongLength(attribute)),
        mismatchAt("an attribute's type without octets", Rule::arcs,
                   withAttribute(sequence({fromHex("06 00"), value})), fromHex("06 00") + value),
        mismatchAt("an attribute's type with an arc that begins with an empty octet", Rule::arcs,
                   withAttribute(sequence({fromHex("06 04 55 04 80 03"), value})),
                   fromHex("06 04 55 04 80 03")),
        mismatchAt("a value without length", Rule::extent,
                   withAttribute(sequence({commonName, fromHex("0C")})), commonName + fromHex("0C"),
                   commonName.size()),
        mismatchAt("an attribute's type that does not end", Rule::arcs,
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
    const Bytes generalized = generalizedTime("20260101000000Z");
    return {
        wrongTagAt("a validity that is a SET", Rule::typeTag,
                   full().validity(withTag(0x31, sequence({time2026, time2036}))), "30", "31",
                   withTag(0x31, sequence({time2026, time2036}))),
        mismatchAt("a validity without times", Rule::members, full().validity(none), none + subject,
                   2),
        missingBehind("a validity with one time", Rule::members, full().validity(one), one),
        missingBehind("a validity with three times", Rule::members, full().validity(three),
                      time2026 + time2036),
        wrongTagAt("a time that is a PrintableString", Rule::typeTag,
                   full().validity(sequence({printable, time2036})), "17 18", "13", printable),
        mismatchAt("a UTCTime with the tag of a GeneralizedTime", Rule::generalizedTimeForm,
                   full().validity(sequence({withTag(0x18, time2026), time2036})),
                   withTag(0x18, time2026)),
        mismatchAt("a GeneralizedTime with the tag of a UTCTime", Rule::utcTimeForm,
                   full().validity(sequence({withTag(0x17, generalized), time2036})),
                   withTag(0x17, generalized)),
        mismatchAt("a validity's length in the long form", Rule::shortestLength,
                   full().validity(withLongLength(sequence({time2026, time2036}))),
                   withLongLength(sequence({time2026, time2036}))),
        causeAt("a validity of indefinite length", Rule::definiteLength,
                full().validity(withIndefiniteLength(sequence({time2026, time2036}))), indefinite,
                withIndefiniteLength(sequence({time2026, time2036}))),
        causeAt("a time of indefinite length", Rule::definiteLength,
                full().validity(sequence({withIndefiniteLength(time2026), time2036})), indefinite,
                withIndefiniteLength(time2026)),
        mismatchAt("a time's length in the long form", Rule::shortestLength,
                   full().validity(sequence({withLongLength(time2026), time2036})),
                   withLongLength(time2026)),
    };
}

std::vector<Refused> brokenTimes() {
    std::vector<Refused> rows;
    const auto add = [&rows](const char* what, Rule rule, const Bytes& time) {
        rows.push_back(mismatchAt(what, rule, full().validity(sequence({time2026, time})), time));
    };
    add("an empty UTCTime", Rule::utcTimeForm, utcTime(""));
    add("a UTCTime without seconds", Rule::utcTimeForm, utcTime("2601010000Z"));
    add("a UTCTime without Z", Rule::utcTimeForm, utcTime("260101000000"));
    add("a UTCTime with a small z", Rule::utcTimeForm, utcTime("260101000000z"));
    add("a UTCTime with an offset", Rule::utcTimeForm, utcTime("260101000000+0000"));
    add("a UTCTime with a fraction", Rule::utcTimeForm, utcTime("260101000000.5Z"));
    add("a UTCTime in a year of four digits", Rule::utcTimeForm, utcTime("20260101000000Z"));
    add("a UTCTime with a blank", Rule::utcTimeForm, utcTime(" 60101000000Z"));
    add("a UTCTime with a letter", Rule::utcTimeForm, utcTime("26010100000aZ"));
    add("a UTCTime with a sign", Rule::utcTimeForm, utcTime("26+101000000Z"));
    add("a UTCTime in month 0", Rule::calendar, utcTime("260001000000Z"));
    add("a UTCTime in month 13", Rule::calendar, utcTime("261301000000Z"));
    add("a UTCTime on day 0", Rule::calendar, utcTime("260100000000Z"));
    add("a UTCTime on 32 January", Rule::calendar, utcTime("260132000000Z"));
    add("a UTCTime on 31 April", Rule::calendar, utcTime("260431000000Z"));
    add("a UTCTime on 29 February of no leap year", Rule::calendar, utcTime("270229000000Z"));
    add("a UTCTime on 30 February of a leap year", Rule::calendar, utcTime("280230000000Z"));
    add("a UTCTime at hour 24", Rule::calendar, utcTime("260101240000Z"));
    add("a UTCTime at minute 60", Rule::calendar, utcTime("260101006000Z"));
    add("a UTCTime at second 60", Rule::calendar, utcTime("260101000060Z"));
    add("an empty GeneralizedTime", Rule::generalizedTimeForm, generalizedTime(""));
    add("a GeneralizedTime without seconds", Rule::generalizedTimeForm,
        generalizedTime("202601010000Z"));
    add("a GeneralizedTime without Z", Rule::generalizedTimeForm,
        generalizedTime("20260101000000"));
    add("a GeneralizedTime with an offset", Rule::generalizedTimeForm,
        generalizedTime("20260101000000+0100"));
    add("a GeneralizedTime with an empty fraction", Rule::generalizedTimeForm,
        generalizedTime("20260101000000.Z"));
    add("a GeneralizedTime with a fraction that ends in zero", Rule::generalizedTimeForm,
        generalizedTime("20260101000000.50Z"));
    add("a GeneralizedTime with a fraction of zero", Rule::generalizedTimeForm,
        generalizedTime("20260101000000.0Z"));
    add("a GeneralizedTime with a comma", Rule::generalizedTimeForm,
        generalizedTime("20260101000000,5Z"));
    add("a GeneralizedTime with a letter in its fraction", Rule::generalizedTimeForm,
        generalizedTime("20260101000000.5x5Z"));
    add("a GeneralizedTime on 29 February 1900", Rule::calendar,
        generalizedTime("19000229000000Z"));
    add("a GeneralizedTime in month 13", Rule::calendar, generalizedTime("20261301000000Z"));
    add("a GeneralizedTime with a small z", Rule::generalizedTimeForm,
        generalizedTime("20260101000000z"));
    add("a GeneralizedTime with a blank", Rule::generalizedTimeForm,
        generalizedTime("2026 101000000Z"));
    add("a GeneralizedTime with a sign", Rule::generalizedTimeForm,
        generalizedTime("2026+101000000Z"));
    add("a GeneralizedTime in a year of two digits", Rule::generalizedTimeForm,
        generalizedTime("260101000000Z"));
    add("a GeneralizedTime in month 0", Rule::calendar, generalizedTime("20260001000000Z"));
    add("a GeneralizedTime on day 0", Rule::calendar, generalizedTime("20260100000000Z"));
    add("a GeneralizedTime on 32 January", Rule::calendar, generalizedTime("20260132000000Z"));
    add("a GeneralizedTime on 31 April", Rule::calendar, generalizedTime("20260431000000Z"));
    add("a GeneralizedTime on 30 February of a leap year", Rule::calendar,
        generalizedTime("20280230000000Z"));
    add("a GeneralizedTime at hour 24", Rule::calendar, generalizedTime("20260101240000Z"));
    add("a GeneralizedTime at minute 60", Rule::calendar, generalizedTime("20260101006000Z"));
    add("a GeneralizedTime at second 60", Rule::calendar, generalizedTime("20260101000060Z"));
    add("a GeneralizedTime's length in the long form", Rule::shortestLength,
        withLongLength(generalizedTime("20260101000000Z")));
    add("a GeneralizedTime with a letter in its century", Rule::generalizedTimeForm,
        generalizedTime("2a260101000000Z"));
    add("a GeneralizedTime with a letter in its year", Rule::generalizedTimeForm,
        generalizedTime("202a0101000000Z"));
    return rows;
}

std::vector<Refused> brokenKeys() {
    const Bytes key = bitString(fromHex("3000"));
    const Bytes octets = octetString(fromHex("30FE"));
    const Bytes dirty = bitString(fromHex("0103"), 1);
    const Bytes surplusKey = sequence({rsaKey, key, null()});
    const Bytes onlyAlgorithm = sequence({rsaKey});
    return {
        wrongTagAt("a public key that is a SET", Rule::typeTag,
                   full().publicKey(withTag(0x31, sequence({rsaKey, key}))), "30", "31",
                   withTag(0x31, sequence({rsaKey, key}))),
        wrongTagAt("a public key without algorithm", Rule::members,
                   full().publicKey(sequence({key})), "30", "03", sequence({key}), 2),
        missingBehind("a public key that is missing", Rule::members,
                      full().publicKey(onlyAlgorithm), onlyAlgorithm),
        wrongTagAt("a public key in an OCTET STRING", Rule::typeTag,
                   full().publicKey(sequence({rsaKey, octets})), "03", "04", octets),
        causeAt("a public key of indefinite length", Rule::definiteLength,
                full().publicKey(withIndefiniteLength(sequence({rsaKey, key}))), indefinite,
                withIndefiniteLength(sequence({rsaKey, key}))),
        mismatchAt("a public key's length in the long form", Rule::shortestLength,
                   full().publicKey(sequence({rsaKey, withLongLength(key)})), withLongLength(key)),
        mismatchAt("a public key without octets", Rule::unusedBits,
                   full().publicKey(sequence({rsaKey, fromHex("03 00")})), fromHex("03 00")),
        mismatchAt("a public key with 8 unused bits", Rule::unusedBits,
                   full().publicKey(sequence({rsaKey, fromHex("03 02 08 00")})),
                   fromHex("03 02 08 00")),
        mismatchAt("a public key longer than what encloses it", Rule::extent,
                   full().publicKey(sequence({rsaKey, fromHex("03 03 00 30")})),
                   fromHex("03 03 00 30")),
        wrongTagAt("a public key's algorithm that is a SET", Rule::typeTag,
                   full().publicKey(sequence({withTag(0x31, rsaKey), key})), "30", "31",
                   withTag(0x31, rsaKey)),
        mismatchAt("a public key with an unused bit that is 1", Rule::clearedBits,
                   full().publicKey(sequence({rsaKey, dirty})), dirty),
        mismatchAt("something behind the public key", Rule::members, full().publicKey(surplusKey),
                   surplusKey, surplusKey.size() - 2),
    };
}

std::vector<Refused> brokenUniqueIds() {
    const Bytes issuerId = fromHex("81 02 00 C1");
    const Bytes subjectId = fromHex("82 02 00 C2");
    const auto with = [](const Bytes& ids) { return full().uniqueIds(ids); };
    return {
        mismatchAt("an empty issuerUId", Rule::unusedBits, with(fromHex("81 00") + subjectId),
                   fromHex("81 00") + subjectId),
        mismatchAt("an issuerUId with 8 unused bits", Rule::unusedBits,
                   with(fromHex("81 02 08 00")), fromHex("81 02 08 00")),
        mismatchAt("a subjectUId with an unused bit that is 1", Rule::clearedBits,
                   with(fromHex("82 02 01 C1")), fromHex("82 02 01 C1")),
        mismatchAt("an issuerUId with an explicit tag", Rule::clearedBits,
                   with(explicitly(1, bitString({0xC1}))), explicitly(1, bitString({0xC1}))),
        mismatchAt("an issuerUId with the tag of a BIT STRING", Rule::members,
                   with(bitString({0xC1})), bitString({0xC1})),
        mismatchAt("a subjectUId's length in the long form", Rule::shortestLength,
                   with(withLongLength(subjectId)), withLongLength(subjectId)),
        mismatchAt("a subjectUId of unused bits without octets", Rule::unusedBits,
                   with(fromHex("82 01 01")), fromHex("82 01 01")),
        mismatchAt("an issuerUId behind subjectUId", Rule::members, with(subjectId + issuerId),
                   issuerId),
        mismatchAt("a second issuerUId", Rule::members, with(issuerId + fromHex("81 02 00 C3")),
                   fromHex("81 02 00 C3")),
        mismatchAt("a member that no certificate has", Rule::members, with(fromHex("84 02 00 C1")),
                   fromHex("84 02 00 C1")),
        causeAt("an issuerUId of indefinite length", Rule::definiteLength,
                with(fromHex("A1 80 03 02 00 C1 00 00")), indefinite,
                fromHex("A1 80 03 02 00 C1 00 00")),
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
    const auto badCritical = [&](const char* what, Rule rule, const char* critical) {
        return mismatchAt(what, rule, withCritical(fromHex(critical)),
                          fromHex(critical) + someValue);
    };
    const Bytes lateCritical = sequence({someId, someValue, boolean(true)});
    const Bytes onlyId = sequence({someId});
    const Bytes bits = bitString(fromHex("3000"));
    const Bytes badId = fromHex("06 03 2B 06 81");
    const Bytes surplusInTag = explicitly(3, sequence({good}) + null());
    return {
        causeAt("critical FALSE, which is the default", Rule::omittedDefault,
                withCritical(boolean(false)), encodedDefault, boolean(false) + someValue),
        badCritical("critical neither 00 nor FF", Rule::trueIsFF, "01 01 01"),
        badCritical("critical of no octets", Rule::oneOctetBoolean, "01 00"),
        badCritical("critical of two octets", Rule::oneOctetBoolean, "01 02 FF FF"),
        badCritical("critical with its length in the long form", Rule::shortestLength,
                    "01 81 01 FF"),
        wrongTagAt("critical that is an INTEGER", Rule::typeTag, withCritical(integer(255)), "04",
                   "02", integer(255) + someValue),
        wrongTagAt("critical twice", Rule::members, withCritical(boolean(true) + boolean(true)),
                   "04", "01", boolean(true) + someValue),
        mismatchAt("critical behind the value", Rule::members, with(lateCritical), lateCritical,
                   lateCritical.size() - 3),
        causeAt("extensions whose tag has no constructed bit", Rule::constructedExplicitTag,
                raw(withTag(0x83, tagged)), notConstructed, withTag(0x83, tagged)),
        causeAt("extensions' tag of indefinite length", Rule::definiteLength,
                raw(withIndefiniteLength(tagged)), indefinite, withIndefiniteLength(tagged)),
        causeAt("extensions of indefinite length", Rule::definiteLength,
                raw(explicitly(3, withIndefiniteLength(sequence({good})))), indefinite,
                withIndefiniteLength(sequence({good}))),
        missingBehind("an empty tag of extensions", Rule::members, raw(fromHex("A3 00")),
                      fromHex("A3 00")),
        wrongTagAt("extensions that are a SET", Rule::typeTag,
                   raw(explicitly(3, withTag(0x31, sequence({good})))), "30", "31",
                   withTag(0x31, sequence({good}))),
        mismatchAt("something behind the extensions within their tag", Rule::members,
                   raw(surplusInTag), surplusInTag, surplusInTag.size() - 2),
        mismatchAt("extensions twice", Rule::members, raw(tagged + tagged), tagged + tagged,
                   tagged.size()),
        mismatchAt("extensions before the unique ids", Rule::members,
                   full().uniqueIds({}).rawExtensions(tagged + fromHex("81 02 00 C1")),
                   fromHex("81 02 00 C1")),
        wrongTagAt("extensions with an implicit tag", Rule::typeTag, raw(explicitly(3, good)), "30",
                   "06", explicitly(3, good), 4),
        wrongTagAt("an extension that is an identifier", Rule::typeTag, with(someId), "30", "06",
                   someId),
        mismatchAt("extensions' tag with its length in the long form", Rule::shortestLength,
                   raw(withLongLength(tagged)), withLongLength(tagged)),
        mismatchAt("extensions longer than their tag", Rule::extent, raw(fromHex("A3 03 30 02 05")),
                   fromHex("A3 03 30 02 05"), 2),
        causeAt("critical of indefinite length", Rule::definiteLength,
                withCritical(fromHex("01 80 FF 00 00")), indefinite, fromHex("01 80 FF 00 00")),
        wrongTagAt("an extension that is a SET", Rule::typeTag, with(withTag(0x31, good)), "30",
                   "31", withTag(0x31, good)),
        causeAt("an extension of indefinite length", Rule::definiteLength,
                with(withIndefiniteLength(good)), indefinite, withIndefiniteLength(good)),
        mismatchAt("an extension's length in the long form", Rule::shortestLength,
                   with(withLongLength(good)), withLongLength(good)),
        missingBehind("an empty extension", Rule::members, with(sequence({})),
                      explicitly(3, sequence({sequence({})}))),
        wrongTagAt("an extension without identifier", Rule::members, with(sequence({someValue})),
                   "06", "04", sequence({someValue}), 2),
        mismatchAt("an extension's identifier that does not end", Rule::arcs,
                   with(sequence({badId, someValue})), badId),
        missingBehind("an extension without value", Rule::members, with(onlyId), onlyId),
        wrongTagAt("an extension's value in a BIT STRING", Rule::typeTag,
                   with(sequence({someId, bits})), "04", "03", bits),
        mismatchAt("an extension's value with its length in the long form", Rule::shortestLength,
                   with(sequence({someId, withLongLength(someValue)})), withLongLength(someValue)),
        causeAt("an extension's value of indefinite length", Rule::definiteLength,
                with(sequence({someId, withIndefiniteLength(withTag(0x24, someValue))})),
                indefinite, withIndefiniteLength(withTag(0x24, someValue))),
        mismatchAt("an extension's value longer than the extension", Rule::extent,
                   with(sequence({someId, fromHex("04 03 30 00")})), fromHex("04 03 30 00")),
    };
}

} // namespace

void PrintTo(const Refused& row, std::ostream* out) {
    *out << row.what;
}

std::vector<RefusedPart> refusedCertificates() {
    return {
        {"The frame", brokenFrames()},
        {"The version", brokenVersions()},
        {"The serial number", brokenSerialNumbers()},
        {"Algorithms", brokenAlgorithms()},
        {"Names", brokenNames()},
        {"The validity", brokenValidities()},
        {"Times", brokenTimes()},
        {"The public key", brokenKeys()},
        {"The unique identifiers", brokenUniqueIds()},
        {"Extensions", brokenExtensions()},
        {"The signature", brokenSignatures()},
    };
}

const std::vector<RuleText>& rulesOfDer() {
    static const std::vector<RuleText> rules = {
        {Rule::typeTag, "X.690 8.1.2", "an element has the tag of the expected type"},
        {Rule::members, "X.690 8.9.2",
         "the members of a type come in their order, once each; no mandatory member is missing, "
         "and there are no others"},
        {Rule::tagNumber, "X.690 8.1.2.4",
         "a tag number below 31 is in the first octet; a larger one takes the fewest octets and "
         "has at most 31 bits here"},
        {Rule::endOfContentsTag, "X.690 8.1.5", "tag 0 only marks the end of contents"},
        {Rule::extent, "X.690 8.1.3",
         "an element has a length, and its contents end inside the enclosing element"},
        {Rule::reservedLength, "X.690 8.1.3.5 c)", "the length octet FF is never used"},
        {Rule::shortestLength, "X.690 10.1", "a length takes the fewest octets"},
        {Rule::definiteLength, "X.690 10.1", "lengths are definite"},
        {Rule::wholeInput, "X.690 8.1.1", "nothing follows the certificate"},
        {Rule::constructedExplicitTag, "X.690 8.14.2", "an explicit tag is constructed"},
        {Rule::omittedDefault, "X.690 11.5", "a member that has its default value is omitted"},
        {Rule::oneOctetBoolean, "X.690 8.2.1", "a BOOLEAN is one octet"},
        {Rule::trueIsFF, "X.690 11.1", "TRUE is FF"},
        {Rule::integerOctets, "X.690 8.3.1", "an INTEGER has at least one octet"},
        {Rule::shortestInteger, "X.690 8.3.2", "an INTEGER takes the fewest octets"},
        {Rule::unusedBits, "X.690 8.6.2",
         "a BIT STRING begins with the number of its unused bits, which is at most 7, and 0 if no "
         "bits follow"},
        {Rule::clearedBits, "X.690 11.2.1", "unused bits are 0"},
        {Rule::arcs, "X.690 8.19.2",
         "an object identifier has at least one arc; each arc is complete and takes the fewest "
         "octets"},
        {Rule::identifierBound, "",
         "an object identifier has at most 4096 octets. This is a limit of this decoder: the time "
         "to write an arc grows with the square of its length"},
        {Rule::utcTimeForm, "X.690 11.8", "a UTCTime is YYMMDDHHMMSSZ"},
        {Rule::generalizedTimeForm, "X.690 11.7",
         "a GeneralizedTime is YYYYMMDDHHMMSSZ; a fraction follows a point and does not end in 0"},
        {Rule::calendar, "X.680 46, 47", "the date and the time exist"},
    };
    return rules;
}

} // namespace asn1_test
