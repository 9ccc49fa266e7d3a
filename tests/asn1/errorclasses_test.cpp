// The error classes: their names and the families that they are caught by.
#include "asn1support.h"
#include "nametext.h"
#include "oids.h"

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace asn1_test {
namespace {

template <class Event>
struct NameOf;

#define NAME_OF(Event)                                                                             \
    template <>                                                                                    \
    struct NameOf<asn1::Event> {                                                                   \
        static constexpr const char* name = #Event;                                                \
    }
NAME_OF(QuorError_Asn1_Decode);
NAME_OF(QuorError_Asn1_Encode);
NAME_OF(QuorError_Asn1_InternalError);
NAME_OF(QuorError_Asn1_InvalidCall);
NAME_OF(QuorError_Asn1_InvalidItemIndex);
NAME_OF(QuorError_Asn1_InvalidStreamOp);
NAME_OF(QuorError_Asn1_InvalidTag);
NAME_OF(QuorError_Asn1_NoDefaultValue);
NAME_OF(QuorError_Asn1_ObjectMissing);
NAME_OF(QuorError_Asn1_RangeViolation);
NAME_OF(QuorError_Asn1_SettingValue);
NAME_OF(QuorError_Asn1_UnsetValue);
#undef NAME_OF

template <class Event>
class CertificateModelError : public ::testing::Test {};

using Events =
    ::testing::Types<asn1::QuorError_Asn1_Decode, asn1::QuorError_Asn1_Encode,
                     asn1::QuorError_Asn1_InternalError, asn1::QuorError_Asn1_InvalidCall,
                     asn1::QuorError_Asn1_InvalidItemIndex, asn1::QuorError_Asn1_InvalidStreamOp,
                     asn1::QuorError_Asn1_InvalidTag, asn1::QuorError_Asn1_NoDefaultValue,
                     asn1::QuorError_Asn1_ObjectMissing, asn1::QuorError_Asn1_RangeViolation,
                     asn1::QuorError_Asn1_SettingValue, asn1::QuorError_Asn1_UnsetValue>;
TYPED_TEST_SUITE(CertificateModelError, Events);

TYPED_TEST(CertificateModelError, HasItsClassNameAsItsName) {
    const TypeParam error(L"somewhere.cpp", 7);
    EXPECT_STREQ(error.what(), NameOf<TypeParam>::name);
    EXPECT_EQ(error.line(), 7);
    EXPECT_EQ(error.code(), 0u);
}

TYPED_TEST(CertificateModelError, IsCaughtByEachOfItsFamilies) {
    static_assert(sizeof(TypeParam) == sizeof(korv::GenericEvent), "it adds no data");
    const TypeParam error(L"somewhere.cpp", 7);
    EXPECT_THROW(error.raise(), TypeParam);
    EXPECT_THROW(error.raise(), asn1::QuorError_Asn1);
    EXPECT_THROW(error.raise(), asn1::QuorError);
    EXPECT_THROW(error.raise(), korv::GenericEvent);
    EXPECT_THROW(error.raise(), std::exception);
}

template <class Event, class... All>
constexpr int ownAndBaseClassesAmong(::testing::Types<All...>) {
    return (int{std::is_base_of_v<All, Event>} + ...);
}

TYPED_TEST(CertificateModelError, IsNotCaughtByAnotherClassThatIsThrown) {
    EXPECT_EQ(ownAndBaseClassesAmong<TypeParam>(Events()), 1);
}

TYPED_TEST(CertificateModelError, KeepsItsClassInCopies) {
    TypeParam error(L"somewhere.cpp", 7);
    error.setParam(L"KEY", L"value");
    const std::unique_ptr<korv::GenericEvent> copy = error.clone();
    const korv::GenericEvent& event = *copy;
    EXPECT_TRUE(typeid(event) == typeid(TypeParam));
    EXPECT_TRUE(copy->equal(error));
    EXPECT_THROW(copy->raise(), TypeParam);
}

TYPED_TEST(CertificateModelError, TakesOverAnyEventWhole) {
    asn1::QuorError_Asn1_Decode cause(L"somewhere.cpp", 7);
    cause.setParam(L"KEY", L"value");
    const TypeParam converted(static_cast<const korv::GenericEvent&>(cause));
    EXPECT_STREQ(converted.what(), "QuorError_Asn1_Decode");
    EXPECT_EQ(converted.params(), cause.params());
}

/// The source file of the event that `action` throws, and of that event's cause.
template <class Action>
std::vector<std::string> filesOf(Action action) {
    std::vector<std::string> files;
    try {
        action();
    } catch (const korv::GenericEvent& error) {
        for (const korv::GenericEvent* event = &error; event; event = event->parent())
            files.push_back(asciiOf(event->file()));
    }
    return files;
}

TEST(ErrorOfTheCertificateModel, NamesTheSourceFileThatItComesFrom) {
    using namespace testsupport;
    using Files = std::vector<std::string>;
    const auto certificate = decoded<asn1::Certificate>(CertBuilder().build());
    asn1::Integer number;
    asn1::OctetString octets;
    EXPECT_EQ(filesOf([&] { number.cmp(number, static_cast<asn1::Amatch>(1)); }),
              Files{"asn1\\src\\asn1.cpp"});
    EXPECT_EQ(filesOf([&] { certificate.extensionValue(asn1::id_ce_keyUsage, number); }),
              Files{"asn1\\src\\certificate.cpp"});
    EXPECT_EQ(filesOf([&] { decode({}, number); }), Files{"asn1\\src\\decoder.cpp"});
    EXPECT_EQ(filesOf([&] { decode(boolean(true), number); }), Files(2, "asn1\\src\\decoder.cpp"));
    EXPECT_EQ(filesOf([&] { encoded(number); }), Files(2, "asn1\\src\\encoder.cpp"));
    EXPECT_EQ(filesOf([] { toText(asn1::RDNSequence()); }), Files{"asn1\\src\\nametext.cpp"});
    EXPECT_EQ(filesOf([&] { decodeBer(fromHex("24 01 04"), octets); }),
              Files{"asn1\\src\\segments.cpp"});
    EXPECT_EQ(filesOf([&] { decodeBer(fromHex("24 02 02 00"), octets); }),
              Files(2, "asn1\\src\\segments.cpp"));
    EXPECT_EQ(filesOf([] { asn1::RDNSequence()[0]; }), Files{"asn1\\src\\sequenceof.cpp"});
    EXPECT_EQ(filesOf([&] { number.value(); }), Files{"asn1\\src\\simpletypes.cpp"});
}

} // namespace
} // namespace asn1_test
