// Certificates that break a rule of DER, each differing from a good one in one element.
#pragma once

#include "asn1support.h"

#include <iosfwd>
#include <string_view>
#include <vector>

namespace asn1_test {

/// What is broken; `rulesOfDer` says it in words.
enum class Rule {
    typeTag,
    members,
    tagNumber,
    endOfContentsTag,
    extent,
    reservedLength,
    shortestLength,
    definiteLength,
    wholeInput,
    constructedExplicitTag,
    omittedDefault,
    oneOctetBoolean,
    trueIsFF,
    integerOctets,
    shortestInteger,
    unusedBits,
    clearedBits,
    arcs,
    identifierBound,
    utcTimeForm,
    generalizedTimeForm,
    calendar,
};

struct Refused {
    const char* what;
    Rule rule;
    testsupport::Bytes certificate;
    Thrown error;
};

void PrintTo(const Refused& row, std::ostream* out);

/// The part of a certificate in which the rules are broken.
struct RefusedPart {
    const char* name;
    std::vector<Refused> rows;
};

std::vector<RefusedPart> refusedCertificates();

struct RuleText {
    Rule rule;
    std::string_view clause; ///< empty for a bound of this decoder's own
    std::string_view text;
};

const std::vector<RuleText>& rulesOfDer();

} // namespace asn1_test
