// A program that knows nothing of the layer, to be started by the launcher:
//   launched echo ARGUMENT...  prints its arguments, one a line, then copies its input
//   launched exit CODE         ends with that code, after a line on standard error
//   launched property STORE    sets a property of an application's own on the store's first
//                              certificate and ends with 0 if it is kept
#include <windows.h>

#include <shellapi.h>
#include <wincrypt.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>

namespace {

int echo(int count, wchar_t** arguments) {
    for (int i = 2; i != count; ++i)
        std::printf("[%ls]\n", arguments[i]);
    for (int c = std::getchar(); c != EOF; c = std::getchar())
        std::putchar(c);
    return 0;
}

int endWith(const wchar_t* code) {
    std::fputs("ending\n", stderr);
    return static_cast<int>(std::wcstol(code, nullptr, 10));
}

int keepsProperty(const wchar_t* name) {
    const HCERTSTORE store = CertOpenSystemStoreW(0, name);
    const CERT_CONTEXT* certificate = CertEnumCertificatesInStore(store, nullptr);
    unsigned char bytes[] = {'a', '\n', 'b', '\n'};
    const CRYPT_DATA_BLOB blob{sizeof bytes, bytes};
    const BOOL set = certificate && CertSetCertificateContextProperty(certificate, 54086, 0, &blob);
    CertFreeCertificateContext(certificate);
    CertCloseStore(store, 0);
    return set ? 0 : 1;
}

} // namespace

int main() {
    int count = 0;
    wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    const std::wstring command = count > 1 ? arguments[1] : L"";
    if (command == L"echo")
        return echo(count, arguments);
    if (command == L"exit" && count == 3)
        return endWith(arguments[2]);
    if (command == L"property" && count == 3)
        return keepsProperty(arguments[2]);
    return 99;
}
