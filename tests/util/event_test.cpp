// The event record: what it holds, how it is copied, compared, shown and thrown again.
#include "buffererror.h"
#include "makeevent.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

using buffer::Buffer;
using buffer::BufferError_InvalidEncodingUnit;
using korv::GenericEvent;
using korv::makeEvent;

namespace {

constexpr wchar_t sourceFile[] = L"tests\\util\\event_test.cpp";

KORV_EVENT_FAMILY(TrialError, GenericEvent);
KORV_EVENT_CLASS(TrialError_First, TrialError);
KORV_EVENT_CLASS(TrialError_Second, TrialError);

GenericEvent plainEvent() {
    return {"TrialError_Plain", L"src\\plain.cpp", 42, 0};
}

GenericEvent fullEvent() {
    GenericEvent event("TrialError_Full", L"src\\full.cpp", -7, 4294967295u);
    event.setParent(TrialError_First(L"src\\cause.cpp", 9))
        .setParam(L"STORE", L"MY")
        .setParam(L"CSP", L"Korvane CSP");
    return event;
}

std::wstring text(const Buffer<wchar_t>& buffer) {
    return {buffer.begin(), buffer.end()};
}

std::vector<std::wstring> keysAndValues(const GenericEvent& event) {
    std::vector<std::wstring> result;
    for (const GenericEvent::Param& param : event.params()) {
        result.push_back(text(param.key));
        result.push_back(text(param.value));
    }
    return result;
}

/// Whether the event's most-derived type is `Type`.
template <class Type>
bool isOfType(const GenericEvent& event) {
    return typeid(event) == typeid(Type);
}

using Texts = std::vector<std::wstring>;

static_assert(std::is_same_v<decltype(std::declval<GenericEvent>().what()), const char*>);
static_assert(std::is_nothrow_move_constructible_v<GenericEvent::Param>);
static_assert(std::is_nothrow_move_constructible_v<GenericEvent>);
static_assert(std::has_virtual_destructor_v<GenericEvent>);

} // namespace

// ---- Contents

TEST(Event, HoldsWhatItIsMadeFrom) {
    const GenericEvent event("Name", L"src\\file.cpp", 123, 45);
    EXPECT_STREQ(event.what(), "Name");
    EXPECT_EQ(event.name(), Buffer<char>("Name"));
    EXPECT_EQ(event.file(), Buffer<wchar_t>(L"src\\file.cpp"));
    EXPECT_EQ(event.line(), 123);
    EXPECT_EQ(event.code(), 45u);
    EXPECT_TRUE(event.params().empty());
    EXPECT_EQ(event.parent(), nullptr);
}

TEST(Event, HoldsAnyLineAndCode) {
    const GenericEvent least("Name", L"", std::numeric_limits<int>::min(), 0xFFFFFFFFu);
    EXPECT_EQ(least.line(), std::numeric_limits<int>::min());
    EXPECT_EQ(least.code(), 0xFFFFFFFFu);
}

TEST(Event, AnswersWhatWithTextEvenWithoutAName) {
    const GenericEvent nameless(Buffer<char>(), Buffer<wchar_t>(), 0, 0);
    EXPECT_STREQ(nameless.what(), "");
}

TEST(Event, IsItsOwnEvent) {
    const TrialError_First event(sourceFile, 1);
    EXPECT_EQ(&event.event(), &event);
}

TEST(Event, KeepsParametersInTheOrderInWhichTheyAreSet) {
    GenericEvent event = plainEvent();
    GenericEvent& chained =
        event.setParam(L"Z", L"1").setParam(L"A", L"2").setParam(L"M", Buffer<wchar_t>());
    EXPECT_EQ(&chained, &event);
    EXPECT_EQ(keysAndValues(event), (Texts{L"Z", L"1", L"A", L"2", L"M", L""}));
}

