// Uses a bit of everything that the installed library exports: consumer.exe VERSION MODULE
// VERSION is what DLL and program must say of themselves, MODULE a PKCS #11 module whose token has
// not been initialised.
#include <anypackagesid.h>
#include <certstorehelper.h>
#include <codeverifier.h>
#include <der.h>
#include <mspermissions.h>
#include <nametext.h>
#include <oids.h>
#include <pkcs11error.h>
#include <pkcs11helper.h>

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using namespace pkcs11::certstoreupdater;

namespace {

void expect(bool holds, const std::string& what) {
    if (!holds)
        throw std::runtime_error(what);
}

/// The program and the DLL lie in one folder.
std::filesystem::path fileBeside(const wchar_t* name) {
    std::wstring self(32768, L'\0');
    self.resize(GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
    return std::filesystem::path(self).parent_path() / name;
}

std::wstring fileVersion(const std::filesystem::path& file) {
    std::vector<unsigned char> resource(GetFileVersionInfoSizeW(file.c_str(), nullptr));
    void* text = nullptr;
    UINT length = 0;
    expect(GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(resource.size()),
                               resource.data()) &&
               VerQueryValueW(resource.data(), L"\\StringFileInfo\\040904B0\\FileVersion", &text,
                              &length),
           file.string() + " has no version");
    return static_cast<const wchar_t*>(text);
}

void checkVersions(const std::string& version) {
    const std::wstring wanted(version.begin(), version.end());
    for (const wchar_t* name : {L"certstoreupdater.dll", L"certstoreupdate.exe"})
        expect(fileVersion(fileBeside(name)) == wanted, "a version is not " + version);
}

/// An exception that the DLL throws is caught by its type, and by its bases, and can be thrown on.
void checkExceptions(const std::string& module) {
    try {
        Pkcs11Helper token(module);
        token.login(buffer::Buffer<unsigned char>());
        expect(false, "a token without a PIN took one");
    } catch (const CertStoreUpdaterError_TokenNotInitialized& error) {
        expect(error.params().empty(), "the error has parameters");
    }
    const int before = std::uncaught_exceptions();
    try {
        try {
            Pkcs11Helper token("missing.dll");
        } catch (const korv::GenericEvent&) {
            throw;
        }
        expect(false, "a missing module was loaded");
    } catch (const pkcs11::Pkcs11Error_CryptokiError& error) {
        expect(error.parent() != nullptr, "the error does not say why");
        expect(*error.param(L"CRYPTOKY_ERROR_CODE") == buffer::Buffer<wchar_t>(L"5"),
               "the error has another code");
    }
    expect(std::uncaught_exceptions() == before, "an exception is still in flight");
}

void checkNames() {
    const unsigned char encoding[] = {0x30, 0x11, 0x31, 0x0f, 0x30, 0x0d, 0x06, 0x03, 0x55, 0x04,
                                      0x03, 0x0c, 0x06, 'A',  ',',  ' ',  'B',  '+',  'C'};
    asn1::RDNSequence name;
    asn1::der::decode({encoding, encoding + sizeof encoding}, name);
    const buffer::Buffer<wchar_t> text = asn1::toText(name);
    expect(std::wstring_view(text.c_str(), text.size()) == L"CN=A\\, B\\+C", "a name is wrong");
    expect(name.find(asn1::id_at_commonName, 1).has_value(), "a name has no commonName");
}

void checkStore() {
    CertStoreHelper store(L"csu-consumer");
    expect(store.listCertsByCsp(L"csu consumer's CSP", false)->empty(), "the store is not empty");
    expect(!CertStoreHelper::listCSPs()->empty(), "there is no CSP");
    bool refused = false;
    try {
        store.findCertificate(asn1::Certificate());
    } catch (const asn1::QuorError_Asn1&) {
        refused = true;
    }
    expect(refused, "a certificate without a value was looked for");
}

void checkFiles() {
    bool trusted = true;
    try {
        buffer::Buffer<wchar_t> path(fileBeside(L"certstoreupdater.dll").c_str());
        CodeVerifier::verify(path);
    } catch (const CertStoreUpdaterError_InvalidFileSignature&) {
        trusted = false;
    }
    expect(!trusted, "a DLL that nobody signed is trusted");
    const AnyPackageSid sid;
    expect(sid.getLengthSid() == 16, "the identifier is not 16 bytes long");
    try {
        MSPermissionsUtils::addPermissions(fileBeside(L"missing").wstring(), sid);
        expect(false, "a missing file was granted");
    } catch (const CertStoreUpdaterError_InvalidConfiguration& error) {
        expect(*error.param(L"Method") == buffer::Buffer<wchar_t>(L"GetFileSecurity"),
               "the error has another method");
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: consumer VERSION MODULE\n";
        return 2;
    }
    try {
        checkVersions(argv[1]);
        checkExceptions(argv[2]);
        checkNames();
        checkStore();
        checkFiles();
    } catch (const std::exception& error) {
        std::cerr << "consumer: " << error.what() << "\n";
        return 1;
    }
    std::cout << "used the library\n";
}
