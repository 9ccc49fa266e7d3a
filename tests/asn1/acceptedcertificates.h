// What strict decoding accepts although a stricter reader might not.
#pragma once

#include "certbuilder.h"

#include <iosfwd>
#include <string_view>
#include <vector>

namespace asn1_test {

/// Why a certificate is accepted.
enum class Reason {
    isDer,
    constructedBit, ///< tags match whatever their constructed bit
    opaqueValue,    ///< values of names, parameters and extensions are not looked into
    range,          ///< ranges and combinations of values are not a matter of DER
    setOrder,       ///< as all parsers do, the order of a SET OF is kept as it came
    otherAlgorithm, ///< whether both algorithms agree is for whoever verifies the signature
};

struct Accepted {
    const char* what;
    testsupport::Bytes certificate;
    testsupport::Bytes encodesTo;
    Reason reason;
    bool hasConstructedString = false; ///< which is in segments, or malformed, where BER is read
};

void PrintTo(const Accepted& row, std::ostream* out);

std::vector<Accepted> acceptedCertificates();

struct ReasonText {
    Reason reason;
    std::string_view title;
    std::string_view text;
};

const std::vector<ReasonText>& reasons();

} // namespace asn1_test
