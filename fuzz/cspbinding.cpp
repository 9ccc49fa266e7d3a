// The property that records a binding, from any bytes and back from any names.
#include "cspbinding.h"

#include "bufcodecs.h"
#include "fuzztarget.h"

#include <algorithm>
#include <sstream>

namespace fuzz {

namespace {

using buffer::BufferError_InvalidEncodingUnit;
using pkcs11::certstoreupdater::CspBinding;

/// The lines as a stream gives them; a missing one is empty.
CspBinding readByStream(Input input) {
    buffer::Buffer<wchar_t> text = L"";
    buffer::Utf8Decoder::decode(input, text);
    std::wistringstream stream(std::wstring(text.begin(), text.end()));
    CspBinding binding;
    std::getline(stream, binding.containerName);
    std::getline(stream, binding.cspName);
    return binding;
}

void checkDecoding(Input input) {
    CspBinding binding;
    const bool isDecoded = returns<BufferError_InvalidEncodingUnit>(
        [&] { binding = pkcs11::certstoreupdater::decodeKorvaneCspRef(input); });
    CspBinding expected;
    require(isDecoded ==
                returns<BufferError_InvalidEncodingUnit>([&] { expected = readByStream(input); }),
            "its text and its lines are not both decoded");
    require(binding.containerName == expected.containerName && binding.cspName == expected.cspName,
            "it has other lines");
    require(!isDecoded || binding.isTo(expected.cspName, expected.containerName),
            "it is not a binding to its own names");
}

/// Two names of any units but line feeds, from the two halves of the input.
CspBinding namesFrom(Input input) {
    std::wstring units = unitsOf(input);
    std::ranges::replace(units, L'\n', L'\r');
    return {units.substr(0, units.size() / 2), units.substr(units.size() / 2)};
}

void checkRoundTrip(Input input) {
    const CspBinding names = namesFrom(input);
    const auto value = pkcs11::certstoreupdater::encodeKorvaneCspRef(names);
    require(std::ranges::count(value, '\n') == 2 && value.data()[value.size() - 1] == '\n',
            "it is not two lines");
    const CspBinding read = pkcs11::certstoreupdater::decodeKorvaneCspRef(value);
    require(read.containerName == names.containerName && read.cspName == names.cspName,
            "other names come back");
}

} // namespace

void cspbinding(Input input) {
    checkDecoding(input);
    checkRoundTrip(input);
}

} // namespace fuzz
