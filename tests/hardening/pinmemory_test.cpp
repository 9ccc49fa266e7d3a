// The PIN in the memory of a process that logs in: it is nowhere but where the caller keeps it, so
// that a caller who wipes it has wiped every copy.
#include "expectcryptokierror.h"
#include "memorysearch.h"
#include "pkcs11helper.h"
#include "tokentest.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

using faketoken::modulePath;
using hardening::Disguised;
using hardening::timesInMemory;
using pkcs11::certstoreupdater::Pkcs11Helper;

/// A short PIN lies in its buffer's own object, a long one in a block.
class PinInMemory : public faketoken::TokenTest, public testing::WithParamInterface<std::size_t> {
protected:
    PinInMemory() {
        secret.reveal(pin.data());
        // The token knows its PIN, and does not write down those that it is given.
        token->recordPins = false;
        token->slots[0].pin.resize(secret.size());
        secret.reveal(token->slots[0].pin.data());
    }
    void wipe() {
        SecureZeroMemory(pin.data(), pin.size());
        SecureZeroMemory(token->slots[0].pin.data(), token->slots[0].pin.size());
    }

    static constexpr std::size_t callersAndTokens = 2;

    const Disguised secret{static_cast<unsigned>(GetParam()), GetParam()};
    buffer::Buffer<unsigned char> pin{secret.size()};
};

TEST_P(PinInMemory, IsNowhereOnceTheCallerHasWipedIt) {
    {
        Pkcs11Helper helper(modulePath());
        helper.login(pin);
        helper.getAllCerts();
        EXPECT_EQ(timesInMemory(secret), callersAndTokens);
    }
    EXPECT_EQ(timesInMemory(secret), callersAndTokens);
    wipe();
    EXPECT_EQ(timesInMemory(secret), 0u);
}

TEST_P(PinInMemory, IsNotInTheErrorOfATokenThatRefusesIt) {
    token->fail("C_Login", 1, CKR_PIN_INCORRECT);
    Pkcs11Helper helper(modulePath());
    const auto error = faketoken::cryptokiErrorOf([&] { helper.login(pin); });
    ASSERT_TRUE(error);
    wipe();
    EXPECT_EQ(timesInMemory(secret), 0u);
}

INSTANTIATE_TEST_SUITE_P(OfBytes, PinInMemory, testing::Values(8, 15, 16, 40),
                         testing::PrintToStringParamName());

// What the tests above rely on.
class MemorySearch : public testing::Test {
protected:
    // No test finds what another one left behind.
    static inline unsigned lastSeed = 0xBEEF;
    const Disguised secret{++lastSeed, 24};
};

TEST_F(MemorySearch, DoesNotFindWhatIsOnlyInDisguise) {
    EXPECT_EQ(timesInMemory(secret), 0u);
}

TEST_F(MemorySearch, FindsACopyInAnObject) {
    unsigned char copy[Disguised::capacity + 1];
    secret.reveal(copy + 1);
    EXPECT_EQ(timesInMemory(secret), 1u);
    SecureZeroMemory(copy, sizeof copy);
    EXPECT_EQ(timesInMemory(secret), 0u);
}

TEST_F(MemorySearch, FindsCopiesInBlocks) {
    std::vector<unsigned char> bytes(secret.size());
    secret.reveal(bytes.data());
    EXPECT_EQ(timesInMemory(secret), 1u);
    std::vector<unsigned char> copy = bytes;
    EXPECT_EQ(timesInMemory(secret), 2u);
    SecureZeroMemory(copy.data(), copy.size());
    SecureZeroMemory(bytes.data(), bytes.size());
    EXPECT_EQ(timesInMemory(secret), 0u);
}

TEST_F(MemorySearch, FindsWhatWasFreedAndNotWiped) {
    auto* const block = static_cast<unsigned char*>(::operator new(4096));
    secret.reveal(block + 2048);
    ::operator delete(block);
    EXPECT_EQ(timesInMemory(secret), 1u);
}

TEST_F(MemorySearch, FindsWhatWasMadeUtf16) {
    std::wstring text(secret.size(), L'\0');
    for (std::size_t i = 0; i != secret.size(); ++i)
        text[i] = static_cast<wchar_t>(secret[i]);
    EXPECT_EQ(timesInMemory(secret), 1u);
    SecureZeroMemory(text.data(), text.size() * sizeof(wchar_t));
    EXPECT_EQ(timesInMemory(secret), 0u);
}

} // namespace
