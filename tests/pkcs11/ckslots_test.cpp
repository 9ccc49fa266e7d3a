// The list of slots and what a token says about itself.
#include "ckslots.h"
#include "cktoken.h"
#include "expectcryptokierror.h"
#include "librarytest.h"

#include <gmock/gmock.h>

#include <optional>

namespace {

using faketoken::Call;
using faketoken::expectCryptokiError;
using faketoken::Slot;
using pkcs11::CkSlots;
using pkcs11::CkToken;
using pkcs11::CkTokenInfo;
using testing::ElementsAre;

Slot slotWithId(CK_SLOT_ID id, bool tokenPresent = true) {
    Slot slot;
    slot.id = id;
    slot.tokenPresent = tokenPresent;
    return slot;
}

std::vector<pkcs11::CkSlotId> idsOf(const CkSlots& slots) {
    std::vector<pkcs11::CkSlotId> ids;
    for (const pkcs11::CkSlot& slot : slots)
        ids.push_back(slot.id());
    return ids;
}

using CkSlotsList = pkcs11test::LibraryTest;

TEST_F(CkSlotsList, GivesTheSlotsInTheModulesOrder) {
    token->slots = {slotWithId(7), slotWithId(3), slotWithId(0xFFFFFFFE)};
    EXPECT_THAT(idsOf(CkSlots(*library, true)), ElementsAre(7u, 3u, 0xFFFFFFFEu));
}

TEST_F(CkSlotsList, PassesOnWhetherATokenMustBePresent) {
    token->slots = {slotWithId(1, false), slotWithId(2)};
    EXPECT_THAT(idsOf(CkSlots(*library, true)), ElementsAre(2u));
    EXPECT_THAT(idsOf(CkSlots(*library, false)), ElementsAre(1u, 2u));
    std::vector<bool> asked;
    for (const Call& call : token->callsOf("C_GetSlotList"))
        asked.push_back(call.tokenPresent);
    EXPECT_THAT(asked, ElementsAre(true, true, false, false));
}

TEST_F(CkSlotsList, AsksForTheCountAndThenForAsManySlots) {
    token->slots = {slotWithId(1), slotWithId(2)};
    const CkSlots slots(*library, true);
    const std::vector<Call> calls = token->callsOf("C_GetSlotList");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_FALSE(calls[0].hasRoom);
    EXPECT_TRUE(calls[1].hasRoom);
    EXPECT_EQ(calls[1].count, 2u);
}

TEST_F(CkSlotsList, IsEmptyForAModuleWithoutSlots) {
    token->slots.clear();
    const CkSlots slots(*library, true);
    EXPECT_TRUE(slots.empty());
    EXPECT_EQ(token->count("C_GetSlotList"), 1u) << "there is nothing to ask for";
}

TEST_F(CkSlotsList, MayHave65536Slots) {
    token->slots.assign(65'536, slotWithId(1));
    EXPECT_EQ(CkSlots(*library, true).size(), 65'536u);
}

TEST_F(CkSlotsList, CarriesTheLibraryInEachSlot) {
    const CkSlots slots(*library, true);
    EXPECT_EQ(slots[0].ckLibrary(), *library);
}

// A token that is inserted between the two calls makes the list longer than the room for it.
TEST_F(CkSlotsList, AsksAgainWhenTheListGrewMeanwhile) {
    token->slots = {slotWithId(1)};
    token->hook = [this](const Call& call) -> std::optional<CK_RV> {
        if (call.function == "C_GetSlotList" && call.hasRoom && token->slots.size() == 1)
            token->slots.push_back(slotWithId(2));
        return std::nullopt;
    };
    EXPECT_THAT(idsOf(CkSlots(*library, true)), ElementsAre(1u, 2u));
    EXPECT_EQ(token->count("C_GetSlotList"), 4u);
}

TEST_F(CkSlotsList, GivesUpOnAListThatGrowsForEver) {
    token->hook = [this](const Call& call) -> std::optional<CK_RV> {
        if (call.function == "C_GetSlotList" && call.hasRoom)
            token->slots.push_back(slotWithId(static_cast<CK_SLOT_ID>(token->slots.size() + 1)));
        return std::nullopt;
    };
    expectCryptokiError(L"336", [&] { CkSlots(*library, true); });
    EXPECT_EQ(token->count("C_GetSlotList"), 16u);
}

TEST_F(CkSlotsList, TakesAListThatShrankMeanwhile) {
    token->slots = {slotWithId(1), slotWithId(2)};
    token->hook = [this](const Call& call) -> std::optional<CK_RV> {
        if (call.function == "C_GetSlotList" && call.hasRoom)
            token->slots.resize(1);
        return std::nullopt;
    };
    EXPECT_THAT(idsOf(CkSlots(*library, true)), ElementsAre(1u));
}

TEST_F(CkSlotsList, RefusesMoreSlotsThanThereWasRoomFor) {
    token->claimedSlotCount = 2;
    expectCryptokiError(L"5", [&] { CkSlots(*library, true); });
}

TEST_F(CkSlotsList, RefusesANumberOfSlotsThatNoModuleHas) {
    std::vector<Slot> slots(70'000);
    token->slots = slots;
    expectCryptokiError(L"5", [&] { CkSlots(*library, true); });
    EXPECT_EQ(token->count("C_GetSlotList"), 1u);
}

TEST_F(CkSlotsList, ThrowsTheAnswerOfEitherCall) {
    token->fail("C_GetSlotList", 1, CKR_GENERAL_ERROR);
    expectCryptokiError(L"5", [&] { CkSlots(*library, true); });
    token->fail("C_GetSlotList", 2, CKR_DEVICE_ERROR);
    expectCryptokiError(L"48", [&] { CkSlots(*library, true); });
}

using CkTokenInfoRead = pkcs11test::LibraryTest;

TEST_F(CkTokenInfoRead, IsOfTheSlotAsOfTheTokenInIt) {
    token->slots = {slotWithId(1), slotWithId(5)};
    token->slots[1].label = "In slot 5";
    const CkSlots slots(*library, true);
    EXPECT_STREQ(slots[1].info().label.c_str(), "In slot 5");
    const CkToken& inSlot = slots[1];
    EXPECT_STREQ(inSlot.info().label.c_str(), "In slot 5");
    EXPECT_EQ(inSlot.slotId(), 5u);
    EXPECT_EQ(inSlot.ckLibrary(), *library);
}

TEST_F(CkTokenInfoRead, GivesTextsWithoutPaddingAndTheFlags) {
    Slot slot = slotWithId(5);
    slot.label = "My token";
    slot.manufacturerId = "Maker";
    slot.model = "Model 1";
    slot.serialNumber = "00 17";
    slot.flags = 0x42D;
    token->slots = {slot};
    const CkTokenInfo info = CkToken(CkSlots(*library, true)[0]).info();
    EXPECT_STREQ(info.label.c_str(), "My token");
    EXPECT_STREQ(info.manufacturerId.c_str(), "Maker");
    EXPECT_STREQ(info.model.c_str(), "Model 1");
    EXPECT_STREQ(info.serialNumber.c_str(), "00 17");
    EXPECT_EQ(info.flags, 0x42Du);
    EXPECT_EQ(token->callsOf("C_GetTokenInfo").at(0).slot, 5u);
}

TEST_F(CkTokenInfoRead, GivesTextsThatFillTheirFields) {
    Slot slot;
    slot.label = std::string(32, 'L');
    slot.model = std::string(16, 'M');
    slot.serialNumber = "";
    token->slots = {slot};
    const CkTokenInfo info = CkToken(CkSlots(*library, true)[0]).info();
    EXPECT_EQ(info.label.size(), 32u);
    EXPECT_EQ(info.model.size(), 16u);
    EXPECT_TRUE(info.serialNumber.empty());
}

TEST_F(CkTokenInfoRead, TakesTextsThatAreNoUtf8AndEndInZeros) {
    Slot slot;
    slot.label = std::string(32, '\xFF');
    slot.model = std::string("A\0\0", 3) + std::string(13, '\0');
    token->slots = {slot};
    const CkTokenInfo info = CkToken(CkSlots(*library, true)[0]).info();
    EXPECT_EQ(info.label.size(), 32u);
    EXPECT_STREQ(info.model.c_str(), "A");
    EXPECT_EQ(info.model.size(), 1u);
}

TEST_F(CkTokenInfoRead, AsksTheModuleEachTime) {
    const CkToken asked(CkSlots(*library, true)[0]);
    asked.info();
    token->slots[0].flags = 0x8;
    EXPECT_EQ(asked.info().flags, 0x8u);
}

TEST_F(CkTokenInfoRead, ThrowsTheModulesAnswer) {
    token->fail("C_GetTokenInfo", 1, CKR_TOKEN_NOT_RECOGNIZED);
    const CkSlots slots(*library, true);
    expectCryptokiError(L"225", [&] { CkToken(slots[0]).info(); });
}

} // namespace
