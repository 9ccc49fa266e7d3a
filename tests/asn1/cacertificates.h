// The certificates of Debian's package ca-certificates.
#pragma once

#include "certbuilder.h"

#include <string>
#include <vector>

namespace asn1_test {

struct CaCertificate {
    std::string file;
    testsupport::Bytes der;
};

/// All of them, at least a hundred.
const std::vector<CaCertificate>& caCertificates();

} // namespace asn1_test
