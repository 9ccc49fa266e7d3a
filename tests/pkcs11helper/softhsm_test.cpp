// Pkcs11Helper on SoftHSM where only a real module shows that it works.
#include "certbuilder.h"
#include "pkcs11helper.h"
#include "softtoken.h"
#include "testfolder.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <memory>
#include <string>

namespace {

using pkcs11::certstoreupdater::Pkcs11Helper;
using testsupport::SoftToken;

class HelperOfSoftHsm : public testing::Test {
protected:
    HelperOfSoftHsm() {
        token.addCertificate(testsupport::CertBuilder().names("Somebody", "Issuer").build(), {1},
                             "label");
        token.select();
    }

    static std::string path() { return std::filesystem::path(SoftToken::module()).string(); }

    static void logIn(Pkcs11Helper& helper) {
        helper.login(
            {reinterpret_cast<const unsigned char*>(SoftToken::pin.data()), SoftToken::pin.size()});
    }

    /// As other code of the process does that uses the module, too.
    static void finalizeModule() {
        const HMODULE module = GetModuleHandleW(SoftToken::module().c_str());
        const auto finalize = reinterpret_cast<CK_C_Finalize>(
            reinterpret_cast<void (*)()>(GetProcAddress(module, "C_Finalize")));
        ASSERT_TRUE(finalize);
        ASSERT_EQ(finalize(nullptr), CKR_OK);
    }

    testsupport::TestFolder folder;
    SoftToken token{folder.path()};
};

TEST_F(HelperOfSoftHsm, ReadsAModuleThatOthersFinalisedThoughAnEarlierHelperIsStillThere) {
    auto first = std::make_unique<Pkcs11Helper>(path());
    logIn(*first);
    finalizeModule();
    Pkcs11Helper second(path());
    logIn(second);
    EXPECT_EQ(second.getOtherCerts()->size(), 1u);
    // SoftHSM gave the second one's session the number of the first one's.
    first.reset();
    EXPECT_EQ(second.getOtherCerts()->size(), 1u);
}

} // namespace
