// The certificate store functions as Windows documents them, made from those of Wine.
//
// What Wine may lack (lacks.h), and what is done about it where it does:
// - Own property ids: the library's, 54086, is kept as CERT_RENEWAL_PROP_ID (64), which no program
//   here uses.
// - Writing at once: Wine writes the whole store, and only when its last context is gone or when
// told
//   to, so that contexts that are kept alive lose changes, and a store opened before somebody
//   else's deletion writes the deleted certificates back; CERT_STORE_ADD_NEW keeps such a context
//   where the certificate is present. An opened system store is therefore a copy in memory, which
//   CERT_STORE_CTRL_RESYNC renews, and each change is written to the registry here, certificate by
//   certificate, in Wine's (and Windows's) format.
// - Deletion while enumerating: it waits until the enumeration has moved on; otherwise the deleted
//   certificate comes back for ever.
// - The exact match: what is found and is not the same is passed over.
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
