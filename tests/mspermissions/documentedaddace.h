// AddAce as Windows documents it.
#pragma once

#include "descriptors.h"
#include "filesecurity.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace mspermissions_test {

/// Whether an entry is one for a kind of object, which it names by a GUID.
inline bool isObjectEntry(const Bytes& entry) {
    const unsigned char type = entry.at(offsetof(ACE_HEADER, AceType));
    return type >= ACCESS_MIN_MS_OBJECT_ACE_TYPE && type <= ACCESS_MAX_MS_OBJECT_ACE_TYPE;
}

inline bool hasObjectEntries(const std::vector<Bytes>& entries) {
    return std::any_of(entries.begin(), entries.end(), isObjectEntry);
}

/// Lets the library's AddAce put no object entry into a list of revision 2 for as long as it
/// exists. So it is documented (Microsoft, "AddAce function", dwAceRevision; [MS-DTYP] 2.4.5,
/// AclRevision); Wine takes entries of all types.
class DocumentedAddAce {
public:
    DocumentedAddAce() {
        hook_.replace([this](PACL to, DWORD revision, DWORD index, LPVOID list, DWORD size) {
            const auto* bytes = static_cast<const unsigned char*>(list);
            if (revision < ACL_REVISION_DS && isObjectEntry(Bytes(bytes, bytes + size))) {
                SetLastError(ERROR_INVALID_PARAMETER);
                return FALSE;
            }
            return hook_.original(to, revision, index, list, size);
        });
    }

private:
    SecurityHook<decltype(AddAce)> hook_{"AddAce"};
};

} // namespace mspermissions_test
