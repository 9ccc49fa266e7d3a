// The text form of a binding.
#include "cspbinding.h"

#include "bufcodecs.h"

#include <string_view>

namespace pkcs11::certstoreupdater {

namespace {

constexpr wchar_t lineEnd = L'\n';

std::wstring takeLine(std::wstring_view& text) {
    const std::wstring_view line = text.substr(0, text.find(lineEnd));
    text.remove_prefix(line.size());
    if (!text.empty())
        text.remove_prefix(1);
    return std::wstring(line);
}

} // namespace

Buffer<unsigned char> encodeKorvaneCspRef(const CspBinding& binding) {
    const std::wstring lines = binding.containerName + lineEnd + binding.cspName + lineEnd;
    buffer::TmpBuffer<unsigned char> value;
    buffer::Utf8Encoder::encode({lines.data(), lines.size()}, value);
    return value;
}

CspBinding decodeKorvaneCspRef(BufferRange<unsigned char> value) {
    buffer::TmpBuffer<wchar_t> text;
    buffer::Utf8Decoder::decode(value, text);
    std::wstring_view rest(text.c_str(), text.size());
    CspBinding binding;
    binding.containerName = takeLine(rest);
    binding.cspName = takeLine(rest);
    return binding;
}

} // namespace pkcs11::certstoreupdater
