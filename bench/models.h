// What programs use in the place of this library's values: the standard library's strings, and
// strings that share like QByteArray does.
#pragma once

#include <memory>
#include <string>
#include <utility>

namespace bench {

/// Copies share the text until one of them is changed.
template <class T>
class SharedString {
public:
    SharedString() = default;
    SharedString(std::basic_string<T> text)
        : text_(std::make_shared<std::basic_string<T>>(std::move(text))) {}

    std::size_t size() const { return text_ ? text_->size() : 0; }

    void append(T element) {
        if (!text_)
            text_ = std::make_shared<std::basic_string<T>>();
        else if (text_.use_count() != 1)
            text_ = std::make_shared<std::basic_string<T>>(*text_);
        text_->push_back(element);
    }

    friend bool operator<(const SharedString& a, const SharedString& b) {
        return *a.text_ < *b.text_;
    }

private:
    std::shared_ptr<std::basic_string<T>> text_;
};

} // namespace bench
