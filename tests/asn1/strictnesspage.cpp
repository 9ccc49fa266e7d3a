// Writes docs/strictness.md: what the decoder of certificates refuses and what it accepts, from the
// tables that the tests go through.
#include "acceptedcertificates.h"
#include "opensslpeer.h"
#include "refusedcertificates.h"

#include <algorithm>
#include <iostream>
#include <string>

namespace asn1_test {
namespace {

std::string openSsl() {
    return "OpenSSL " + testsupport::versionOfOpenSsl();
}

const char* judgementOfOpenSsl(const testsupport::Bytes& certificate) {
    return testsupport::isAcceptedByOpenSsl(rangeOf(certificate)) ? "accepts" : "refuses";
}

const RuleText& textOf(Rule rule) {
    return *std::find_if(rulesOfDer().begin(), rulesOfDer().end(),
                         [rule](const RuleText& text) { return text.rule == rule; });
}

std::string clauseOf(const RuleText& rule) {
    return std::string(rule.clause.empty() ? "its own bound" : rule.clause);
}

const std::string& param(const Thrown& error, std::string_view key) {
    return std::find_if(error.params.begin(), error.params.end(),
                        [key](const auto& candidate) { return candidate.first == key; })
        ->second;
}

std::string inWords(const Thrown& error) {
    const std::string& cause = param(error, "CAUSE");
    if (cause == "NotAllBufferConsumed")
        return cause + ": " + param(error, "CONSUMED_BYTES") + " of " + param(error, "BUFFER_SIZE");
    std::string words = cause + " at " + param(error, "POSITION");
    for (const Thrown& parent : error.parents)
        words += ": tag " + param(parent, "FOUND_TAG") + ", not " + param(parent, "EXPECTED_TAG");
    return words;
}

void writeRules(const std::vector<RefusedPart>& parts, std::ostream& out) {
    out << "| rule | | certificates below |\n|---|---|---|\n";
    for (const RuleText& rule : rulesOfDer()) {
        std::ptrdiff_t count = 0;
        for (const RefusedPart& part : parts)
            count += std::count_if(part.rows.begin(), part.rows.end(),
                                   [&](const Refused& row) { return row.rule == rule.rule; });
        out << "| " << rule.text << " | " << clauseOf(rule) << " | " << count << " |\n";
    }
}

void writeRefused(const RefusedPart& part, std::ostream& out) {
    out << "\n### " << part.name << "\n\n| case | rule | error | " << openSsl() << " |\n"
        << "|---|---|---|---|\n";
    for (const Refused& row : part.rows)
        out << "| " << row.what << " | " << clauseOf(textOf(row.rule)) << " | "
            << inWords(row.error) << " | " << judgementOfOpenSsl(row.certificate) << " |\n";
}

void writeAccepted(const ReasonText& reason, std::ostream& out) {
    out << "\n### " << reason.title << "\n\n"
        << reason.text << "\n\n| case | " << openSsl() << " |\n|---|---|\n";
    for (const Accepted& row : acceptedCertificates())
        if (row.reason == reason.reason)
            out << "| " << row.what << " | " << judgementOfOpenSsl(row.certificate) << " |\n";
}

void writePage(std::ostream& out) {
    const std::vector<RefusedPart> parts = refusedCertificates();
    out << R"(# How strictly certificates are read

`./dev docs` generates this page from the tables that the tests use,
[refusedcertificates.cpp](../tests/asn1/refusedcertificates.cpp) and
[acceptedcertificates.cpp](../tests/asn1/acceptedcertificates.cpp), so it says what is tested. A test
checks that the page is up to date.

Certificates from a token or a store are decoded strictly, as DER. Each certificate in the tables below
differs from a good one in one respect, which the first column describes. The last column says whether
the `d2i_X509` of the named version of OpenSSL accepts the same octets; other versions answer differently
here and there.

That version accepts every certificate that is accepted here, except for some with constructed bits, or with
malformed values that are decoded only when somebody asks for them. Where both accept a certificate,
both read the same names, serial number, version, key usage and basic constraints, and encode it to the
same octets, with two exceptions. Only OpenSSL joins the segments of a string in an algorithm's
parameters. And only here a key usage in several segments is what they assert together: OpenSSL takes
the counts of unused bits in the later ones for bits. The tests check this for the certificates below,
for the authorities that Debian trusts, and for all inputs of the [fuzzers](fuzzing.md).

## Refused

Decoding these throws `QuorError_Asn1_Decode`. The column "error" has its "CAUSE" and its "POSITION": the
octet at which the wrong element begins, or at which an element is missing. The object that was to
receive the certificate stays unchanged.

)";
    writeRules(parts, out);
    for (const RefusedPart& part : parts)
        writeRefused(part, out);
    out << R"(
## Accepted, although a stricter decoder might refuse

These certificates encode to the same octets again, except for constructed bits.
)";
    for (const ReasonText& reason : reasons())
        writeAccepted(reason, out);
}

} // namespace
} // namespace asn1_test

int main() {
    asn1_test::writePage(std::cout);
    return std::cout.good() ? 0 : 1;
}
