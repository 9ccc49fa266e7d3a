// The token side of an update: reads the certificates of a PKCS #11 token.
#include "pkcs11helper.h"

#include "bufcodecs.h"
#include "certstoreupdatererror.h"
#include "ckobjectsfinder.h"
#include "cksession.h"
#include "ckslots.h"
#include "der.h"
#include "keyids.h"
#include "libraries.h"
#include "makeevent.h"

#include <boost/bind/bind.hpp>
#include <boost/function.hpp>

#include <exception>
#include <initializer_list>
#include <utility>

namespace pkcs11::certstoreupdater {

namespace {

using buffer::BufferRange;

constexpr wchar_t sourceFile[] = L"src\\pkcs11helper.cpp";

// Unloads a module unless it is dismissed first.
class UnloadGuard {
public:
    explicit UnloadGuard(const CkLibrary& library) try
        : unload_(boost::bind(&Libraries::unload, &Libraries::instance(), library)) {
    } catch (...) {
        // There was no memory for the bound call, and no destructor will run.
        unloadQuietly(library);
    }
    ~UnloadGuard() {
        try {
            if (unload_)
                unload_();
        } catch (...) {
            // The exception that led here is the one to report.
        }
    }
    UnloadGuard(const UnloadGuard&) = delete;
    UnloadGuard& operator=(const UnloadGuard&) = delete;

    void dismiss() { unload_.clear(); }

private:
    static void unloadQuietly(const CkLibrary& library) noexcept {
        try {
            Libraries::instance().unload(library);
        } catch (...) {
            // As in the destructor.
        }
    }

    boost::function<void()> unload_;
};

// Reads the attributes of every object that the search finds, in the order of the search.
template <class Use>
void readObjects(const CkSession& session, const CkAttributes& searchTemplate,
                 std::initializer_list<CkUlong> types, Use use) {
    CkObjectsFinder finder(session);
    finder.init(searchTemplate);
    for (const CkObject object : finder) {
        CkAttributes attributes;
        for (const CkUlong type : types)
            attributes.add(type);
        object.get(attributes);
        attributes.allocateValues();
        object.get(attributes);
        use(attributes);
    }
    finder.final();
}

CkAttributes tokenObjects(CkUlong objectClass) {
    CkAttributes searchTemplate;
    searchTemplate.addNumber(cka::objectClass, objectClass);
    searchTemplate.addBool(cka::token, true);
    return searchTemplate;
}

// Null for an absent value.
Buffer<unsigned char> idOf(const CkAttributes& attributes) {
    const BufferRange<unsigned char> id = attributes.value(cka::id);
    return Buffer<unsigned char>(id.data(), id.size());
}

Buffer<wchar_t> decodeLabel(BufferRange<unsigned char> utf8) {
    Buffer<wchar_t> label = L"";
    buffer::Utf8Decoder::decode(utf8, label);
    return label;
}

CertItem makeItem(const CkAttributes& attributes) {
    const BufferRange<unsigned char> value = attributes.value(cka::value);
    CertItem item;
    item.id = idOf(attributes);
    item.label = decodeLabel(attributes.value(cka::label));
    asn1::der::decode(value, item.certificate);
    return item;
}

bool isSelfSigned(const asn1::Certificate& certificate) {
    return certificate.subject().cmp(certificate.issuer(), asn1::Amatch::exact) == 0;
}

} // namespace

Pkcs11Helper::Pkcs11Helper(const std::string& modulePath)
    : library(Libraries::instance().load(modulePath)) {
    UnloadGuard guard(library);
    slots = std::make_unique<CkSlots>(library, true);
    if (slots->empty())
        throw korv::makeEvent<CertStoreUpdaterError_TokenNotPresent>(sourceFile);
    guard.dismiss();
}

Pkcs11Helper::~Pkcs11Helper() noexcept(false) {
    const bool isUnwinding = std::uncaught_exceptions() != 0;
    session.reset();
    try {
        Libraries::instance().unload(library);
    } catch (...) {
        if (!isUnwinding)
            throw;
    }
}

void Pkcs11Helper::login(const Buffer<unsigned char>& pin) {
    const CkSlot& slot = (*slots)[0];
    if (!(slot.info().flags & ckf::userPinInitialized))
        throw korv::makeEvent<CertStoreUpdaterError_TokenNotInitialized>(sourceFile);
    auto newSession = std::make_unique<CkSession>(slot.ckLibrary());
    newSession->open(slot.id(), ckf::rwSession | ckf::serialSession);
    session = std::move(newSession);
    session->login(cku::user, pin);
}

std::unique_ptr<CertListPackage> Pkcs11Helper::getAllCerts() const {
    auto package = std::make_unique<CertListPackage>();
    std::vector<CertItem> items = readTokenCertificates();
    const KeyIds privateKeyIds = readPrivateKeyIds();
    for (CertItem& item : items) {
        CertMap& certs = (*package).*classOf(item, privateKeyIds);
        certs.try_emplace(containerNameOf(item.id), std::move(item));
    }
    return package;
}

std::unique_ptr<CertMap> Pkcs11Helper::getCertsWithPrivateKey() const {
    auto certs = std::make_unique<CertMap>();
    std::vector<CertItem> items = readTokenCertificates();
    const KeyIds privateKeyIds = readPrivateKeyIds();
    for (CertItem& item : items)
        if (privateKeyIds.contain(item.id))
            certs->try_emplace(containerNameOf(item.id), std::move(item));
    return certs;
}

std::unique_ptr<CertMap> Pkcs11Helper::getOtherCerts() const {
    auto certs = std::make_unique<CertMap>();
    std::vector<CertItem> items = readTokenCertificates();
    const KeyIds privateKeyIds = readPrivateKeyIds();
    for (CertItem& item : items)
        if (classOf(item, privateKeyIds) == &CertListPackage::otherCerts)
            certs->try_emplace(containerNameOf(item.id), std::move(item));
    return certs;
}

std::vector<CertItem> Pkcs11Helper::readTokenCertificates() const {
    CkAttributes searchTemplate = tokenObjects(cko::certificate);
    searchTemplate.addNumber(cka::certificateType, ckc::x509);
    std::vector<CertItem> items;
    readObjects(*session, searchTemplate, {cka::value, cka::id, cka::label},
                [&](const CkAttributes& attributes) { items.push_back(makeItem(attributes)); });
    return items;
}

KeyIds Pkcs11Helper::readPrivateKeyIds() const {
    KeyIds ids;
    readObjects(*session, tokenObjects(cko::privateKey), {cka::id},
                [&](const CkAttributes& attributes) { ids.add(idOf(attributes)); });
    return ids;
}

Buffer<wchar_t> Pkcs11Helper::containerNameOf(const Buffer<unsigned char>& id) {
    Buffer<wchar_t> name = L"CKAIDHEX:";
    name.append(buffer::hexEncode(id));
    return name;
}

bool Pkcs11Helper::isCaCertificate(const asn1::Certificate& certificate) {
    return certificate.isAuthority();
}

CertMap CertListPackage::*Pkcs11Helper::classOf(const CertItem& item, const KeyIds& privateKeyIds) {
    if (isSelfSigned(item.certificate))
        return &CertListPackage::selfSignedCerts;
    if (isCaCertificate(item.certificate))
        return &CertListPackage::caCerts;
    if (privateKeyIds.contain(item.id))
        return &CertListPackage::certsWithPrivateKey;
    return &CertListPackage::otherCerts;
}

} // namespace pkcs11::certstoreupdater
