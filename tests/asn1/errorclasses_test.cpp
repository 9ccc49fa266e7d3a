// The error classes: their names and the families that they are caught by.
#include "asn1support.h"

#include <memory>
#include <typeinfo>

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

TEST(DecodingError, NamesTheSourceFileThatItComesFrom) {
    asn1::Integer number;
    try {
        decode({}, number);
        FAIL() << "nothing was thrown";
    } catch (const korv::GenericEvent& error) {
        EXPECT_STREQ(error.what(), "QuorError_Asn1_Decode");
        EXPECT_EQ(asciiOf(error.file()), "asn1\\src\\decoder.cpp");
    }
}

} // namespace
} // namespace asn1_test
