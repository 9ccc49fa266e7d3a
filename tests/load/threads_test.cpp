// A hundred threads that verify files, list CSPs and grant permissions at once.
#include "certstorehelper.h"
#include "certstoreupdatererror.h"
#include "codeverifier.h"
#include "mspermissions.h"

#include "descriptors.h"
#include "filesecurity.h"
#include "importslot.h"
#include "installedcsp.h"
#include "onallthreads.h"
#include "signedfiles.h"
#include "temporaryfolder.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using descriptors::Bytes;
using pkcs11::certstoreupdater::CertStoreHelper;
using pkcs11::certstoreupdater::CertStoreUpdaterError_InvalidFileSignature;
using pkcs11::certstoreupdater::CodeVerifier;
using testsupport::ImportSlot;

[[maybe_unused]] const auto* const authority =
    ::testing::AddGlobalTestEnvironment(new signedfiles::TrustedAuthority);

constexpr int manyThreads = 100;

bool isTrusted(const wchar_t* file) {
    const std::filesystem::path path = signedfiles::folder() / file;
    buffer::Buffer<wchar_t> text(path.c_str());
    try {
        CodeVerifier::verify(text);
        return true;
    } catch (const CertStoreUpdaterError_InvalidFileSignature&) {
        return false;
    }
}

/// Keeps the DACLs of files by their paths, where the system does not.
class KeptDacls {
public:
    KeptDacls() {
        if (mspermissions_test::filesKeepDacls())
            return;
        const HMODULE library = GetModuleHandleW(L"certstoreupdater.dll");
        ImportSlot(library, "advapi32.dll", "GetFileSecurityW")
            .redirect(reinterpret_cast<ImportSlot::Address>(&get));
        ImportSlot(library, "advapi32.dll", "SetFileSecurityW")
            .redirect(reinterpret_cast<ImportSlot::Address>(&set));
    }

private:
    static BOOL WINAPI get(LPCWSTR path, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR buffer,
                           DWORD size, LPDWORD needed) {
        const std::lock_guard lock(mutex);
        const Bytes& bytes =
            dacls.try_emplace(path, descriptors::fromSddl(L"D:(A;;FA;;;WD)")).first->second;
        *needed = static_cast<DWORD>(bytes.size());
        if (size < bytes.size()) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::memcpy(buffer, bytes.data(), bytes.size());
        return TRUE;
    }
    static BOOL WINAPI set(LPCWSTR path, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR descriptor) {
        Bytes bytes = descriptors::daclOnly(descriptor);
        const std::lock_guard lock(mutex);
        dacls[path] = std::move(bytes);
        return TRUE;
    }

    static inline std::mutex mutex;
    static inline std::map<std::wstring, Bytes> dacls;
};

/// How often each thing went as it should.
struct Counts {
    std::atomic<int> trusted = 0;
    std::atomic<int> refused = 0;
    std::atomic<int> listed = 0;
    std::atomic<int> granted = 0;
};

class StaticFunctions : public testing::Test {
protected:
    void grantTree(int number, Counts& counts) const {
        const std::filesystem::path root = folder.path() / std::to_string(number);
        const AnyPackageSid sid;
        const auto hasPermissions = [&](const std::filesystem::path& path) {
            return MSPermissionsUtils::hasPermissions(SecurityDescriptorDacl(path.native()), sid);
        };
        EXPECT_FALSE(hasPermissions(root));
        MSPermissionsUtils::addPermissionsRecursive(root.c_str(), sid);
        counts.granted += hasPermissions(root) && hasPermissions(root / "file.txt") &&
                          hasPermissions(root / "inner" / "file.txt");
    }

    void listCsps(Counts& counts) const {
        const auto names = CertStoreHelper::listCSPs();
        counts.listed += std::find(names->begin(), names->end(), csp.name()) != names->end();
    }

    static void verifyFiles(Counts& counts) {
        counts.trusted += isTrusted(L"signed.exe");
        counts.refused += !isTrusted(L"tampered.exe");
    }

    const testsupport::TemporaryFolder folder{"certstoreupdater load"};
    const testsupport::InstalledCsp csp{L"Load CSP " + std::to_wstring(GetCurrentProcessId())};
    const KeptDacls dacls;
};

TEST_F(StaticFunctions, AnswerAHundredThreadsAtOnce) {
    for (int number = 0; number != manyThreads; ++number)
        for (const char* file : {"file.txt", "inner/file.txt"})
            folder.makeFile(std::to_string(number) + "/" + file);
    Counts counts;
    testsupport::onAllThreads(
        [&](int number) {
            // Not all the same at the same time.
            for (int step = number; step != number + 3; ++step)
                switch (step % 3) {
                case 0:
                    verifyFiles(counts);
                    break;
                case 1:
                    listCsps(counts);
                    break;
                default:
                    grantTree(number, counts);
                    break;
                }
        },
        manyThreads);
    EXPECT_EQ(counts.trusted, manyThreads);
    EXPECT_EQ(counts.refused, manyThreads);
    EXPECT_EQ(counts.listed, manyThreads);
    EXPECT_EQ(counts.granted, manyThreads);
}

} // namespace
