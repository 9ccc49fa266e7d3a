// How every throw site of the library makes the event that it throws.
#pragma once

#include "genericevent.h"

#include <initializer_list>
#include <string>

namespace korv {

/// A parameter as a throw site writes it: a key and a text or a number.
class EventParam {
public:
    /// A zero-terminated text.
    EventParam(const wchar_t* key, const wchar_t* text) : param_{key, text} {}
    /// A text.
    EventParam(const wchar_t* key, const Buffer<wchar_t>& text) : param_{key, text} {}
    /// A text.
    EventParam(const wchar_t* key, const std::wstring& text)
        : param_{key, Buffer<wchar_t>(text.data(), text.size())} {}
    /// A number, as decimal text.
    template <std::unsigned_integral Number>
    EventParam(const wchar_t* key, Number number) : param_{key, decimal(number)} {}
    /// No parameter has a sign. A literal 0, which would be a null pointer to a text, is 0u.
    template <std::signed_integral Number>
    EventParam(const wchar_t* key, Number number) = delete;

    /// As the event keeps it.
    const GenericEvent::Param& get() const noexcept { return param_; }

private:
    GenericEvent::Param param_;
};

/// The event of class `Event` for the line that calls this function.
/// \param file the caller's source file, relative, with backslashes
/// \param line left to its default, which is the line of the call
template <class Event>
Event makeEvent(const wchar_t* file, std::initializer_list<EventParam> params = {},
                int line = __builtin_LINE()) {
    Event event(file, line);
    for (const EventParam& param : params)
        event.setParam(param.get().key, param.get().value);
    return event;
}

/// The same for an event that `cause` led to.
template <class Event>
Event makeEvent(const wchar_t* file, const GenericEvent& cause,
                std::initializer_list<EventParam> params = {}, int line = __builtin_LINE()) {
    Event event(file, line);
    event.setParent(cause);
    for (const EventParam& param : params)
        event.setParam(param.get().key, param.get().value);
    return event;
}

} // namespace korv
