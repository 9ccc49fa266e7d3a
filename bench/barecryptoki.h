// The Cryptoki calls that reading a token's certificates cannot do without, and nothing else: no
// checks of what comes, no sorting, no certificate decoded.
#pragma once

#include <p11-kit/pkcs11.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {

using Octets = std::vector<unsigned char>;

struct TokenCertificate {
    Octets value;
    Octets id;
    Octets label;
};

inline void require(CK_RV answer, const char* what) {
    if (answer != CKR_OK)
        throw std::runtime_error(what);
}

/// With the template that the library is required to search with.
inline std::vector<CK_OBJECT_HANDLE> findBare(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session,
                                              CK_OBJECT_CLASS kind) {
    CK_BBOOL onToken = CK_TRUE;
    CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    std::array wanted{CK_ATTRIBUTE{CKA_CLASS, &kind, sizeof kind},
                      CK_ATTRIBUTE{CKA_TOKEN, &onToken, sizeof onToken},
                      CK_ATTRIBUTE{CKA_CERTIFICATE_TYPE, &x509, sizeof x509}};
    require(token->C_FindObjectsInit(session, wanted.data(), kind == CKO_CERTIFICATE ? 3 : 2),
            "C_FindObjectsInit");
    std::vector<CK_OBJECT_HANDLE> found;
    std::array<CK_OBJECT_HANDLE, 64> chunk;
    CK_ULONG count = 0;
    do {
        require(token->C_FindObjects(session, chunk.data(), static_cast<CK_ULONG>(chunk.size()),
                                     &count),
                "C_FindObjects");
        found.insert(found.end(), chunk.begin(),
                     chunk.begin() + static_cast<std::ptrdiff_t>(count));
    } while (count != 0);
    require(token->C_FindObjectsFinal(session), "C_FindObjectsFinal");
    return found;
}

/// The values of attributes, read as they must be: lengths first.
inline void readBare(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                     std::initializer_list<std::pair<CK_ATTRIBUTE_TYPE, Octets*>> wanted) {
    std::array<CK_ATTRIBUTE, 3> attributes;
    CK_ULONG count = 0;
    for (const auto& [type, value] : wanted)
        attributes[count++] = {type, nullptr, 0};
    require(token->C_GetAttributeValue(session, object, attributes.data(), count), "lengths");
    count = 0;
    for (const auto& [type, value] : wanted) {
        value->resize(attributes[count].ulValueLen);
        attributes[count++].pValue = value->data();
    }
    require(token->C_GetAttributeValue(session, object, attributes.data(), count), "values");
}

struct BareHarvest {
    std::vector<TokenCertificate> certificates;
    std::vector<Octets> keyIds;
};

inline BareHarvest harvestBare(CK_FUNCTION_LIST* token, CK_SESSION_HANDLE session) {
    BareHarvest harvest;
    for (const CK_OBJECT_HANDLE object : findBare(token, session, CKO_CERTIFICATE)) {
        TokenCertificate& certificate = harvest.certificates.emplace_back();
        readBare(token, session, object,
                 {{CKA_VALUE, &certificate.value},
                  {CKA_ID, &certificate.id},
                  {CKA_LABEL, &certificate.label}});
    }
    for (const CK_OBJECT_HANDLE object : findBare(token, session, CKO_PRIVATE_KEY))
        readBare(token, session, object, {{CKA_ID, &harvest.keyIds.emplace_back()}});
    return harvest;
}

} // namespace bench
