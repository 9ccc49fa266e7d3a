// Descriptions of ASN.1 types. Each SEQUENCE and CHOICE names its members once, in order;
// decoding, lengths, encoding and comparison all work from that list.
#pragma once

#include "asn1.h"

#include <concepts>
#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <type_traits>

namespace asn1 {

class Boolean;
class List;

/// How the values of a type are encoded.
enum class TypeClass : unsigned {
    boolean,
    integer,
    bitString,
    octetString,
    objectIdentifier,
    characterString,
    twoByteString,
    fourByteString,
    utcTime,
    generalizedTime,
    sequence,
    sequenceOf,
    setOf,
    choice,
    openType,
    kept, ///< a value held as its encoding, which is that of `Type::element`
};

/// How the values of a type are held, which is what code for all types asks first.
enum class Form : unsigned char {
    unknown,      ///< not at all: the class is none of `TypeClass`
    primitive,    ///< ContentsValue that has no elements in it
    list,         ///< ContentsValue of one element after the other
    members,      ///< Sequence
    alternatives, ///< Choice
    openElement,  ///< EncodedValue of any type
    kept,         ///< EncodedValue of the type `Type::element`
};

/// The form of a class's values.
constexpr Form formOf(TypeClass typeClass) noexcept {
    switch (typeClass) {
    case TypeClass::boolean:
    case TypeClass::integer:
    case TypeClass::bitString:
    case TypeClass::octetString:
    case TypeClass::objectIdentifier:
    case TypeClass::characterString:
    case TypeClass::twoByteString:
    case TypeClass::fourByteString:
    case TypeClass::utcTime:
    case TypeClass::generalizedTime:
        return Form::primitive;
    case TypeClass::sequenceOf:
    case TypeClass::setOf:
        return Form::list;
    case TypeClass::sequence:
        return Form::members;
    case TypeClass::choice:
        return Form::alternatives;
    case TypeClass::openType:
        return Form::openElement;
    case TypeClass::kept:
        return Form::kept;
    }
    return Form::unknown;
}

/// Identifier octets (X.690 8.1.2) of the tags used here, all with numbers below 31.
namespace tag {
inline constexpr unsigned char constructed = 0x20; ///< bit of what has elements as contents
inline constexpr unsigned char none = 0; ///< CHOICE and open types have no tag of their own

/// Of a type of X.680 itself.
constexpr unsigned char universal(unsigned number) {
    return static_cast<unsigned char>(number);
}
/// Of a tag in brackets.
constexpr unsigned char context(unsigned number) {
    return static_cast<unsigned char>(0x80 | number);
}
/// Class and number without the constructed bit.
constexpr unsigned char masked(unsigned char identifier) {
    return static_cast<unsigned char>(identifier & ~constructed);
}
} // namespace tag

struct Member;

/// The description of a type; a constant.
struct Type {
    const char* name;         ///< as in the ASN.1 module; errors show it
    TypeClass typeClass;      ///< how values are encoded
    unsigned char identifier; ///< identifier octet with the constructed bit as DER has it
    std::span<const Member> members = {}; ///< of a SEQUENCE or a CHOICE
    const Type* element = nullptr;        ///< of SEQUENCE OF, SET OF and kept values
    Form form = formOf(typeClass);        ///< how values are held; never set otherwise
};

/// Whether a member has a tag in brackets, and of which kind.
enum class Tagging : unsigned char { none, implicitTag, explicitTag };
/// Whether a member may be absent.
enum class Presence : unsigned char { mandatory, optional, defaulted };

/// One member of a SEQUENCE or one alternative of a CHOICE.
struct Member {
    const char* name; ///< as in the ASN.1 module; "FIELD_NAME" of errors
    const Type* type; ///< what it is
    /// The member within its owner, or null if it is optional and absent.
    const Asn1* (*find)(const Asn1& owner);
    /// The member within its owner, made present.
    Asn1& (*emplace)(Asn1& owner);
    /// Makes an optional member absent.
    void (*remove)(Asn1& owner);

