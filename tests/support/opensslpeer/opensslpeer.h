// OpenSSL as a second reader of certificates. What is accepted here it accepts too, with two
// exceptions, and it reads the same from it.
#pragma once

#include "certificate.h"

#include <string>
#include <vector>

namespace testsupport {

/// Such as "3.0.2".
std::string versionOfOpenSsl();

/// Whether all of `der` is a certificate to OpenSSL.
bool isAcceptedByOpenSsl(buffer::BufferRange<unsigned char> der);

/// The same for a certificate that was decoded here, without what only OpenSSL looks at:
/// constructed bits, which tag matching ignores here, are set right, and the values in names and
/// the parameters of algorithms, which are not looked into here before somebody asks for them, are
/// replaced or left out.
bool isAcceptedByOpenSslButForOpaqueParts(const asn1::Certificate& certificate);

/// What OpenSSL reads differently from the encoding of a certificate; empty if it reads the same.
/// Extensions are compared where both can read them; one that is DER must not be read by OpenSSL
/// alone. Of a key usage in several segments only the number of octets is compared: OpenSSL takes
/// the segments' counts of unused bits for bits.
std::vector<std::string> differencesFromOpenSsl(const asn1::Certificate& certificate);

} // namespace testsupport
