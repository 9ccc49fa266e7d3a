// Searching objects and reading attributes.
#include "ckobjectsfinder.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gmock/gmock.h>

#include <memory>

namespace {

using faketoken::Bytes;
using faketoken::Call;
using faketoken::certificate;
using faketoken::expectCryptokiError;
using faketoken::Object;
using pkcs11::CkAttributes;
using pkcs11::CkObject;
using pkcs11::CkObjectsFinder;
using pkcs11::CkSession;
using pkcs11::CkUlong;
using testing::ElementsAre;
namespace cka = pkcs11::cka;
namespace cko = pkcs11::cko;

Bytes bytesOf(buffer::BufferRange<unsigned char> range) {
    return {range.begin(), range.end()};
}

class CkObjectsFinderTest : public pkcs11test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        session = std::make_unique<CkSession>(*library);
        session->open(1, CKF_SERIAL_SESSION);
        token->forgetCalls();
    }
    void TearDown() override {
        session.reset();
        LibraryTest::TearDown();
    }

    std::vector<Object>& objects() { return token->slots[0].objects; }

    static CkAttributes certificates() {
        CkAttributes attributes;
        attributes.addNumber(cka::objectClass, cko::certificate);
        return attributes;
    }

    std::vector<CkUlong> find() {
        std::vector<CkUlong> handles;
        CkObjectsFinder finder(*session);
        finder.init(certificates());
        for (const CkObject object : finder)
            handles.push_back(object.handle());
        finder.final();
        return handles;
    }

    std::unique_ptr<CkSession> session;
};

TEST_F(CkObjectsFinderTest, FindsTheObjectsThatMatchInTheModulesOrder) {
    objects() = {certificate({1}, {1}, "a"), faketoken::privateKey({1}),
                 certificate({2}, {2}, "b")};
    EXPECT_THAT(find(), ElementsAre(1u, 3u));
}

TEST_F(CkObjectsFinderTest, HandsTheTemplateOverAsItIs) {
    CkAttributes attributes;
    attributes.addNumber(cka::objectClass, cko::certificate);
    attributes.addBool(cka::token, true);
    attributes.add(cka::id);
    CkObjectsFinder finder(*session);
    finder.init(attributes);
    const Call call = token->callsOf("C_FindObjectsInit").at(0);
    EXPECT_EQ(call.session, session->handle());
    ASSERT_EQ(call.entries.size(), 3u);
    EXPECT_EQ(call.entries[0].type, CK_ATTRIBUTE_TYPE{CKA_CLASS});
    EXPECT_EQ(call.entries[0].length, sizeof(CK_ULONG));
    EXPECT_EQ(call.entries[0].bytes, faketoken::Value::number(CKO_CERTIFICATE).bytes);
    EXPECT_EQ(call.entries[1].type, CK_ATTRIBUTE_TYPE{CKA_TOKEN});
    EXPECT_EQ(call.entries[1].length, 1u);
    EXPECT_EQ(call.entries[1].bytes, Bytes{1});
    EXPECT_EQ(call.entries[2].type, CK_ATTRIBUTE_TYPE{CKA_ID});
    EXPECT_FALSE(call.entries[2].hasRoom);
    EXPECT_EQ(call.entries[2].length, 0u);
}

struct Walk {
    std::size_t objects;
    std::size_t fetches;
};

class CkObjectsFinderWalk : public CkObjectsFinderTest, public testing::WithParamInterface<Walk> {};

TEST_P(CkObjectsFinderWalk, FetchesBatchesOf64UntilAnAnswerWithoutObjects) {
    objects().assign(GetParam().objects, certificate({1}, {1}, "a"));
    EXPECT_EQ(find().size(), GetParam().objects);
    EXPECT_EQ(token->count("C_FindObjectsInit"), 1u);
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
    EXPECT_EQ(token->count("C_FindObjects"), GetParam().fetches);
    for (const Call& call : token->callsOf("C_FindObjects"))
        EXPECT_EQ(call.count, 64u);
}

INSTANTIATE_TEST_SUITE_P(OfObjects, CkObjectsFinderWalk,
                         testing::Values(Walk{0, 1}, Walk{1, 2}, Walk{20, 2}, Walk{64, 2},
                                         Walk{65, 3}, Walk{128, 3}, Walk{129, 4}),
                         [](const auto& walk) { return std::to_string(walk.param.objects); });

