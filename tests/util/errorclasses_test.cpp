// Every class of the error families of this layer and of the exported headers: its name, its
// place in the tree, its constructors.
#include "buffererror.h"
#include "certstoreupdatererror.h"
#include "makeevent.h"

#include <gtest/gtest.h>

#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>

#ifdef __GNUG__
#include <cxxabi.h>
#endif

using buffer::Buffer;
using korv::GenericEvent;
using pkcs11::certstoreupdater::CertStoreUpdaterError;

namespace {

constexpr wchar_t sourceFile[] = L"tests\\util\\errorclasses_test.cpp";

template <class EventClass, class FamilyClass>
struct Class {
    using Event = EventClass;
    using Family = FamilyClass;
    static const char* const name;
};

#define EVENT_CLASS(id, space, family)                                                             \
    using id = Class<space::id, space::family>;                                                    \
    template <>                                                                                    \
    const char* const id::name = #id

EVENT_CLASS(BufferError_InvalidEncodingUnit, buffer, BufferError);

namespace csu = pkcs11::certstoreupdater;
EVENT_CLASS(CertStoreUpdaterError_OpenSystemStore, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_GetCertContextPropertyFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_AddCertificateToStoreFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_SetKeyProviderInfoFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_SetCertFriendlyNameFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_SetCertKorvaneCspRefFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_DuplicateCertificatePointerFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_DuplicateCertificateMismatch, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_DeleteCertificateFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_GetCspNameFailed, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_InvalidFileSignature, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_TokenNotPresent, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_TokenNotInitialized, csu, CertStoreUpdaterError);
EVENT_CLASS(CertStoreUpdaterError_InvalidConfiguration, csu, CertStoreUpdaterError);

#undef EVENT_CLASS

using EventClasses = testing::Types<
    BufferError_InvalidEncodingUnit, CertStoreUpdaterError_OpenSystemStore,
    CertStoreUpdaterError_GetCertContextPropertyFailed,
    CertStoreUpdaterError_AddCertificateToStoreFailed,
    CertStoreUpdaterError_SetKeyProviderInfoFailed, CertStoreUpdaterError_SetCertFriendlyNameFailed,
    CertStoreUpdaterError_SetCertKorvaneCspRefFailed,
    CertStoreUpdaterError_DuplicateCertificatePointerFailed,
    CertStoreUpdaterError_DuplicateCertificateMismatch,
    CertStoreUpdaterError_DeleteCertificateFailed, CertStoreUpdaterError_GetCspNameFailed,
    CertStoreUpdaterError_InvalidFileSignature, CertStoreUpdaterError_TokenNotPresent,
    CertStoreUpdaterError_TokenNotInitialized, CertStoreUpdaterError_InvalidConfiguration>;

template <class T>
class EventClass : public testing::Test {};
TYPED_TEST_SUITE(EventClass, EventClasses, );

template <class T>
class FamilyClass : public testing::Test {};
using FamilyClasses = testing::Types<buffer::BufferError, CertStoreUpdaterError>;
TYPED_TEST_SUITE(FamilyClass, FamilyClasses, );

/// Whether `Derived` has one base, which is public, not virtual and `Base`.
template <class Derived, class Base>
bool hasOnlyBase() {
#ifdef __GNUG__
    // The type of a type's description says what kind of bases it has. It is compared by name:
    // on Windows a program's copy of it is not the one in the C++ run-time's DLL.
    const std::type_info& description = typeid(Derived);
    if (std::strcmp(typeid(description).name(), typeid(abi::__si_class_type_info).name()) != 0)
        return false;
    return *static_cast<const abi::__si_class_type_info&>(description).__base_type == typeid(Base);
#else
    return std::is_convertible_v<Derived*, Base*> && sizeof(Derived) == sizeof(Base);
#endif
}

/// Whether the event's most-derived type is `Type`.
template <class Type>
bool isOfType(const GenericEvent& event) {
    return typeid(event) == typeid(Type);
}

GenericEvent foreignEvent() {
    GenericEvent event("NameOfTheSource", L"src\\source.cpp", 12, 34);
    event.setParent(GenericEvent("Cause", L"src\\cause.cpp", 56, 0)).setParam(L"KEY", L"value");
    return event;
}

} // namespace

TYPED_TEST(EventClass, HasItsClassNameAsName) {
    const typename TypeParam::Event event(sourceFile, 1);
    EXPECT_STREQ(event.what(), TypeParam::name);
    EXPECT_EQ(event.name(), Buffer<char>(TypeParam::name));
}

TYPED_TEST(EventClass, HasCodeZeroAndNeitherParametersNorParent) {
    const typename TypeParam::Event event(sourceFile, 17);
    EXPECT_EQ(event.code(), 0u);
    EXPECT_STREQ(event.file().c_str(), sourceFile);
    EXPECT_EQ(event.line(), 17);
    EXPECT_TRUE(event.params().empty());
    EXPECT_EQ(event.parent(), nullptr);
}

TYPED_TEST(EventClass, IsWhatAChainOfParametersTurnsBackInto) {
    const typename TypeParam::Event event =
        typename TypeParam::Event(sourceFile, 17).setParam(L"KEY", L"value");
    EXPECT_STREQ(event.what(), TypeParam::name);
    EXPECT_EQ(event.line(), 17);
    ASSERT_NE(event.param(L"KEY"), nullptr);
    EXPECT_STREQ(event.param(L"KEY")->c_str(), L"value");
    const typename TypeParam::Family family = foreignEvent();
    EXPECT_STREQ(family.what(), "NameOfTheSource");
}

