// Copying what the library returns and throws.
#include "comparison.h"
#include "corpus.h"
#include "models.h"

#include "certitem.h"
#include "certstoreupdatererror.h"
#include "der.h"

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

void addMaps(std::size_t count) {
    CertMap ours;
    StandardMap standard;
    Cycle certificates;
    for (std::size_t i = 0; i != count; ++i) {
        const Der der = certificates.next();
        const std::wstring name = L"CKAIDHEX:" + std::to_wstring(1'000'000 + i) + L"0123456789ABC";
        const Octets id(20, static_cast<unsigned char>(i));
        const std::wstring label = L"Certificate of holder " + std::to_wstring(i);
        CertItem item;
        item.id = buffer::Buffer<unsigned char>(id.data(), id.size());
        item.label = label.c_str();
        asn1::der::decode({der.data(), der.size()}, item.certificate);
        ours.emplace(name.c_str(), item);
        standard.emplace(name, StandardItem{id, label, Octets(der.begin(), der.end())});
    }
    compare("copymap", library, count, copyOf(std::move(ours)));
    compare("copymap", "std::map of std::wstring", count, copyOf(std::move(standard)));
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

void addEvents() {
    const wchar_t csp[] = L"Provider for the Company's Cards";
    const wchar_t container[] = L"CKAIDHEX:0123456789ABCDEF0123456789ABCDEF01234567";
    const wchar_t file[] = L"src\\certstorehelper.cpp";
    using pkcs11::certstoreupdater::CertStoreUpdaterError_SetKeyProviderInfoFailed;
    CertStoreUpdaterError_SetKeyProviderInfoFailed event(file, 100);
    event.setParam(L"CSP", csp).setParam(L"CONTAINER", container);
    compare("copyevent", library, 1, copyOf(event));

    StandardEvent standard;
    standard.name = event.what();
    standard.file = file;
    standard.line = 100;
    standard.params = {{L"CSP", csp}, {L"CONTAINER", container}};
    compare("copyevent", "std::exception of std::wstring", 1, copyOf(std::move(standard)));
}

} // namespace

void addCopying() {
    for (const std::size_t count : {10u, 100u, 1'000u, 10'000u})
        addMaps(count);
    addEvents();
}

} // namespace bench
