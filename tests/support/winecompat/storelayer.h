// The certificate store functions as Windows documents them, made from those of Wine 8.0.
//
// What differs in Wine, and what is done about it:
// - Property ids from 32768 to 65535 belong to applications and are kept with the certificate;
//   Wine refuses them. The library's own, 54086, is kept as CERT_RENEWAL_PROP_ID (64), which no
//   program here uses.
// - Additions, deletions and properties reach the registry at once; Wine writes the whole store,
//   and only when its last context is gone or when told to, so that contexts that are kept alive
//   lose changes, and a store opened before somebody else's deletion writes the deleted
//   certificates back. An opened system store is therefore a copy in memory, and each change is
//   written to the registry here, certificate by certificate, in Wine's (and Windows's) format.
// - A duplicate of the context at which an enumeration stands may be deleted, and the
//   enumeration goes on; in Wine it then never ends. Such a deletion waits until the enumeration
//   has moved on.
// - CERT_STORE_ADD_NEW leaves a present certificate alone; Wine leaks a reference to it.
// - CERT_STORE_CTRL_RESYNC reads the store again: here it renews that copy.
//
// The ROOT store is left to Wine, because it is asked for trust and not for storage.
#pragma once

#include "importslot.h"

#include <string_view>

namespace testsupport {

struct StoreLayerFunction {
    std::string_view name; ///< as crypt32.dll exports it
    ImportSlot::Address replacement;
};

/// All functions of the layer; `begin` and `end` of a table that lives as long as the program.
struct StoreLayerFunctions {
    const StoreLayerFunction* first;
    const StoreLayerFunction* last;
    const StoreLayerFunction* begin() const { return first; }
    const StoreLayerFunction* end() const { return last; }
};
StoreLayerFunctions storeLayerFunctions();

} // namespace testsupport
