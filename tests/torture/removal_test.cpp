// Deleting the certificates of a token from a store, once for every call of Windows that can fail.
// That needs no memory: a certificate that was decoded keeps its encoding.
#include "updatetest.h"
#include "windowserrors.h"

#include "certstorehelper.h"

#include <memory>
#include <vector>

namespace torture {
namespace {

using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreHelper;

class RemovalFailure : public UpdateTest {
protected:
    void SetUp() override {
        UpdateTest::SetUp();
        certs = readToken();
    }

    Outcome remove() {
        return outcomeOf([&] { CertStoreHelper(store.name()).deleteCertificates(*certs); });
    }

    Outcome expectedOutcome(const WindowsCall& call, DWORD error) const {
        if (call.function == "CertOpenSystemStoreW")
            return {"CertStoreUpdaterError_OpenSystemStore", {{L"STORE", store.name()}}, {}};
        if (call.function == "CertDeleteCertificateFromStore" && error != ERROR_CANCELLED)
            return {"CertStoreUpdaterError_DeleteCertificateFailed", {}, {}};
        return success; // it is not there, or the user wants to keep it
    }

    void expectNothingIsHeld() {
        EXPECT_EQ(windows.contexts.held() + windows.stores.held(), 0u);
        EXPECT_EQ(windows.contexts.strays() + windows.stores.strays(), 0u);
        expectNoPartialEntries();
    }

    void expectCanBeFinishedAndUndone() {
        windows.begin();
        EXPECT_EQ(remove(), success);
        expectRemoved();
        expectStoreCanBeCompleted();
    }

    std::unique_ptr<CertMap> certs;
};

TEST_F(RemovalFailure, OfEachCallWithEachErrorIsReportedOrSwallowedAndLosesNothing) {
    Tally tally("Windows calls of a removal");
    windows.begin();
    EXPECT_EQ(remove(), success);
    const std::vector<WindowsCall> calls = windows.calls();
    expectCanBeFinishedAndUndone();
    failEachCall(tally, calls, [&](std::size_t n, DWORD error) {
        windows.begin(n, error);
        EXPECT_EQ(remove(), expectedOutcome(calls[n - 1], error));
        EXPECT_NE(windows.failedCall(), nullptr);
        expectNothingIsHeld();
        expectCanBeFinishedAndUndone();
    });
}

} // namespace
} // namespace torture