TEST(Event, FindsParametersByKeyExactly) {
    GenericEvent event = plainEvent();
    event.setParam(L"STORE", L"MY").setParam(L"Method", L"SetFileSecurity");
    ASSERT_NE(event.param(L"Method"), nullptr);
    EXPECT_STREQ(event.param(L"Method")->c_str(), L"SetFileSecurity");
    EXPECT_EQ(event.param(L"METHOD"), nullptr);
    EXPECT_EQ(event.param(L"STOR"), nullptr);
    EXPECT_EQ(plainEvent().param(L"STORE"), nullptr);
}

TEST(Event, KeepsAKeyThatIsSetTwiceAndFindsTheFirst) {
    GenericEvent event = plainEvent();
    event.setParam(L"KEY", L"first").setParam(L"KEY", L"second");
    EXPECT_EQ(keysAndValues(event), (Texts{L"KEY", L"first", L"KEY", L"second"}));
    EXPECT_STREQ(event.param(L"KEY")->c_str(), L"first");
}

TEST(Event, TakesAParameterOfItsOwnAsAnother) {
    GenericEvent event = plainEvent();
    event.setParam(L"a key of more than fifteen units", L"a value of more than fifteen units");
    for (int i = 0; i != 9; ++i)
        event.setParam(event.params()[0].key, event.params()[0].value);
    ASSERT_EQ(event.params().size(), 10u);
    for (const GenericEvent::Param& param : event.params())
        EXPECT_EQ(param, event.params()[0]);
}

// ---- Parents

TEST(EventParent, IsACopyWithTheCausesTypeAndContents) {
    GenericEvent event = plainEvent();
    {
        TrialError_First cause(L"src\\cause.cpp", 9);
        cause.setParam(L"KEY", L"value");
        EXPECT_EQ(&event.setParent(cause), &event);
        EXPECT_NE(event.parent(), &cause);
        cause.setParam(L"LATER", L"unseen");
    }
    ASSERT_NE(event.parent(), nullptr);
    EXPECT_TRUE(isOfType<TrialError_First>(*event.parent()));
    EXPECT_EQ(keysAndValues(*event.parent()), (Texts{L"KEY", L"value"}));
    EXPECT_THROW(event.parent()->raise(), TrialError_First);
}

TEST(EventParent, MayHaveAParentItself) {
    TrialError_Second middle(L"src\\middle.cpp", 2);
    middle.setParent(TrialError_First(L"src\\first.cpp", 1));
    GenericEvent event = plainEvent();
    event.setParent(middle);
    ASSERT_NE(event.parent()->parent(), nullptr);
    EXPECT_TRUE(isOfType<TrialError_First>(*event.parent()->parent()));
    EXPECT_EQ(event.parent()->parent()->line(), 1);
}

TEST(EventParent, SetAgainReplacesTheOneBefore) {
    GenericEvent event = plainEvent();
    event.setParent(TrialError_First(L"src\\a.cpp", 1))
        .setParent(TrialError_Second(L"src\\b.cpp", 2));
    EXPECT_TRUE(isOfType<TrialError_Second>(*event.parent()));
    EXPECT_EQ(event.parent()->parent(), nullptr);
}

TEST(EventParent, MayBeTheEventItselfOrItsOwnParentsParent) {
    GenericEvent event = plainEvent();
    event.setParent(event);
    EXPECT_STREQ(event.parent()->what(), "TrialError_Plain");
    EXPECT_EQ(event.parent()->parent(), nullptr);

    event.setParent(event);
    event.setParent(*event.parent()->parent());
    EXPECT_STREQ(event.parent()->what(), "TrialError_Plain");
    EXPECT_EQ(event.parent()->parent(), nullptr);
}

// ---- Copies

TEST(EventCopy, HasEverythingAndOwnsItsParent) {
    const GenericEvent event = fullEvent();
    const GenericEvent copy = event;
    EXPECT_TRUE(copy.equal(event));
    EXPECT_EQ(keysAndValues(copy), keysAndValues(event));
    ASSERT_NE(copy.parent(), nullptr);
    EXPECT_NE(copy.parent(), event.parent());
    EXPECT_TRUE(isOfType<TrialError_First>(*copy.parent()));
}

