// The fake token scripted by a file, as it is in another process.
#include "loadedtoken.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace faketoken {
namespace {

/// \param path empty: no script
void setScript(const std::string& path) {
#ifdef _WIN32
    _putenv_s("FAKETOKEN_SCRIPT", path.c_str()); // removes the variable if the value is empty
#else
    if (path.empty())
        unsetenv("FAKETOKEN_SCRIPT");
    else
        setenv("FAKETOKEN_SCRIPT", path.c_str(), 1);
#endif
}

class FakeTokenScript : public testing::Test {
protected:
    void write(const std::string& text) {
        std::ofstream(script_) << text;
        setScript(script_);
    }
    void TearDown() override {
        setScript("");
        std::remove(script_.c_str());
        std::remove(record_.c_str());
        std::remove(other_.c_str());
    }
    void writeOther(const std::string& text) {
        const std::string aside = other_ + ".new";
        std::ofstream(aside) << text;
        std::filesystem::rename(aside, other_);
    }
    void removeOther() { std::filesystem::remove(other_); }

    const std::string script_ = programFolder() + "faketoken.script";
    const std::string record_ = programFolder() + "faketoken.record";
    const std::string other_ = programFolder() + "faketoken.other";
};

/// A program's way through the module, each step with the module's answer.
class Caller {
public:
    explicit Caller(const LoadedToken& token) : functions_(token.functions()) {}

    CK_RV initialize() { return functions_.C_Initialize(nullptr); }
    CK_RV finalize() { return functions_.C_Finalize(nullptr); }
    CK_RV openSession() {
        return functions_.C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session_);
    }
    CK_RV closeSession() { return functions_.C_CloseSession(session_); }
    CK_RV beginSearch() { return functions_.C_FindObjectsInit(session_, nullptr, 0); }
    CK_RV endSearch() { return functions_.C_FindObjectsFinal(session_); }

    /// How many slots there are said to be.
    CK_ULONG countSlots(bool tokenPresent) {
        CK_SLOT_ID ids[8];
        CK_ULONG count = 8;
        EXPECT_EQ(functions_.C_GetSlotList(tokenPresent ? CK_TRUE : CK_FALSE, ids, &count),
                  CK_RV{CKR_OK});
        return count;
    }
    /// What a search of its own finds.
    std::vector<CK_OBJECT_HANDLE> search() {
        EXPECT_EQ(beginSearch(), CK_RV{CKR_OK});
        std::vector<CK_OBJECT_HANDLE> found(8);
        CK_ULONG count = 0;
        EXPECT_EQ(functions_.C_FindObjects(session_, found.data(), 8, &count), CK_RV{CKR_OK});
        EXPECT_EQ(endSearch(), CK_RV{CKR_OK});
        found.resize(count);
        return found;
    }
    /// What ulValueLen becomes for an attribute.
    CK_ULONG length(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, bool filled) {
        unsigned char room[16];
        CK_ATTRIBUTE entry{type, filled ? room : nullptr, filled ? CK_ULONG{sizeof room} : 0};
        EXPECT_EQ(functions_.C_GetAttributeValue(session_, object, &entry, 1), CK_RV{CKR_OK});
        return entry.ulValueLen;
    }
    /// An object's label, or the answer in its place.
    std::string label(CK_OBJECT_HANDLE object) {
        char room[16];
        CK_ATTRIBUTE entry{CKA_LABEL, room, CK_ULONG{sizeof room}};
        const CK_RV answer = functions_.C_GetAttributeValue(session_, object, &entry, 1);
        return answer == CKR_OK ? std::string(room, entry.ulValueLen) : std::to_string(answer);
    }

private:
    CK_FUNCTION_LIST& functions_;
    CK_SESSION_HANDLE session_ = 0;
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

TEST_F(FakeTokenScript, FailsAllCallsFromOneOn) {
    write("failfrom 4 0x30\n");
    const LoadedToken token;
    Caller caller(token);
    EXPECT_EQ(caller.initialize(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_EQ(caller.closeSession(), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_EQ(token->openSessions(), 0u) << "what ends something does so all the same";
    EXPECT_EQ(caller.finalize(), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_FALSE(token->initialized);
}

TEST_F(FakeTokenScript, FailsAFunctionWhileAFileExists) {
    write("failwhile " + other_ + " C_OpenSession 0x30\n");
    const LoadedToken token;
    Caller caller(token);
    EXPECT_EQ(caller.initialize(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
    writeOther("");
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_DEVICE_ERROR});
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_OK}) << "other functions are not concerned";
    removeOther();
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
}

TEST_F(FakeTokenScript, PullsTheTokenAtACallForGood) {
    write("pulledat 6\n");
    const LoadedToken token;
    Caller caller(token);
    EXPECT_EQ(caller.initialize(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.countSlots(true), 1u);
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.endSearch(), CK_RV{CKR_DEVICE_REMOVED});
    EXPECT_EQ(token->openSessions(), 0u);
    EXPECT_EQ(caller.countSlots(true), 0u);
    EXPECT_EQ(caller.countSlots(false), 1u);
    EXPECT_EQ(caller.closeSession(), CK_RV{CKR_DEVICE_REMOVED});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_DEVICE_REMOVED});
    EXPECT_EQ(caller.finalize(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.initialize(), CK_RV{CKR_OK});
}

TEST_F(FakeTokenScript, PullsTheTokenWhileAFileExists) {
    write("pulledwhile " + other_ + "\n");
    const LoadedToken token;
    Caller caller(token);
    EXPECT_EQ(caller.initialize(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
    writeOther("");
    EXPECT_EQ(caller.countSlots(true), 0u);
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_DEVICE_REMOVED});
    removeOther();
    EXPECT_EQ(caller.countSlots(true), 1u);
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_SESSION_HANDLE_INVALID})
        << "the session went with the token";
    EXPECT_EQ(caller.openSession(), CK_RV{CKR_OK});
    EXPECT_EQ(caller.beginSearch(), CK_RV{CKR_OK});
}

