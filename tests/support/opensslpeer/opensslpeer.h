// OpenSSL as a second reader of certificates: what is accepted here it accepts too, with two
// exceptions, and reads the same from it.
#pragma once

#include "certificate.h"

#include <string>
#include <vector>

namespace testsupport {

/// Whether all of `der` is a certificate to OpenSSL.
bool isAcceptedByOpenSsl(buffer::BufferRange<unsigned char> der);

/// The same for a certificate that was decoded here, but for what only OpenSSL looks at: the
/// constructed bits that tag matching ignores are as DER has them, and the values of names and of
/// algorithms' parameters, which nobody here looks into before asking for them, are plain ones.
bool isAcceptedByOpenSslButForOpaqueParts(const asn1::Certificate& certificate);

/// What OpenSSL reads differently from the encoding of a certificate; nothing if it reads the
/// same. Extensions are compared where both can read them; one that is DER both must.
std::vector<std::string> differencesFromOpenSsl(const asn1::Certificate& certificate);

} // namespace testsupport
