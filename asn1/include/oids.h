// Object identifiers that the library uses.
#pragma once

#include "simpletypes.h"

namespace asn1 {

CERTSTOREUPDATER_API extern const ObjectIdentifier id_ce_keyUsage;         ///< 2.5.29.15
CERTSTOREUPDATER_API extern const ObjectIdentifier id_ce_basicConstraints; ///< 2.5.29.19
CERTSTOREUPDATER_API extern const ObjectIdentifier id_at_commonName;       ///< 2.5.4.3

} // namespace asn1
