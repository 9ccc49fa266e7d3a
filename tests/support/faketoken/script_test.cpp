// The fake token scripted by a file, as it is in another process.
#include "loadedtoken.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace faketoken {
namespace {

void setScript(const std::string& path) {
#ifdef _WIN32
    _putenv_s("FAKETOKEN_SCRIPT", path.c_str());
#else
    setenv("FAKETOKEN_SCRIPT", path.c_str(), 1);
#endif
}

void unsetScript() {
#ifdef _WIN32
    _putenv_s("FAKETOKEN_SCRIPT", "");
#else
    unsetenv("FAKETOKEN_SCRIPT");
#endif
}

class FakeTokenScript : public testing::Test {
protected:
    void write(const std::string& text) {
        std::ofstream(script_) << text;
        setScript(script_);
    }
    void TearDown() override {
        unsetScript();
        std::remove(script_.c_str());
        std::remove(record_.c_str());
    }

    const std::string script_ = programFolder() + "faketoken.script";
    const std::string record_ = programFolder() + "faketoken.record";
};

TEST_F(FakeTokenScript, SetsSlotsAndObjects) {
    write("# a token in the second slot\n"
          "slot id=3 absent\n"
          "\n"
          "slot id=0x10 flags=0x8 label=My%20token pin=secret loginpersession # the one\n"
          "certificate value=3000 id=01FF label=My%20label\n"
          "key id=01FF\n"
          "key\n");
    const LoadedToken token;
    ASSERT_EQ(token->slots.size(), 2u);
    EXPECT_EQ(token->slots[0].id, 3u);
    EXPECT_FALSE(token->slots[0].tokenPresent);
    const Slot& slot = token->slots[1];
    EXPECT_EQ(slot.id, 16u);
    EXPECT_TRUE(slot.tokenPresent);
    EXPECT_EQ(slot.flags, 8u);
    EXPECT_EQ(slot.label, "My token");
    EXPECT_EQ(slot.pin, Value::text("secret").bytes);
    EXPECT_TRUE(slot.loginPerSession);
    ASSERT_EQ(slot.objects.size(), 3u);
    EXPECT_EQ(slot.objects[0].attributes.at(CKA_VALUE).bytes, (Bytes{0x30, 0x00}));
    EXPECT_EQ(slot.objects[0].attributes.at(CKA_ID).bytes, (Bytes{0x01, 0xFF}));
    EXPECT_EQ(slot.objects[0].attributes.at(CKA_LABEL).bytes, Value::text("My label").bytes);
    EXPECT_TRUE(slot.objects[1].isPrivate);
    EXPECT_EQ(slot.objects[1].attributes.at(CKA_ID).bytes, (Bytes{0x01, 0xFF}));
    EXPECT_TRUE(slot.objects[2].attributes.at(CKA_ID).bytes.empty());
}

TEST_F(FakeTokenScript, ReadsCertificatesFromFiles) {
    std::ofstream(record_, std::ios::binary) << "bytes";
    write("certificate value=@" + record_ + "\n");
    const LoadedToken token;
    EXPECT_EQ(token->slots.at(0).objects.at(0).attributes.at(CKA_VALUE).bytes,
              Value::text("bytes").bytes);
}

TEST_F(FakeTokenScript, FailsCallsAndRecordsAll) {
    write("record " + record_ +
          "\n"
          "fail C_Initialize 1 0x30\n"
          "failany 4 6\n");
    const LoadedToken token;
    CK_FUNCTION_LIST& functions = token.functions();
    EXPECT_EQ(functions.C_Initialize(nullptr), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_EQ(functions.C_Initialize(nullptr), CK_RV{CKR_OK});
    EXPECT_EQ(functions.C_Finalize(nullptr), CK_RV{CKR_FUNCTION_FAILED});
    EXPECT_FALSE(token->initialized);

    std::ifstream record(record_);
    const std::string lines(std::istreambuf_iterator<char>(record), {});
    EXPECT_EQ(lines, "C_GetFunctionList 0\nC_Initialize 48\nC_Initialize 0\nC_Finalize 6\n");
}

TEST_F(FakeTokenScript, IsNotNeeded) {
    const LoadedToken token;
    ASSERT_EQ(token->slots.size(), 1u);
    EXPECT_TRUE(token->slots[0].tokenPresent);
    EXPECT_TRUE(token->slots[0].objects.empty());
}

using FakeTokenScriptDeathTest = FakeTokenScript;

TEST_F(FakeTokenScriptDeathTest, EndsTheProcessWhereItCannotBeUnderstood) {
    write("slot\nslott\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:2: unknown word slott");
}

} // namespace
} // namespace faketoken
