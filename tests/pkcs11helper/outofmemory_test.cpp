// A whole reading of a token, once for each allocation, which fails.
#include "allocationcount.h"
#include "helpertest.h"
#include "pkcs11error.h"

#include <gtest/gtest.h>

namespace {

using faketoken::certificate;
using faketoken::modulePath;
using faketoken::privateKey;
using helpertest::leaf;
using helpertest::pinOf;
using pkcs11::certstoreupdater::Pkcs11Helper;

class OutOfMemory : public faketoken::TokenTest {
protected:
    void expectNothingLeft(std::size_t n) {
        EXPECT_EQ(token->openSessions(), 0u) << n;
        EXPECT_EQ(token->activeSearches(), 0u) << n;
        EXPECT_EQ(token->sessionsLeftAtFinalize, 0u) << n;
        EXPECT_FALSE(token->initialized) << n;
        EXPECT_EQ(token->count("C_Finalize"), token->count("C_Initialize")) << n;
        token->forgetCalls();
    }
};

TEST_F(OutOfMemory, LeavesNothingOpenWhereverItStrikesAReading) {
    objects() = {certificate(leaf(), faketoken::Bytes(20, 1), "a label of many characters"),
                 certificate(leaf(), {2}, "b"), privateKey(faketoken::Bytes(20, 1))};
    const auto pin = pinOf("1234");
    const std::string path = modulePath();
    const std::size_t allocations = testsupport::failEachAllocation(
        [&] {
            Pkcs11Helper helper(path);
            helper.login(pin);
            helper.getAllCerts();
            helper.getCertsWithPrivateKey();
        },
        [&](std::size_t n, bool threw) {
            EXPECT_TRUE(threw) << n;
            expectNothingLeft(n);
        });
    EXPECT_GT(allocations, 20u);
}

TEST_F(OutOfMemory, LeavesNothingOpenWhereverItStrikesAFailure) {
    const auto pin = pinOf("0000");
    const std::string path = modulePath();
    const std::size_t allocations = testsupport::failEachAllocation(
        [&] {
            try {
                Pkcs11Helper helper(path);
                helper.login(pin);
            } catch (const pkcs11::Pkcs11Error&) {
            }
        },
        [&](std::size_t n, bool) { expectNothingLeft(n); });
    EXPECT_GT(allocations, 0u);
    expectNothingLeft(0);
}

TEST_F(OutOfMemory, UnloadsTheModuleWhereverItStrikesAMissingToken) {
    token->slots.clear();
    const std::string path = modulePath();
    const std::size_t allocations = testsupport::failEachAllocation(
        [&] {
            try {
                const Pkcs11Helper helper(path);
            } catch (const korv::GenericEvent&) {
            }
        },
        [&](std::size_t n, bool) { expectNothingLeft(n); });
    EXPECT_GT(allocations, 0u);
    expectNothingLeft(0);
}

} // namespace