TEST(EventCopy, OutlivesItsSourceAndIsIndependentOfIt) {
    auto source = std::make_unique<GenericEvent>(fullEvent());
    GenericEvent copy = *source;
    copy.setParam(L"MORE", L"only here");
    EXPECT_EQ(source->param(L"MORE"), nullptr);
    source.reset();
    EXPECT_STREQ(copy.what(), "TrialError_Full");
    EXPECT_EQ(keysAndValues(copy),
              (Texts{L"STORE", L"MY", L"CSP", L"Korvane CSP", L"MORE", L"only here"}));
    EXPECT_STREQ(copy.parent()->what(), "TrialError_First");
}

TEST(EventCopy, AssignedReplacesEverything) {
    GenericEvent event = plainEvent();
    event.setParam(L"OLD", L"gone");
    event = fullEvent();
    EXPECT_TRUE(event.equal(fullEvent()));
    const GenericEvent plain = plainEvent();
    event = plain;
    EXPECT_TRUE(event.equal(plain));
    const GenericEvent& same = event;
    event = same;
    EXPECT_TRUE(event.equal(plain));
}

TEST(EventCopy, MadeByAThrowHasEverything) {
    try {
        throw GenericEvent(fullEvent());
    } catch (const GenericEvent& caught) {
        EXPECT_TRUE(caught.equal(fullEvent()));
    }
}

TEST(EventCopy, ByCloneAndRaiseIsOfTheEventClassForAPlainEvent) {
    const GenericEvent event = fullEvent();
    const auto clone = event.clone();
    EXPECT_TRUE(isOfType<GenericEvent>(*clone));
    EXPECT_TRUE(clone->equal(event));
    try {
        event.raise();
    } catch (const GenericEvent& raised) {
        EXPECT_TRUE(isOfType<GenericEvent>(raised));
        EXPECT_TRUE(raised.equal(event));
    }
}

// ---- Equality

TEST(EventEqual, ComparesEveryField) {
    const GenericEvent event = fullEvent();
    EXPECT_TRUE(event.equal(fullEvent()));

    const auto with = [](const char* name, const wchar_t* file, int line, unsigned code) {
        GenericEvent other(name, file, line, code);
        other.setParent(TrialError_First(L"src\\cause.cpp", 9))
            .setParam(L"STORE", L"MY")
            .setParam(L"CSP", L"Korvane CSP");
        return other;
    };
    EXPECT_TRUE(event.equal(with("TrialError_Full", L"src\\full.cpp", -7, 4294967295u)));
    EXPECT_FALSE(event.equal(with("TrialError_Ful", L"src\\full.cpp", -7, 4294967295u)));
    EXPECT_FALSE(event.equal(with("TrialError_Full", L"src\\Full.cpp", -7, 4294967295u)));
    EXPECT_FALSE(event.equal(with("TrialError_Full", L"src\\full.cpp", 7, 4294967295u)));
    EXPECT_FALSE(event.equal(with("TrialError_Full", L"src\\full.cpp", -7, 0)));
}

TEST(EventEqual, ComparesParametersAndTheirOrder) {
    GenericEvent ab = plainEvent();
    ab.setParam(L"A", L"1").setParam(L"B", L"2");
    GenericEvent ba = plainEvent();
    ba.setParam(L"B", L"2").setParam(L"A", L"1");
    GenericEvent otherValue = plainEvent();
    otherValue.setParam(L"A", L"1").setParam(L"B", L"3");
    GenericEvent otherKey = plainEvent();
    otherKey.setParam(L"A", L"1").setParam(L"C", L"2");
    GenericEvent fewer = plainEvent();
    fewer.setParam(L"A", L"1");

    EXPECT_FALSE(ab.equal(ba));
    EXPECT_FALSE(ab.equal(otherValue));
    EXPECT_FALSE(ab.equal(otherKey));
    EXPECT_FALSE(ab.equal(fewer));
    EXPECT_FALSE(fewer.equal(ab));
}

