// Copying what the library returns and throws.
#include "comparison.h"
#include "corpus.h"
#include "models.h"

#include "certitem.h"
#include "certstoreupdatererror.h"
#include "der.h"
#include "pkcs11error.h"

#include <map>
#include <optional>

namespace bench {

namespace {

using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;
using Octets = std::vector<unsigned char>;

struct StandardItem {
    Octets id;
    std::wstring label;
    Octets certificate;
};
using StandardMap = std::map<std::wstring, StandardItem>;

template <class Value>
auto copyOf(Value value) {
    return [value = std::move(value)] {
        Value copy(value);
        benchmark::DoNotOptimize(copy);
        return sizeof copy;
    };
}

struct TokenItem {
    std::wstring container;
    Octets id;
    std::wstring label;
    Der certificate;
};

/// What a harvest reads, with ids of 20 bytes.
std::vector<TokenItem> tokenItems(std::size_t count) {
    std::vector<TokenItem> items;
    Cycle certificates;
    for (std::size_t i = 0; i != count; ++i) {
        const std::wstring number = std::to_wstring(i);
        items.push_back({L"CKAIDHEX:" + std::wstring(40 - number.size(), L'0') + number,
                         Octets(20, static_cast<unsigned char>(i)),
                         L"Certificate of holder " + number, certificates.next()});
    }
    return items;
}

CertMap mapOf(const std::vector<TokenItem>& items) {
    CertMap map;
    for (const TokenItem& each : items) {
        CertItem item;
        item.id = buffer::Buffer<unsigned char>(each.id.data(), each.id.size());
        item.label = each.label.c_str();
        asn1::der::decode({each.certificate.data(), each.certificate.size()}, item.certificate);
        map.emplace(each.container.c_str(), std::move(item));
    }
    return map;
}

StandardMap standardMapOf(const std::vector<TokenItem>& items) {
    StandardMap map;
    for (const TokenItem& each : items)
        map.emplace(each.container,
                    StandardItem{each.id, each.label,
                                 Octets(each.certificate.begin(), each.certificate.end())});
    return map;
}

/// Tells the report what a map keeps of the heap for each certificate, and how long a certificate
/// is.
void reportMemory(const char* contender, const std::vector<TokenItem>& items,
                  std::size_t heapBytes) {
    std::size_t derBytes = 0;
    for (const TokenItem& item : items)
        derBytes += item.certificate.size();
    benchmark::AddCustomContext(
        std::string("memory/") + contender + "/" + std::to_string(items.size()),
        std::to_string(heapBytes / items.size()) + " " + std::to_string(derBytes / items.size()));
}

void addMaps(std::size_t count) {
    constexpr char standardMap[] = "std::map of std::wstring";
    const std::vector<TokenItem> items = tokenItems(count);
    const std::size_t before = heapUse().bytes;
    CertMap ours = mapOf(items);
    const std::size_t between = heapUse().bytes;
    StandardMap standard = standardMapOf(items);
    reportMemory(library, items, between - before);
    reportMemory(standardMap, items, heapUse().bytes - between);
    compare("copymap", library, count, copyOf(std::move(ours)));
    compare("copymap", standardMap, count, copyOf(std::move(standard)));
}

/// An exception with the same contents, made of the standard library.
class StandardEvent : public std::exception {
public:
    StandardEvent() = default;
    StandardEvent(const StandardEvent& other)
        : std::exception(other), name(other.name), file(other.file), line(other.line),
          params(other.params),
          parent(other.parent ? std::make_unique<StandardEvent>(*other.parent) : nullptr) {}

    std::string name;
    std::wstring file;
    int line = 0;
    std::vector<std::pair<std::wstring, std::wstring>> params;
    std::unique_ptr<StandardEvent> parent;
};

std::wstring standardText(const buffer::Buffer<wchar_t>& text) {
    return {text.begin(), text.end()};
}

StandardEvent standardEventOf(const korv::GenericEvent& event) {
    StandardEvent standard;
    standard.name = event.what();
    standard.file = standardText(event.file());
    standard.line = event.line();
    for (const auto& [key, value] : event.params())
        standard.params.emplace_back(standardText(key), standardText(value));
    if (event.parent())
        standard.parent = std::make_unique<StandardEvent>(standardEventOf(*event.parent()));
    return standard;
}

template <class Event>
void addEvent(const char* work, const Event& event) {
    compare(work, library, 1, copyOf(event));
    compare(work, "std::exception of std::wstring", 1, copyOf(standardEventOf(event)));
}

void addEvents() {
    using pkcs11::certstoreupdater::CertStoreUpdaterError_SetKeyProviderInfoFailed;
    CertStoreUpdaterError_SetKeyProviderInfoFailed bindingFailed(L"src\\certstorehelper.cpp", 100);
    bindingFailed.setParam(L"CSP", L"Provider for the Company's Cards")
        .setParam(L"CONTAINER", L"CKAIDHEX:0123456789ABCDEF0123456789ABCDEF01234567");
    addEvent("copyevent", bindingFailed);

    korv::GenericEvent reason("ModuleNotLoaded", L"pkcs11\\src\\modulelibrary.cpp", 50, 0);
    reason.setParam(L"MODULE", L"C:\\Program Files\\Company\\cards.dll").setParam(L"ERROR", L"126");
    pkcs11::Pkcs11Error_CryptokiError notLoaded(L"pkcs11\\src\\cklibrary.cpp", 60);
    notLoaded.setParent(reason).setParam(L"CRYPTOKY_ERROR_CODE", L"5");
    addEvent("copyeventwithparent", notLoaded);
}

} // namespace

void addCopying() {
    for (const std::size_t count : {10u, 100u, 1'000u, 10'000u})
        addMaps(count);
    addEvents();
}

} // namespace bench
