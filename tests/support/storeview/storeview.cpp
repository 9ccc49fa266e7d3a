// System stores as any program sees them.
#include "storeview.h"

#include "childprocess.h"
#include "hex.h"

#include <cstring>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <type_traits>

namespace testsupport {

namespace {

struct CloseStore {
    void operator()(HCERTSTORE store) const { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<std::remove_pointer_t<HCERTSTORE>, CloseStore>;

struct FreeContext {
    void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
using Context = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

Store open(const std::wstring& name) {
    Store store(CertOpenSystemStoreW(0, name.c_str()));
    if (!store)
        throw std::runtime_error("the store cannot be opened");
    return store;
}

std::optional<Bytes> readProperty(const CERT_CONTEXT* context, DWORD id) {
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(context, id, nullptr, &size))
        return std::nullopt;
    Bytes value(size);
    if (!CertGetCertificateContextProperty(context, id, value.data(), &size))
        throw std::runtime_error("a property is there but cannot be read");
    value.resize(size);
    return value;
}

std::optional<KeyProvInfo> readKeyProvInfo(const CERT_CONTEXT* context) {
    const std::optional<Bytes> value = readProperty(context, CERT_KEY_PROV_INFO_PROP_ID);
    if (!value)
        return std::nullopt;
    CRYPT_KEY_PROV_INFO info{};
    if (value->size() < sizeof info)
        throw std::runtime_error("key provider information is too short");
    std::memcpy(&info, value->data(), sizeof info);
    return KeyProvInfo::of(info);
}

StoreEntry readEntry(const CERT_CONTEXT* context) {
    return {Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded),
            readKeyProvInfo(context), readProperty(context, CERT_FRIENDLY_NAME_PROP_ID),
            readProperty(context, korvaneCspRefId)};
}

void require(BOOL succeeded, const char* what) {
    if (const DWORD error = GetLastError(); !succeeded)
        throw std::runtime_error(std::string(what) + " failed with error " + std::to_string(error));
}

void setProperty(const CERT_CONTEXT* context, DWORD id, const void* value) {
    require(CertSetCertificateContextProperty(context, id, 0, value), "setting a property");
}

void setBlob(const CERT_CONTEXT* context, DWORD id, const std::optional<Bytes>& value) {
    if (!value)
        return;
    Bytes bytes = *value;
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>(bytes.size()), bytes.data()};
    setProperty(context, id, &blob);
}

void setKeyProvInfo(const CERT_CONTEXT* context, KeyProvInfo value) {
    CRYPT_KEY_PROV_INFO info{};
    info.pwszContainerName = value.container ? value.container->data() : nullptr;
    info.pwszProvName = value.provider ? value.provider->data() : nullptr;
    info.dwProvType = value.type;
    info.dwFlags = value.flags;
    info.dwKeySpec = value.keySpec;
    setProperty(context, CERT_KEY_PROV_INFO_PROP_ID, &info);
}

constexpr char none[] = "-";

// The x keeps the word of no bytes from being empty.
std::string wordOf(const Bytes& bytes) {
    return "x" + toHex(bytes);
}

std::string wordOf(const std::optional<Bytes>& bytes) {
    return bytes ? wordOf(*bytes) : none;
}

std::string wordOf(const std::optional<std::wstring>& text) {
    return text ? wordOf(friendlyNameBytes(*text)) : none;
}

std::optional<Bytes> takeBytes(std::istream& words) {
    std::string word;
    if (!(words >> word))
        throw std::runtime_error("a line of a store ends too early");
    return word == none ? std::nullopt : std::optional(fromHex(word.substr(1)));
}

std::optional<std::wstring> takeText(std::istream& words) {
    const std::optional<Bytes> bytes = takeBytes(words);
    if (!bytes)
        return std::nullopt;
    std::wstring text(bytes->size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes->data(), text.size() * sizeof(wchar_t));
    text.resize(text.find(L'\0'));
    return text;
}

/// Runs storetool.exe with some input and returns its output.
std::string runStoreTool(const std::wstring& arguments, const std::string& input) {
    const ChildResult result =
        runChild(L"\"" + folderOfThisProgram() + L"storetool.exe\" " + arguments, input);
    if (result.exitCode != 0)
        throw std::runtime_error("storetool.exe failed: " + result.errors);
    return result.output;
}

std::wstring storeArgument(const std::wstring& name) {
    return L" \"" + name + L"\"";
}

} // namespace

KeyProvInfo KeyProvInfo::of(const CRYPT_KEY_PROV_INFO& info) {
    const auto text = [](const wchar_t* name) {
        return name ? std::optional<std::wstring>(name) : std::nullopt;
    };
    return {text(info.pwszContainerName),
            text(info.pwszProvName),
            info.dwProvType,
            info.dwFlags,
            info.cProvParam,
            info.dwKeySpec};
}

void PrintTo(const KeyProvInfo& info, std::ostream* out) {
    *out << wordOf(info.container) << ' ' << wordOf(info.provider) << ' ' << info.type << ' '
         << info.flags << ' ' << info.parameterCount << ' ' << info.keySpec;
}

void PrintTo(const StoreEntry& entry, std::ostream* out) {
    *out << toLine(entry);
}

Bytes friendlyNameBytes(const std::wstring& name) {
    Bytes bytes((name.size() + 1) * sizeof(wchar_t));
    std::memcpy(bytes.data(), name.c_str(), bytes.size());
    return bytes;
}

std::vector<StoreEntry> readStore(const std::wstring& name) {
    const Store store = open(name);
    std::vector<StoreEntry> entries;
    Context context;
    while (context.reset(CertEnumCertificatesInStore(store.get(), context.release())), context)
        entries.push_back(readEntry(context.get()));
    return entries;
}

std::vector<StoreEntry> readStoreInOtherProcess(const std::wstring& name) {
    std::istringstream lines(runStoreTool(L"list" + storeArgument(name), ""));
    std::vector<StoreEntry> entries;
    std::string line;
    while (std::getline(lines, line))
        entries.push_back(fromLine(line));
    return entries;
}

void addToStore(const std::wstring& name, const StoreEntry& entry) {
    const Store store = open(name);
    const CERT_CONTEXT* added = nullptr;
    require(CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING, entry.encoded.data(),
                                             static_cast<DWORD>(entry.encoded.size()),
                                             CERT_STORE_ADD_NEW, &added),
            "adding a certificate");
    const Context context(added);
    if (entry.keyProvInfo)
        setKeyProvInfo(added, *entry.keyProvInfo);
    setBlob(added, CERT_FRIENDLY_NAME_PROP_ID, entry.friendlyName);
    setBlob(added, korvaneCspRefId, entry.korvaneCspRef);
}