TEST(EventEqual, ComparesParents) {
    GenericEvent with = plainEvent();
    with.setParent(TrialError_First(L"src\\a.cpp", 1));
    GenericEvent same = plainEvent();
    same.setParent(TrialError_First(L"src\\a.cpp", 1));
    GenericEvent other = plainEvent();
    other.setParent(TrialError_First(L"src\\a.cpp", 2));

    EXPECT_TRUE(with.equal(same));
    EXPECT_FALSE(with.equal(other));
    EXPECT_FALSE(with.equal(plainEvent()));
    EXPECT_FALSE(plainEvent().equal(with));
}

// ---- Dump

TEST(EventDump, ShowsEverythingInOrder) {
    EXPECT_STREQ(fullEvent().dump().c_str(), L"TrialError_Full\n"
                                             L"  file: src\\full.cpp\n"
                                             L"  line: -7\n"
                                             L"  code: 4294967295\n"
                                             L"  STORE: MY\n"
                                             L"  CSP: Korvane CSP\n"
                                             L"  caused by:\n"
                                             L"    TrialError_First\n"
                                             L"      file: src\\cause.cpp\n"
                                             L"      line: 9\n"
                                             L"      code: 0\n");
}

TEST(EventDump, ShowsTheLeastLine) {
    const GenericEvent event("Name", L"file", std::numeric_limits<int>::min(), 0);
    EXPECT_NE(text(event.dump()).find(L"line: -2147483648\n"), std::wstring::npos);
}

TEST(EventDump, ShowsTheParentsDumpIndented) {
    GenericEvent event = plainEvent();
    event.setParent(fullEvent());
    const std::wstring dump = text(event.dump());
    std::wstring indented = L"    ";
    for (const wchar_t character : text(fullEvent().dump())) {
        indented += character;
        if (character == L'\n')
            indented += L"    ";
    }
    indented.resize(indented.size() - 4);
    EXPECT_NE(dump.find(indented), std::wstring::npos) << "dump and parent's dump differ";
}

TEST(EventDump, ShowsKeysAndValuesWhole) {
    const wchar_t zeroInside[] = {L'A', 0, L'B'};
    GenericEvent event = plainEvent();
    event.setParam(Buffer<wchar_t>(zeroInside, 3), Buffer<wchar_t>(zeroInside, 3))
        .setParam(L"NULL", Buffer<wchar_t>());
    const std::wstring line(L"  A\0B: A\0B\n  NULL: \n", 20);
    EXPECT_NE(text(event.dump()).find(line), std::wstring::npos);
}

// ---- The throw site

TEST(MakeEvent, TakesTheLineOfTheThrow) {
    int line = 0;
    try {
        line = __LINE__ + 1;
        throw makeEvent<TrialError_First>(sourceFile);
    } catch (const TrialError_First& error) {
        EXPECT_EQ(error.line(), line);
        EXPECT_STREQ(error.file().c_str(), sourceFile);
        EXPECT_EQ(error.code(), 0u);
        EXPECT_STREQ(error.what(), "TrialError_First");
        EXPECT_TRUE(error.params().empty());
    }
    try {
        line = __LINE__ + 1;
        throw makeEvent<TrialError_First>(sourceFile, plainEvent(), {{L"KEY", L"value"}});
    } catch (const TrialError_First& error) {
        EXPECT_EQ(error.line(), line);
    }
}

TEST(MakeEvent, SetsParametersInTheOrderWritten) {
    const auto one = makeEvent<TrialError_First>(sourceFile, {{L"STORE", L"MY"}});
    EXPECT_EQ(keysAndValues(one), (Texts{L"STORE", L"MY"}));

    const auto three = makeEvent<TrialError_First>(
        sourceFile, {{L"CSP", L"c"}, {L"CONTAINER", L"b"}, {L"FRIENDLYNAME", L"a"}});
    EXPECT_EQ(keysAndValues(three),
              (Texts{L"CSP", L"c", L"CONTAINER", L"b", L"FRIENDLYNAME", L"a"}));
}