    Presence presence = Presence::mandatory;    ///< whether it may be absent
    Tagging tagging = Tagging::none;            ///< whether it has a tag of its own
    unsigned char taggedIdentifier = tag::none; ///< the identifier octet of that tag; an implicit
                                                ///< one takes the constructed bit of its type
    BufferRange<unsigned char> defaultContents = {}; ///< contents octets of the DEFAULT value
};

/// Whether values of the type begin with a tag of its own, whose place an implicit tag can take
/// (X.680 31.2.7). A CHOICE, an open type and a kept value have none.
template <class Value>
concept HasOwnTag = std::derived_from<Value, ContentsValue> || std::derived_from<Value, Sequence>;

/// Whether a member can have a DEFAULT: it may be absent, and its values are contents octets
/// without elements in them, which are compared with those of the DEFAULT.
template <class Value, bool isOptional>
concept MayHaveDefault =
    isOptional && std::derived_from<Value, ContentsValue> && !std::derived_from<Value, List>;

/// A member as it is declared: what its type does not allow does not compile.
template <class Value, bool isOptional>
struct MemberOf : Member {
    /// This member with [number] IMPLICIT.
    constexpr MemberOf implicitly(unsigned number) const requires HasOwnTag<Value> {
        MemberOf tagged = *this;
        tagged.tagging = Tagging::implicitTag;
        tagged.taggedIdentifier = tag::context(number);
        return tagged;
    }
    /// This member with [number] EXPLICIT.
    constexpr MemberOf explicitly(unsigned number) const {
        MemberOf tagged = *this;
        tagged.tagging = Tagging::explicitTag;
        tagged.taggedIdentifier = tag::context(number) | tag::constructed;
        return tagged;
    }
    /// This member with a DEFAULT. Its field is a std::optional, because it may be absent.
    /// \param contents of the default value as DER has them; must outlive the member
    constexpr MemberOf withDefault(std::span<const unsigned char> contents) const requires
        MayHaveDefault<Value, isOptional> {
        if constexpr (std::derived_from<Value, Boolean>)
            if (contents.size() != 1 || (contents[0] != 0x00 && contents[0] != 0xFF))
                throw std::logic_error("no BOOLEAN of DER"); // a constant does not compile then
        MemberOf defaulted = *this;
        defaulted.presence = Presence::defaulted;
        defaulted.defaultContents = {contents.data(), contents.size()};
        return defaulted;
    }
};

namespace detail {

template <class MemberPointer>
struct MemberPointerTraits;
template <class Owner, class Value>
struct MemberPointerTraits<Value Owner::*> {
    using OwnerType = Owner;
    using ValueType = Value;
    static constexpr bool isOptional = false;
};
template <class Owner, class Value>
struct MemberPointerTraits<std::optional<Value> Owner::*> {
    using OwnerType = Owner;
    using ValueType = Value;
    static constexpr bool isOptional = true;
};

template <auto Pointer>
struct MemberAccess {
    using Traits = MemberPointerTraits<decltype(Pointer)>;
    using Owner = typename Traits::OwnerType;

    static const Asn1* find(const Asn1& owner) {
        const auto& field = static_cast<const Owner&>(owner).*Pointer;
        if constexpr (Traits::isOptional)
            return field ? &*field : nullptr;
        else
            return &field;
    }
    static Asn1& emplace(Asn1& owner) {
        auto& field = static_cast<Owner&>(owner).*Pointer;
        if constexpr (Traits::isOptional)
            return field ? *field : field.emplace();
        else
            return field;
    }
    static void remove(Asn1& owner) {
        if constexpr (Traits::isOptional)
            (static_cast<Owner&>(owner).*Pointer).reset();
    }
};

} // namespace detail

/// Describes the field `Pointer`. A field of type std::optional is OPTIONAL; it has a DEFAULT if
/// `withDefault` says so.
template <auto Pointer>
constexpr auto member(const char* name) {
    using Access = detail::MemberAccess<Pointer>;
    using Traits = typename Access::Traits;
    return MemberOf<typename Traits::ValueType, Traits::isOptional>{
        {name, &Traits::ValueType::asn1Type, &Access::find, &Access::emplace, &Access::remove,
         Traits::isOptional ? Presence::optional : Presence::mandatory}};
}

/// A SEQUENCE; the members must outlive it.
constexpr Type sequence(const char* name, std::span<const Member> members) {
    return {name, TypeClass::sequence, tag::universal(16) | tag::constructed, members};
}
/// A CHOICE; the alternatives must outlive it.
constexpr Type choice(const char* name, std::span<const Member> alternatives) {
    return {name, TypeClass::choice, tag::none, alternatives};
}
/// A SEQUENCE OF; the element's type must outlive it.
constexpr Type sequenceOf(const char* name, const Type& element) {
    return {name, TypeClass::sequenceOf, tag::universal(16) | tag::constructed, {}, &element};
}
/// A SET OF; the element's type must outlive it.
constexpr Type setOf(const char* name, const Type& element) {
    return {name, TypeClass::setOf, tag::universal(17) | tag::constructed, {}, &element};
}

/// The position of the member called `name`; only for use in constant expressions, where a name
/// that does not exist does not compile.
consteval std::size_t indexOf(std::span<const Member> members, std::string_view name) {
    std::size_t index = 0;
    while (name != members[index].name)
        ++index;
    return index;
}

} // namespace asn1
