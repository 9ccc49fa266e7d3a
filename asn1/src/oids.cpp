// Object identifiers that the library uses.
#include "oids.h"

namespace asn1 {

const ObjectIdentifier id_ce_keyUsage("2.5.29.15");
const ObjectIdentifier id_ce_basicConstraints("2.5.29.19");
const ObjectIdentifier id_at_commonName("2.5.4.3");

} // namespace asn1
