// Certificates in a Windows store, registered, found, listed and removed by the library and by the
// bare CryptoAPI calls: storebench [REPETITIONS]
#include "barestore.h"
#include "bufcodecs.h"
#include "certbuilder.h"
#include "certstorehelper.h"
#include "der.h"
#include "printrow.h"
#include "storeview.h"

#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace testsupport;
using bench::bindingProperty;
using bench::require;
using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreHelper;

constexpr wchar_t csp[] = L"Benchmark CSP";

struct Entry {
    Bytes der;
    std::wstring container;
    std::wstring label;
};

std::vector<Entry> entriesOf(int count) {
    std::vector<Entry> entries;
    for (int number = 1; number <= count; ++number) {
        const std::string holder = "Holder " + std::to_string(number);
        wchar_t container[64];
        std::swprintf(container, 64, L"CKAIDHEX:%040X", number);
        entries.push_back({CertBuilder().serialNumber(number).names(holder, "Issuer").build(),
                           container, std::wstring(holder.begin(), holder.end())});
    }
    return entries;
}

/// What both contenders do with a store.
class Contender {
public:
    Contender() = default;
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;
    virtual ~Contender() = default;
    virtual void add() = 0;
    virtual std::size_t find() = 0;
    virtual std::size_t list() = 0;
    virtual void remove() = 0;
};

class Library : public Contender {
public:
    Library(const std::wstring& store, const std::vector<Entry>& entries) : helper_(store) {
        for (const Entry& entry : entries) {
            CertItem item;
            item.label = entry.label.c_str();
            asn1::der::decode({entry.der.data(), entry.der.size()}, item.certificate);
            items_.emplace(entry.container.c_str(), std::move(item));
        }
    }

    void add() override { helper_.addCspCertificates(csp, items_, true); }
    std::size_t find() override {
        std::size_t found = 0;
        for (const auto& [container, item] : items_)
            found += helper_.findCspCertificate(csp, container.c_str(), item.certificate) ? 1u : 0u;
        return found;
    }
    std::size_t list() override { return helper_.listCertsByCsp(csp, true)->size(); }
    void remove() override { helper_.deleteCertificates(items_); }

private:
    CertStoreHelper helper_;
    CertMap items_;
};

/// The calls that the same work cannot do without.
class BareCalls : public Contender {
public:
    BareCalls(const std::wstring& store, const std::vector<Entry>& entries)
        : store_(CertOpenSystemStoreW(0, store.c_str())), entries_(entries) {
        require(store_ != nullptr, "CertOpenSystemStore");
    }
    ~BareCalls() override { CertCloseStore(store_, 0); }

    void add() override {
        for (const Entry& entry : entries_)
            bench::registerBare(store_, entry.der, entry.container, csp, entry.label);
    }

    std::size_t find() override {
        std::size_t found = 0;
        for (const Entry& entry : entries_) {
            const CERT_CONTEXT* context = locate(entry);
            found += context && !property(context, bindingProperty).empty() ? 1u : 0u;
            // Not freed, because the library keeps it too.
        }
        return found;
    }

    std::size_t list() override {
        std::map<std::wstring, Bytes> listed;
        const CERT_CONTEXT* context = nullptr;
        while ((context = CertEnumCertificatesInStore(store_, context)) != nullptr) {
            const Bytes value = property(context, CERT_KEY_PROV_INFO_PROP_ID);
            CRYPT_KEY_PROV_INFO info{};
            require(value.size() >= sizeof info, "CERT_KEY_PROV_INFO_PROP_ID");
            std::memcpy(&info, value.data(), sizeof info);
            if (info.pwszProvName == std::wstring(csp))
                listed.emplace(
                    info.pwszContainerName,
                    Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded));
        }
        return listed.size();
    }

    void remove() override {
        for (const Entry& entry : entries_)
            require(CertDeleteCertificateFromStore(locate(entry)) != 0,
                    "CertDeleteCertificateFromStore");
    }

private:
    const CERT_CONTEXT* locate(const Entry& entry) {
        const CERT_CONTEXT* wanted = CertCreateCertificateContext(
            X509_ASN_ENCODING, entry.der.data(), static_cast<DWORD>(entry.der.size()));
        const CERT_CONTEXT* found = CertFindCertificateInStore(store_, X509_ASN_ENCODING, 0,
                                                               CERT_FIND_EXISTING, wanted, nullptr);
        CertFreeCertificateContext(wanted);
        return found;
    }

    static Bytes property(const CERT_CONTEXT* context, DWORD id) {
        DWORD size = 0;
        if (!CertGetCertificateContextProperty(context, id, nullptr, &size))
            return {};
        Bytes value(size);
        require(CertGetCertificateContextProperty(context, id, value.data(), &size) != 0,
                "CertGetCertificateContextProperty");
        return value;
    }

    HCERTSTORE store_;
    const std::vector<Entry>& entries_;
};

void measureStore(const char* name, Contender& contender, std::size_t count) {
    const auto row = [&](const char* work, const std::function<void()>& action) {
        bench::measure(std::string(work) + "/" + name + "/" + std::to_string(count), action);
    };
    row("storeadd", [&] { contender.add(); });
    row("storefind", [&] { require(contender.find() == count, "finding"); });
    row("storelist", [&] { require(contender.list() == count, "listing"); });
    row("storeremove", [&] { contender.remove(); });
}

void run(int repetitions) {
    const std::wstring store = L"CSU-Benchmark";
    for (const int count : {10, 100, 1'000}) {
        const std::vector<Entry> entries = entriesOf(count);
        for (int i = 0; i != repetitions; ++i)
            // Who comes first changes, so that neither has the better half of the time.
            for (const bool isLibrary : {i % 2 == 0, i % 2 != 0}) {
                eraseStore(store);
                if (isLibrary) {
                    Library contender(store, entries);
                    measureStore("certstoreupdater", contender, entries.size());
                } else {
                    BareCalls contender(store, entries);
                    measureStore("bare CryptoAPI calls", contender, entries.size());
                }
            }
    }
    eraseStore(store);
}

} // namespace

int main(int count, char** arguments) {
    try {
        run(count > 1 ? std::atoi(arguments[1]) : 5);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "storebench: %s\n", error.what());
        return 1;
    }
}