TEST_F(CkObjectsFinderTest, GoesOnAfterABatchThatIsNotFull) {
    objects().assign(5, certificate({1}, {1}, "a"));
    token->objectsPerFind = 2;
    EXPECT_THAT(find(), ElementsAre(1u, 2u, 3u, 4u, 5u));
}

TEST_F(CkObjectsFinderTest, RefusesMoreObjectsThanItAskedFor) {
    objects() = {certificate({1}, {1}, "a")};
    token->claimedFoundCount = 65;
    expectCryptokiError(L"5", [&] { find(); });
    EXPECT_EQ(token->count("C_FindObjects"), 1u);
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
}

TEST_F(CkObjectsFinderTest, GivesUpOnASearchThatNeverEnds) {
    token->endlessSearch = true;
    std::size_t found = 0;
    CkObjectsFinder finder(*session);
    finder.init(certificates());
    token->hook = [this](const Call&) {
        token->calls.clear();
        return std::nullopt;
    };
    expectCryptokiError(L"5", [&] {
        for ([[maybe_unused]] const CkObject object : finder)
            ++found;
    });
    EXPECT_EQ(found, 1'048'576u);
}

TEST_F(CkObjectsFinderTest, DoesNotEndASearchThatDidNotBegin) {
    token->fail("C_FindObjectsInit", 1, CKR_DEVICE_ERROR);
    {
        CkObjectsFinder finder(*session);
        expectCryptokiError(L"48", [&] { finder.init(certificates()); });
        finder.final();
    }
    { const CkObjectsFinder finder(*session); }
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 0u);
}

TEST_F(CkObjectsFinderTest, CallsNothingOfAModuleThatWasUnloadedMeanwhile) {
    {
        CkObjectsFinder finder(*session);
        finder.init(certificates());
        session->close();
        library.reset();
        token->forgetCalls();
    }
    EXPECT_TRUE(token->calls.empty());
}

TEST_F(CkObjectsFinderTest, EndsASearchThatFailedOnTheWay) {
    objects().assign(65, certificate({1}, {1}, "a"));
    token->fail("C_FindObjects", 2, CKR_DEVICE_REMOVED);
    expectCryptokiError(L"50", [&] { find(); });
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
    EXPECT_EQ(token->activeSearches(), 0u);
}

TEST_F(CkObjectsFinderTest, EndsASearchOnceEvenIfThatFails) {
    token->fail("C_FindObjectsFinal", 1, CKR_DEVICE_REMOVED);
    expectCryptokiError(L"50", [&] { find(); });
    EXPECT_EQ(token->count("C_FindObjectsFinal"), 1u);
}

TEST_F(CkObjectsFinderTest, SwallowsAFailureToEndTheSearchWhenDestroyed) {
    token->fail("C_FindObjectsFinal", 1, CKR_DEVICE_REMOVED);
    {
        CkObjectsFinder finder(*session);
        finder.init(certificates());
    }
    EXPECT_EQ(token->callsOf("C_FindObjectsFinal").at(0).answer, CK_RV{CKR_DEVICE_REMOVED});
}

TEST_F(CkObjectsFinderTest, CanSearchAgainAfterASearchEnded) {
    objects() = {certificate({1}, {1}, "a")};
    CkObjectsFinder finder(*session);
    finder.init(certificates());
    finder.final();
    finder.init(certificates());
    EXPECT_EQ((*finder.begin()).handle(), 1u);
}

class CkObjectGet : public CkObjectsFinderTest {
protected:
    static CkAttributes readTemplate() {
        CkAttributes attributes;
        attributes.add(cka::value);
        attributes.add(cka::id);
        return attributes;
    }

    CkAttributes readTwice() {
        CkAttributes attributes = readTemplate();
        const CkObject object(*session, 1);
        object.get(attributes);
        attributes.allocateValues();
        object.get(attributes);
        return attributes;
    }
};

TEST_F(CkObjectGet, LearnsTheLengthsAndThenFillsTheValues) {
    objects() = {certificate({0x30, 0x01, 0x02}, {0xAB}, "a")};
    const CkAttributes attributes = readTwice();
    EXPECT_EQ(bytesOf(attributes.value(cka::value)), (Bytes{0x30, 0x01, 0x02}));
    EXPECT_EQ(bytesOf(attributes.value(cka::id)), Bytes{0xAB});

    const std::vector<Call> calls = token->callsOf("C_GetAttributeValue");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].object, 1u);
    EXPECT_FALSE(calls[0].entries[0].hasRoom);
    EXPECT_FALSE(calls[0].entries[1].hasRoom);
    EXPECT_TRUE(calls[1].entries[0].hasRoom);
    EXPECT_EQ(calls[1].entries[0].length, 3u);
    EXPECT_EQ(calls[1].entries[1].length, 1u);
}