TYPED_TEST(EventClass, HangsUnderItsFamilyInTheTree) {
    EXPECT_TRUE((hasOnlyBase<typename TypeParam::Event, typename TypeParam::Family>()));
    // It differs from its siblings in type only.
    EXPECT_EQ(sizeof(typename TypeParam::Event), sizeof(GenericEvent));
}

TYPED_TEST(EventClass, IsMadeFromAPlaceAnEventOrItsLikeAndFromNothingElse) {
    using Event = typename TypeParam::Event;
    static_assert(std::is_constructible_v<Event, const Buffer<wchar_t>&, int>);
    static_assert(std::is_constructible_v<Event, const GenericEvent&>);
    static_assert(std::is_copy_constructible_v<Event>);
    static_assert(!std::is_default_constructible_v<Event>);
    static_assert(!std::is_constructible_v<Event, const Buffer<wchar_t>&>);
    static_assert(!std::is_constructible_v<Event, const Buffer<char>&, const Buffer<wchar_t>&, int,
                                           unsigned>);
}

TYPED_TEST(EventClass, MadeFromAnyEventKeepsAllOfIt) {
    const GenericEvent source = foreignEvent();
    const typename TypeParam::Event event(source);
    EXPECT_STREQ(event.what(), "NameOfTheSource");
    EXPECT_TRUE(event.equal(source));
    EXPECT_STREQ(event.param(L"KEY")->c_str(), L"value");
    EXPECT_STREQ(event.parent()->what(), "Cause");
}

TYPED_TEST(EventClass, IsCaughtByItsFamilyByTheEventClassAndAsAStandardException) {
    using Event = typename TypeParam::Event;
    EXPECT_THROW(throw Event(sourceFile, 1), Event);
    EXPECT_THROW(throw Event(sourceFile, 1), typename TypeParam::Family);
    EXPECT_THROW(throw Event(sourceFile, 1), GenericEvent);
    EXPECT_THROW(throw Event(sourceFile, 1), std::exception);
}

TYPED_TEST(EventClass, IsNotCaughtByAnotherFamily) {
    using Other =
        std::conditional_t<std::is_same_v<typename TypeParam::Family, buffer::BufferError>,
                           CertStoreUpdaterError, buffer::BufferError>;
    const typename TypeParam::Event event(sourceFile, 1);
    EXPECT_EQ(dynamic_cast<const Other*>(&event.event()), nullptr);
}

TYPED_TEST(EventClass, ClonesItsOwnType) {
    const typename TypeParam::Event event(foreignEvent());
    const GenericEvent& base = event;
    const std::unique_ptr<GenericEvent> clone = base.clone();
    ASSERT_NE(clone.get(), &base);
    EXPECT_TRUE(isOfType<typename TypeParam::Event>(*clone));
    EXPECT_TRUE(clone->equal(event));
}

TYPED_TEST(EventClass, RaisesItsOwnTypeThroughAReferenceToTheEventClass) {
    using Event = typename TypeParam::Event;
    const Event event(foreignEvent());
    const GenericEvent& base = event;
    try {
        base.raise();
    } catch (const Event& raised) {
        EXPECT_NE(&raised, &event);
        EXPECT_TRUE(isOfType<Event>(raised));
        EXPECT_TRUE(raised.equal(event));
    }
}

TYPED_TEST(EventClass, RaisesItsOwnTypeFromAClone) {
    using Event = typename TypeParam::Event;
    const std::unique_ptr<GenericEvent> clone = Event(sourceFile, 1).clone();
    EXPECT_THROW(clone->raise(), Event);
}

TYPED_TEST(FamilyClass, HangsUnderTheEventClassInTheTree) {
    EXPECT_TRUE((hasOnlyBase<TypeParam, GenericEvent>()));
    EXPECT_TRUE((hasOnlyBase<GenericEvent, std::exception>()));
    EXPECT_EQ(sizeof(TypeParam), sizeof(GenericEvent));
}

TYPED_TEST(FamilyClass, IsMadeFromAnEventOrItsLikeOnly) {
    static_assert(std::is_constructible_v<TypeParam, const GenericEvent&>);
    static_assert(std::is_copy_constructible_v<TypeParam>);
    static_assert(!std::is_default_constructible_v<TypeParam>);
    static_assert(!std::is_constructible_v<TypeParam, const Buffer<wchar_t>&, int>);
    const TypeParam event(foreignEvent());
    EXPECT_TRUE(event.equal(foreignEvent()));
}

TYPED_TEST(FamilyClass, ClonesAndRaisesItsOwnType) {
    const TypeParam event(foreignEvent());
    const std::unique_ptr<GenericEvent> clone = event.clone();
    EXPECT_TRUE(isOfType<TypeParam>(*clone));
    EXPECT_TRUE(clone->equal(event));
    try {
        clone->raise();
    } catch (const TypeParam& raised) {
        EXPECT_TRUE(isOfType<TypeParam>(raised));
        EXPECT_TRUE(raised.equal(event));
    }
}
