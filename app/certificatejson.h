// Certificates for programs.
#pragma once

#include "certificatetext.h"
#include "output.h"

namespace updater {

/// Subject, issuer, serial number and validity.
Json toJson(const asn1::Certificate& cert);

} // namespace updater
