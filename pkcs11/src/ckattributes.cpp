// Templates on their way into a module.
#include "ckattributes.h"

#include "cryptoki.h"

namespace pkcs11 {

std::vector<CK_ATTRIBUTE> cryptokiTemplate(const CkAttributes& attributes) {
    std::vector<CK_ATTRIBUTE> result;
    result.reserve(attributes.entries().size());
    for (const CkAttributes::Entry& entry : attributes.entries())
        // Without room for a value ulValueLen is the module's to set.
        result.push_back({entry.type, entry.value.get(), entry.value ? entry.length : 0});
    return result;
}

} // namespace pkcs11