void addToStoreInOtherProcess(const std::wstring& name, const StoreEntry& entry) {
    runStoreTool(L"add" + storeArgument(name), toLine(entry) + "\n");
}

void removeFromStore(const std::wstring& name, const Bytes& encoded) {
    const Store store = open(name);
    const Context wanted(CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(),
                                                      static_cast<DWORD>(encoded.size())));
    const CERT_CONTEXT* found = CertFindCertificateInStore(
        store.get(), X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, wanted.get(), nullptr);
    if (!found)
        throw std::runtime_error("the certificate is not in the store");
    require(CertDeleteCertificateFromStore(found), "deleting a certificate");
}

void eraseStore(const std::wstring& name) {
    RegDeleteTreeW(HKEY_CURRENT_USER,
                   (L"Software\\Microsoft\\SystemCertificates\\" + name).c_str());
}

TestStore::TestStore() {
    static unsigned count = 0;
    name_ = L"CSU-Test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
    eraseStore(name_); // left behind by a test that crashed
}

std::string toLine(const StoreEntry& entry) {
    std::ostringstream line;
    line << wordOf(entry.encoded) << ' ' << wordOf(entry.friendlyName) << ' '
         << wordOf(entry.korvaneCspRef);
    if (entry.keyProvInfo) {
        line << ' ';
        PrintTo(*entry.keyProvInfo, &line);
    }
    return line.str();
}

StoreEntry fromLine(const std::string& line) {
    std::istringstream words(line);
    StoreEntry entry;
    entry.encoded = takeBytes(words).value();
    entry.friendlyName = takeBytes(words);
    entry.korvaneCspRef = takeBytes(words);
    if (words >> std::ws && !words.eof()) {
        KeyProvInfo info;
        info.container = takeText(words);
        info.provider = takeText(words);
        words >> info.type >> info.flags >> info.parameterCount >> info.keySpec;
        entry.keyProvInfo = info;
    }
    return entry;
}

} // namespace testsupport
