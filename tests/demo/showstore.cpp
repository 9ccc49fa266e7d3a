// Shows a system store to the demo, read through CryptoAPI alone and in a process of its own.
//   showstore list STORE         prints every certificate with all that the updater writes
//   showstore add STORE FILE     adds the DER certificate in FILE, as some other program would
//   showstore remove STORE FILE  removes it
//   showstore erase STORE        removes the store itself
#include <windows.h>

#include <shellapi.h>
#include <wincrypt.h>

#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct CloseStore {
    void operator()(HCERTSTORE store) const noexcept { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<std::remove_pointer_t<HCERTSTORE>, CloseStore>;

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const noexcept {
        CertFreeCertificateContext(context);
    }
};
using Context = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

constexpr DWORD bindingPropertyId = 54086;

void require(bool succeeded, const char* what) {
    if (!succeeded)
        throw std::runtime_error(std::string(what) + " failed with error " +
                                 std::to_string(GetLastError()));
}

Store open(const wchar_t* name) {
    Store store(CertOpenSystemStoreW(0, name));
    require(store != nullptr, "opening the store");
    return store;
}

std::string utf8(const std::wstring& text) {
    const auto size = static_cast<int>(text.size());
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

std::optional<Bytes> property(const CERT_CONTEXT* context, DWORD id) {
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(context, id, nullptr, &size))
        return std::nullopt;
    Bytes value(size);
    require(CertGetCertificateContextProperty(context, id, value.data(), &size) != FALSE,
            "reading a property");
    value.resize(size);
    return value;
}

std::string commonName(const CERT_CONTEXT* context) {
    std::wstring name(256, L'\0');
    const DWORD size = CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr,
                                          name.data(), static_cast<DWORD>(name.size()));
    name.resize(size == 0 ? 0 : size - 1);
    return utf8(name);
}

std::string friendlyName(const CERT_CONTEXT* context) {
    const auto value = property(context, CERT_FRIENDLY_NAME_PROP_ID);
    if (!value)
        return "none";
    std::wstring text(value->size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value->data(), text.size() * sizeof(wchar_t));
    return utf8(text.c_str());
}

std::string binding(const CERT_CONTEXT* context) {
    const auto value = property(context, bindingPropertyId);
    if (!value)
        return "none";
    std::string text = "\"";
    for (const unsigned char byte : *value)
        text += byte == '\n' ? std::string("\\n") : std::string(1, static_cast<char>(byte));
    return text + "\"";
}

const char* keySpecName(DWORD keySpec) {
    switch (keySpec) {
    case AT_KEYEXCHANGE:
        return "1 (key exchange)";
    case AT_SIGNATURE:
        return "2 (signature)";
    default:
        return "0";
    }
}

std::string orNone(const wchar_t* text) {
    return text ? utf8(text) : "none";
}

std::string keyProvider(const CERT_CONTEXT* context) {
    const auto value = property(context, CERT_KEY_PROV_INFO_PROP_ID);
    if (!value)
        return "  key provider   none\n";
    CRYPT_KEY_PROV_INFO info{};
    std::memcpy(&info, value->data(), sizeof info);
    return "  container      " + orNone(info.pwszContainerName) + "\n  CSP            " +
           orNone(info.pwszProvName) + "\n  key spec       " + keySpecName(info.dwKeySpec) + '\n';
}

/// By name: the store's own order is that of hashes.
void list(const wchar_t* name) {
    const Store store = open(name);
    std::multiset<std::string> entries;
    Context context;
    while (context.reset(CertEnumCertificatesInStore(store.get(), context.release())), context)
        entries.insert(commonName(context.get()) + "\n  friendly name  " +
                       friendlyName(context.get()) + '\n' + keyProvider(context.get()) +
                       "  binding        " + binding(context.get()) + '\n');
    for (const std::string& entry : entries)
        std::cout << entry;
}

Bytes contentsOf(const wchar_t* file) {
    std::ifstream in(std::filesystem::path(file), std::ios::binary);
    if (!in)
        throw std::runtime_error("the certificate file cannot be read");
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void add(const wchar_t* name, const wchar_t* file) {
    const Store store = open(name);
    const Bytes der = contentsOf(file);
    require(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, der.data(),
                                             static_cast<DWORD>(der.size()), CERT_STORE_ADD_NEW,
                                             nullptr) != FALSE,
            "adding the certificate");
}

void remove(const wchar_t* name, const wchar_t* file) {
    const Store store = open(name);
    const Bytes der = contentsOf(file);
    const Context wanted(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                                      static_cast<DWORD>(der.size())));
    const CERT_CONTEXT* found = CertFindCertificateInStore(
        store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, wanted.get(), nullptr);
    require(found != nullptr, "finding the certificate");
    require(CertDeleteCertificateFromStore(found) != FALSE, "removing the certificate");
}

void erase(const std::wstring& name) {
    RegDeleteTreeW(HKEY_CURRENT_USER,
                   (L"Software\\Microsoft\\SystemCertificates\\" + name).c_str());
}

int run(int count, wchar_t** arguments) {
    const std::wstring command = count > 1 ? arguments[1] : L"";
    if (command == L"list" && count == 3)
        list(arguments[2]);
    else if (command == L"add" && count == 4)
        add(arguments[2], arguments[3]);
    else if (command == L"remove" && count == 4)
        remove(arguments[2], arguments[3]);
    else if (command == L"erase" && count == 3)
        erase(arguments[2]);
    else {
        std::cerr << "usage: showstore list|erase STORE, or showstore add|remove STORE FILE\n";
        return 2;
    }
    return 0;
}

} // namespace

int main() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    try {
        return run(count, arguments);
    } catch (const std::exception& error) {
        std::cerr << "showstore: " << error.what() << '\n';
        return 1;
    }
}
