// Templates on their way into a module.
#include "ckattributes.h"

#include "cryptoki.h"

namespace pkcs11 {

std::vector<CK_ATTRIBUTE> cryptokiTemplate(const CkAttributes& attributes) {
    std::vector<CK_ATTRIBUTE> result;
    result.reserve(attributes.entries().size());
    for (const CkAttributes::Entry& entry : attributes.entries())
        result.push_back({entry.type, entry.value.get(), entry.length});
    return result;
}

} // namespace pkcs11