TEST_F(FakeTokenScript, TakesObjectsFromAFileThatChanges) {
    writeOther("certificate value=3000 label=first\n"
               "certificate value=3000 label=second\n");
    write("objectsfrom " + other_ + "\n");
    const LoadedToken token;
    Caller caller(token);
    caller.initialize();
    caller.openSession();
    EXPECT_EQ(caller.search(), (std::vector<CK_OBJECT_HANDLE>{1, 2}));
    EXPECT_EQ(caller.label(1), "first");

    writeOther("certificate value=3000 label=third\n"
               "certificate value=3000 label=second\n");
    EXPECT_EQ(caller.label(1), "first") << "it changes at the next search";
    EXPECT_EQ(caller.search(), (std::vector<CK_OBJECT_HANDLE>{2, 3}));
    EXPECT_EQ(caller.label(1), std::to_string(CKR_OBJECT_HANDLE_INVALID));
    EXPECT_EQ(caller.label(2), "second");
    EXPECT_EQ(caller.label(3), "third");

    writeOther("certificate value=3000 label=first\n");
    EXPECT_EQ(caller.search(), (std::vector<CK_OBJECT_HANDLE>{1}));
    writeOther("");
    EXPECT_TRUE(caller.search().empty());
}

TEST_F(FakeTokenScript, KeepsTheObjectsWhileTheirFileIsNotThere) {
    writeOther("certificate value=3000 label=first\n");
    write("objectsfrom " + other_ + "\n");
    const LoadedToken token;
    Caller caller(token);
    caller.initialize();
    caller.openSession();
    EXPECT_EQ(caller.search(), (std::vector<CK_OBJECT_HANDLE>{1}));
    removeOther();
    EXPECT_EQ(caller.search(), (std::vector<CK_OBJECT_HANDLE>{1}));
}

TEST_F(FakeTokenScript, LiesAboutLengths) {
    write("certificate value=3000 id=01 label=label\n"
          "lie value claimed=5 filled=7\n"
          "lie id filled=0x20\n"
          "lie label claimed=-1\n");
    const LoadedToken token;
    Caller caller(token);
    caller.initialize();
    caller.openSession();
    EXPECT_EQ(caller.length(1, CKA_VALUE, false), 5u);
    EXPECT_EQ(caller.length(1, CKA_VALUE, true), 7u);
    EXPECT_EQ(caller.length(1, CKA_ID, false), 1u);
    EXPECT_EQ(caller.length(1, CKA_ID, true), 32u);
    EXPECT_EQ(caller.length(1, CKA_LABEL, false), static_cast<CK_ULONG>(-1));
    EXPECT_EQ(caller.length(1, CKA_LABEL, true), 5u);
}

TEST_F(FakeTokenScript, ClaimsCounts) {
    write("certificate value=3000\n"
          "slotcount 5\n"
          "foundcount 7\n");
    const LoadedToken token;
    Caller caller(token);
    caller.initialize();
    caller.openSession();
    EXPECT_EQ(caller.countSlots(true), 5u);
    EXPECT_EQ(caller.search().size(), 7u);
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
    write("lie value claimed=1\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:1: there is no object");
    write("certificate value=3000\nlie colour claimed=1\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:2: unknown attribute colour");
    write("failwhile file C_Nothing 5\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:1: the fake token has no C_Nothing");
    write("certificate value=3000 id=0\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:1: an odd number of hexadecimal digits");
    write("key id=0G\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:1: no hexadecimal digits: 0G");
    write("objectsfrom nowhere\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.script:1: cannot read nowhere");
    writeOther("slot\n");
    write("objectsfrom " + other_ + "\n");
    EXPECT_DEATH(LoadedToken(), "faketoken.other:1: unknown word slot");
}

} // namespace
} // namespace faketoken