TEST_F(CkObjectGet, LeavesAValueOfLengthZeroAbsent) {
    objects() = {certificate({0x30}, {}, "a")};
    const CkAttributes attributes = readTwice();
    EXPECT_EQ(attributes.value(cka::id).data(), nullptr);
    EXPECT_FALSE(token->calls[1].entries[1].hasRoom);
}

TEST_F(CkObjectGet, TakesAValueThatTurnsOutShorter) {
    objects() = {certificate({1, 2, 3}, {1}, "a")};
    objects()[0].attributes[CKA_VALUE].claimedLength = 10;
    EXPECT_EQ(bytesOf(readTwice().value(cka::value)), (Bytes{1, 2, 3}));
}

TEST_F(CkObjectGet, TakesAValueThatTurnsOutEmptyAsPresent) {
    objects() = {certificate({1}, {}, "a")};
    objects()[0].attributes[CKA_ID].claimedLength = 4;
    const CkAttributes attributes = readTwice();
    EXPECT_NE(attributes.value(cka::id).data(), nullptr);
    EXPECT_TRUE(attributes.value(cka::id).empty());
}

TEST_F(CkObjectGet, ThrowsTheAnswerForAMissingAttribute) {
    objects() = {certificate({1}, {1}, "a")};
    objects()[0].attributes.erase(CKA_ID);
    expectCryptokiError(L"18", [&] { readTwice(); });
}

TEST_F(CkObjectGet, ThrowsTheAnswerForAValueThatGrewMeanwhile) {
    objects() = {certificate({1, 2, 3}, {1}, "a")};
    objects()[0].attributes[CKA_VALUE].claimedLength = 2;
    expectCryptokiError(L"336", [&] { readTwice(); });
}

TEST_F(CkObjectGet, RefusesALengthBeyondTheRoomItGave) {
    objects() = {certificate({1, 2, 3}, {1}, "a")};
    objects()[0].attributes[CKA_VALUE].filledLength = 4;
    expectCryptokiError(L"19", [&] { readTwice(); });
}

TEST_F(CkObjectGet, RefusesAnUnavailableLengthAlthoughTheModuleSaysOk) {
    objects() = {certificate({1, 2, 3}, {1}, "a")};
    objects()[0].attributes[CKA_VALUE].claimedLength = CK_UNAVAILABLE_INFORMATION;
    expectCryptokiError(L"19", [&] { readTwice(); });
    objects()[0].attributes[CKA_VALUE].claimedLength.reset();
    objects()[0].attributes[CKA_VALUE].filledLength = CK_UNAVAILABLE_INFORMATION;
    expectCryptokiError(L"19", [&] { readTwice(); });
}

TEST_F(CkObjectGet, RefusesTheClaimOfAGigabyteBeforeItAllocates) {
    objects() = {certificate({1, 2, 3}, {1}, "a")};
    objects()[0].attributes[CKA_VALUE].claimedLength = 1u << 30;
    expectCryptokiError(L"19", [&] { readTwice(); });
    EXPECT_EQ(token->count("C_GetAttributeValue"), 1u);
}

TEST_F(CkObjectGet, RefusesALengthForAValueThatHasNoRoom) {
    objects() = {certificate({1}, {1, 2}, "a")};
    objects()[0].attributes[CKA_ID].claimedLength = 0;
    token->hook = [this](const Call& call) -> std::optional<CK_RV> {
        if (call.function == "C_GetAttributeValue" && call.entries[0].hasRoom)
            objects()[0].attributes[CKA_ID].claimedLength = 2;
        return std::nullopt;
    };
    const CkAttributes attributes = readTwice();
    expectCryptokiError(L"19", [&] { attributes.value(cka::id); });
}

TEST_F(CkObjectGet, ThrowsTheModulesAnswer) {
    objects() = {certificate({1}, {1}, "a")};
    token->fail("C_GetAttributeValue", 2, CKR_DEVICE_ERROR);
    expectCryptokiError(L"48", [&] { readTwice(); });
}

} // namespace