TEST(MakeEvent, TakesTextsAndNumbersAsValues) {
    const auto event = makeEvent<TrialError_First>(
        sourceFile, {{L"BUFFER", Buffer<wchar_t>(L"buffer")},
                     {L"STRING", std::wstring(L"str\0ing", 7)},
                     {L"LITERAL", L"literal"},
                     {L"PROPERTY", 54086u},
                     {L"LEAST", 0u},
                     {L"MOST", std::numeric_limits<std::uint64_t>::max()}});
    EXPECT_EQ(keysAndValues(event),
              (Texts{L"BUFFER", L"buffer", L"STRING", std::wstring(L"str\0ing", 7), L"LITERAL",
                     L"literal", L"PROPERTY", L"54086", L"LEAST", L"0", L"MOST",
                     L"18446744073709551615"}));
}

/// Whether a parameter can be made of a literal 0 of a type.
template <class Param>
concept TakesZero = requires {
    Param(L"KEY", 0);
};
template <class Param>
concept TakesLongZero = requires {
    Param(L"KEY", 0L);
};
template <class Param>
concept TakesUnsignedZero = requires {
    Param(L"KEY", 0u);
};

TEST(MakeEvent, DoesNotTakeALiteralZeroForAText) {
    EXPECT_FALSE(TakesZero<korv::EventParam>);
    EXPECT_FALSE(TakesLongZero<korv::EventParam>);
    EXPECT_TRUE(TakesUnsignedZero<korv::EventParam>);
    EXPECT_FALSE((std::is_constructible_v<korv::EventParam, const wchar_t*, int>));
}

TEST(MakeEvent, TakesAPointerToNoTextForANullText) {
    const wchar_t* const none = nullptr;
    const auto event = makeEvent<TrialError_First>(
        sourceFile, {{L"POINTER", none}, {L"BUFFER", Buffer<wchar_t>()}, {L"EMPTY", L""}});
    ASSERT_EQ(event.params().size(), 3u);
    EXPECT_TRUE(event.params()[0].value.isNull());
    EXPECT_TRUE(event.params()[1].value.isNull());
    EXPECT_FALSE(event.params()[2].value.isNull());
}

TEST(MakeEvent, SharesTheTextsItIsGiven) {
    const Buffer<wchar_t> name(L"a name of more than fifteen units");
    const auto event = makeEvent<TrialError_First>(sourceFile, {{L"STORE", name}});
    EXPECT_EQ(event.param(L"STORE")->data(), name.data());
}

TEST(MakeEvent, KeepsTheCauseAsParent) {
    const BufferError_InvalidEncodingUnit cause(L"util\\include\\bufcodecs.h", 5);
    const auto event = makeEvent<TrialError_First>(sourceFile, cause, {{L"FIELD_NAME", L"serial"}});
    ASSERT_NE(event.parent(), nullptr);
    EXPECT_TRUE(isOfType<BufferError_InvalidEncodingUnit>(*event.parent()));
    EXPECT_TRUE(event.parent()->equal(cause));
    EXPECT_EQ(keysAndValues(event), (Texts{L"FIELD_NAME", L"serial"}));
    EXPECT_EQ(makeEvent<TrialError_First>(sourceFile, cause).params().size(), 0u);
}

TEST(ThrowSite, WrittenOutGivesTheSameAsMakeEvent) {
    const auto event = makeEvent<TrialError_First>(sourceFile, {{L"STORE", L"MY"}, {L"CSP", L"c"}});
    const TrialError_First written(TrialError_First(sourceFile, event.line())
                                       .setParam(L"STORE", L"MY")
                                       .setParam(L"CSP", L"c"));
    EXPECT_TRUE(written.equal(event));
}

TEST(Decimal, WritesNumbersWithoutSignOrLeadingZeros) {
    EXPECT_STREQ(korv::decimal(0).c_str(), L"0");
    EXPECT_STREQ(korv::decimal(19).c_str(), L"19");
    EXPECT_STREQ(korv::decimal(4294967295u).c_str(), L"4294967295");
    EXPECT_STREQ(korv::decimal(std::numeric_limits<std::uint64_t>::max()).c_str(),
                 L"18446744073709551615");
}

// ---- The virtual table

