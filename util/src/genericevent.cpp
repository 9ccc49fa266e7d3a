// The event record.
#include "genericevent.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>

namespace korv {

namespace {

void appendText(TmpBuffer<wchar_t>& out, std::wstring_view text) {
    out.append(text.data(), text.size());
}

void appendAscii(TmpBuffer<wchar_t>& out, const Buffer<char>& text) {
    for (const char character : text)
        out.append(static_cast<wchar_t>(static_cast<unsigned char>(character)));
}

Buffer<wchar_t> signedDecimal(std::int64_t number) {
    Buffer<wchar_t> text = number < 0 ? L"-" : L"";
    const auto magnitude = static_cast<std::uint64_t>(number);
    text.append(decimal(number < 0 ? 0 - magnitude : magnitude));
    return text;
}

void appendLine(TmpBuffer<wchar_t>& out, std::wstring_view indent, const Buffer<wchar_t>& key,
                const Buffer<wchar_t>& value) {
    appendText(out, indent);
    out.append(key);
    appendText(out, L": ");
    out.append(value);
    appendText(out, L"\n");
}

void appendEvent(TmpBuffer<wchar_t>& out, std::wstring_view indent, const GenericEvent& event) {
    appendText(out, indent);
    appendAscii(out, event.name());
    appendText(out, L"\n");
    const std::wstring inner = std::wstring(indent) + L"  ";
    appendLine(out, inner, L"file", event.file());
    appendLine(out, inner, L"line", signedDecimal(event.line()));
    appendLine(out, inner, L"code", decimal(event.code()));
    for (const GenericEvent::Param& param : event.params())
        appendLine(out, inner, param.key, param.value);
    if (event.parent()) {
        appendText(out, inner);
        appendText(out, L"caused by:\n");
        appendEvent(out, inner + L"  ", *event.parent());
    }
}

} // namespace

GenericEvent::GenericEvent(const Buffer<char>& name, const Buffer<wchar_t>& file, int line,
                           unsigned code)
    : name_(name), file_(file), line_(line), code_(code) {}

GenericEvent::GenericEvent(const GenericEvent& other)
    : std::exception(other), name_(other.name_), file_(other.file_), line_(other.line_),
      code_(other.code_), params_(other.params_),
      parent_(other.parent_ ? other.parent_->clone() : nullptr) {}

GenericEvent& GenericEvent::operator=(const GenericEvent& other) {
    GenericEvent copy(other);
    return *this = std::move(copy);
}

GenericEvent::~GenericEvent() = default;

const char* GenericEvent::what() const noexcept {
    return name_.c_str();
}

std::unique_ptr<GenericEvent> GenericEvent::clone() const {
    return std::make_unique<GenericEvent>(*this);
}

const GenericEvent& GenericEvent::event() const noexcept {
    return *this;
}

bool GenericEvent::equal(const GenericEvent& other) const noexcept {
    const bool sameParents =
        parent_ && other.parent_ ? parent_->equal(*other.parent_) : !parent_ && !other.parent_;
    return sameParents && name_ == other.name_ && file_ == other.file_ && line_ == other.line_ &&
           code_ == other.code_ && params_ == other.params_;
}

TmpBuffer<wchar_t> GenericEvent::dump() const {
    TmpBuffer<wchar_t> text;
    appendEvent(text, L"", *this);
    return text;
}

void GenericEvent::raise() const {
    throw GenericEvent(*this);
}

GenericEvent& GenericEvent::setParam(const Buffer<wchar_t>& key, const Buffer<wchar_t>& value) {
    params_.push_back({key, value});
    return *this;
}

GenericEvent& GenericEvent::setParent(const GenericEvent& cause) {
    parent_ = cause.clone();
    return *this;
}

const Buffer<wchar_t>* GenericEvent::param(const Buffer<wchar_t>& key) const noexcept {
    const auto found =
        std::find_if(params_.begin(), params_.end(), [&](const Param& p) { return p.key == key; });
    return found == params_.end() ? nullptr : &found->value;
}

Buffer<wchar_t> decimal(std::uint64_t number) {
    std::array<char, 20> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    Buffer<wchar_t> text(static_cast<std::size_t>(end - digits.data()));
    std::copy(digits.data(), end, text.data());
    return text;
}

} // namespace korv
