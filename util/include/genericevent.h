// The event record: what every exception of the library carries.
#pragma once

#include "buffer.h"
#include "export.h"

#include <concepts>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>
#include <vector>

namespace korv {

using buffer::Buffer;
using buffer::TmpBuffer;

/// A named, located, parameterised description of what went wrong, thrown as an exception.
///
/// An event owns all its texts and its parent; copies are independent and may cross threads.
/// Constructors and `setParam` fail only with std::bad_alloc.
class CERTSTOREUPDATER_API GenericEvent : public std::exception {
public:
    /// A parameter.
    struct Param {
        Buffer<wchar_t> key;   ///< "STORE", "CAUSE", ...
        Buffer<wchar_t> value; ///< free text; numbers are decimal
        friend bool operator==(const Param&, const Param&) = default;
    };

    /// \param name unqualified class name of the event
    /// \param file source file of the throw site, relative, with backslashes
    /// \param line line of the throw statement
    /// \param code 0 for every event of this library
    GenericEvent(const Buffer<char>& name, const Buffer<wchar_t>& file, int line, unsigned code);
    GenericEvent(const GenericEvent& other);
    GenericEvent(GenericEvent&&) noexcept = default;
    GenericEvent& operator=(const GenericEvent& other);
    GenericEvent& operator=(GenericEvent&&) noexcept = default;

    ~GenericEvent() override;
    /// The event's name, zero-terminated, valid as long as the event is.
    const char* what() const noexcept override;
    /// A copy with the most-derived type of this object, owned by the caller.
    virtual std::unique_ptr<GenericEvent> clone() const;
    /// This object.
    virtual const GenericEvent& event() const noexcept;
    /// Whether both have the same name, file, line, code, parameters and equal parents.
    virtual bool equal(const GenericEvent& other) const noexcept;
    /// Name, file, line, code, the parameters in order and the parent's dump, each on a line of
    /// its own, a parent's lines indented.
    virtual TmpBuffer<wchar_t> dump() const;
    /// Throws a copy of this object with its most-derived type.
    [[noreturn]] virtual void raise() const;

    /// Adds a parameter behind those already set. Keys are not looked at: one that is set twice
    /// occurs twice.
    GenericEvent& setParam(const Buffer<wchar_t>& key, const Buffer<wchar_t>& value);
    /// Stores a copy of `cause`, with its most-derived type, as the reason for this event.
    GenericEvent& setParent(const GenericEvent& cause);

    const Buffer<char>& name() const noexcept { return name_; }    ///< the class's name
    const Buffer<wchar_t>& file() const noexcept { return file_; } ///< of the throw site
    int line() const noexcept { return line_; }                    ///< of the throw site
    unsigned code() const noexcept { return code_; }               ///< always 0
    /// In the order in which they were set.
    const std::vector<Param>& params() const noexcept { return params_; }
    /// The value of the first parameter with this key, or null. The event owns it.
    const Buffer<wchar_t>* param(const Buffer<wchar_t>& key) const noexcept;
    /// The reason for this event, or null. The event owns it.
    const GenericEvent* parent() const noexcept { return parent_.get(); }

private:
    Buffer<char> name_;
    Buffer<wchar_t> file_;
    std::int32_t line_;
    std::uint32_t code_;
    std::vector<Param> params_;
    std::unique_ptr<GenericEvent> parent_;
};

/// Decimal text of a number, as it stands in event parameters.
CERTSTOREUPDATER_API Buffer<wchar_t> decimal(std::uint64_t number);

} // namespace korv

/// Defines an event class that is caught, never thrown: the base of a family.
#define KORV_EVENT_FAMILY(Family, Base)                                                            \
    class Family : public Base {                                                                   \
    public:                                                                                        \
        Family(const ::korv::GenericEvent& event) : Base(event) {}                                 \
        Family(const Family&) = default;                                                           \
        ~Family() override = default;                                                              \
        std::unique_ptr<::korv::GenericEvent> clone() const override {                             \
            return std::make_unique<Family>(*this);                                                \
        }                                                                                          \
        [[noreturn]] void raise() const override { throw Family(*this); }                          \
    }

/// Defines an event class that is thrown: its name is the class name, its code 0. The
/// constructor that takes any event keeps that event's name, place, parameters and parent.
#define KORV_EVENT_CLASS(Event, Family)                                                            \
    class Event : public Family {                                                                  \
    public:                                                                                        \
        Event(const ::buffer::Buffer<wchar_t>& file, int line)                                     \
            : Family(::korv::GenericEvent(#Event, file, line, 0)) {}                               \
        Event(const ::korv::GenericEvent& event) : Family(event) {}                                \
        Event(const Event&) = default;                                                             \
        ~Event() override = default;                                                               \
        std::unique_ptr<::korv::GenericEvent> clone() const override {                             \
            return std::make_unique<Event>(*this);                                                 \
        }                                                                                          \
        [[noreturn]] void raise() const override { throw Event(*this); }                           \
    }