// A program calls the events it catches through the slots that the header had when the program
// was compiled, so the order of the virtual functions is part of the library's interface. The
// Itanium C++ ABI, which GCC and clang follow here and on mingw-w64, begins a table with two
// destructors and stores in a pointer to a virtual member one more than the slot's offset.
#ifdef __GNUG__
namespace {

template <class MemberFunction>
std::size_t slotOf(MemberFunction function) {
    std::ptrdiff_t encoded = 0;
    static_assert(sizeof(function) == 2 * sizeof(encoded));
    std::memcpy(&encoded, &function, sizeof(encoded));
    return encoded % 2 == 1 ? static_cast<std::size_t>(encoded - 1) / sizeof(void*) : SIZE_MAX;
}

using AnyFunction = void (*)();

const AnyFunction* tableOf(const GenericEvent& event) {
    const AnyFunction* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&event), sizeof(table));
    return table;
}

} // namespace

TEST(EventTable, OrdersTheFunctionsBehindTheTwoDestructors) {
    EXPECT_EQ(slotOf(&GenericEvent::what), 2u);
    EXPECT_EQ(slotOf(&GenericEvent::clone), 3u);
    EXPECT_EQ(slotOf(&GenericEvent::event), 4u);
    EXPECT_EQ(slotOf(&GenericEvent::equal), 5u);
    EXPECT_EQ(slotOf(&GenericEvent::dump), 6u);
    EXPECT_EQ(slotOf(&GenericEvent::raise), 7u);
}

TEST(EventTable, CallsTheSameFunctionsWhenItsSlotsAreCalled) {
    const TrialError_First event(sourceFile, 1);
    const TrialError_First same(sourceFile, 1);
    const AnyFunction* table = tableOf(event);

    using What = const char* (*)(const GenericEvent*);
    EXPECT_STREQ(reinterpret_cast<What>(table[2])(&event), "TrialError_First");
    using Event = const GenericEvent& (*)(const GenericEvent*);
    EXPECT_EQ(&reinterpret_cast<Event>(table[4])(&event), &event);
    using Equal = bool (*)(const GenericEvent*, const GenericEvent*);
    EXPECT_TRUE(reinterpret_cast<Equal>(table[5])(&event, &same));
    using Raise = void (*)(const GenericEvent*);
    EXPECT_THROW(reinterpret_cast<Raise>(table[7])(&event), TrialError_First);
}

TEST(EventTable, HasDestructorsCloneAndRaiseOfEachClassAndSharesTheRest) {
    const AnyFunction* base = tableOf(GenericEvent("Name", L"file", 1, 0));
    const AnyFunction* first = tableOf(TrialError_First(sourceFile, 1));
    const AnyFunction* second = tableOf(TrialError_Second(sourceFile, 1));
    for (const std::size_t own : {3u, 7u}) {
        EXPECT_NE(first[own], base[own]) << own;
        EXPECT_NE(first[own], second[own]) << own;
    }
    for (const std::size_t shared : {2u, 4u, 5u, 6u}) {
        EXPECT_EQ(first[shared], base[shared]) << shared;
        EXPECT_EQ(second[shared], base[shared]) << shared;
    }
}

TEST(EventTable, BeginsWithTheDestructorThatLeavesTheMemoryAlone) {
    alignas(TrialError_First) unsigned char memory[sizeof(TrialError_First)];
    auto* event = new (memory) TrialError_First(sourceFile, 1);
    const Buffer<wchar_t> shared(L"a value of more than fifteen units");
    event->setParam(L"KEY", shared);
    EXPECT_EQ(shared.references(), 2u);
    using Destroy = void (*)(GenericEvent*);
    reinterpret_cast<Destroy>(tableOf(*event)[0])(event);
    EXPECT_EQ(shared.references(), 1u);

    auto* onHeap = new TrialError_First(sourceFile, 1);
    onHeap->setParam(L"KEY", shared);
    reinterpret_cast<Destroy>(tableOf(*onHeap)[1])(onHeap);
    EXPECT_EQ(shared.references(), 1u);
}
#endif
