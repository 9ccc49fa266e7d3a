// Lets sandboxed application packages read a file, if Windows trusts its signature.
#include <certstoreupdatererror.h>
#include <codeverifier.h>
#include <mspermissions.h>

#include <iostream>

using namespace pkcs11::certstoreupdater;

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        std::cerr << "usage: publish FILE\n";
        return 2;
    }
    try {
        buffer::Buffer<wchar_t> file = argv[1];
        CodeVerifier::verify(file);

        const AnyPackageSid allPackages;
        MSPermissionsUtils::addPermissions(boost::filesystem::path(argv[1]), allPackages);
        std::cout << "application packages may read it\n";
    } catch (const CertStoreUpdaterError_InvalidFileSignature&) {
        std::cerr << "Windows does not trust its signature\n";
        return 1;
    } catch (const CertStoreUpdaterError_InvalidConfiguration& error) {
        // "Method" is missing if the file has no DACL, which grants everything anyway.
        const auto* method = error.param(L"Method");
        std::wcerr << (method ? method->c_str() : L"its permissions") << L": "
                   << error.param(L"error")->c_str() << L"\n";
        return 1;
    }
    return 0;
}
