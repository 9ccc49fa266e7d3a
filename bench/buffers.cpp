// Buffers, against the standard library's strings and strings that are shared.
#include "bufcodecs.h"
#include "buffer.h"
#include "comparison.h"
#include "models.h"

#include <map>
#include <random>

namespace bench {

namespace {

using Wide = buffer::Buffer<wchar_t>;
using Shared = SharedString<wchar_t>;

constexpr char standardString[] = "std::basic_string";
constexpr char sharedString[] = "shared_ptr";

std::wstring textOf(std::size_t size) {
    std::wstring text;
    for (std::size_t i = 0; i != size; ++i)
        text += static_cast<wchar_t>(L'a' + i % 26);
    return text;
}

template <class Text>
auto copyOf(Text text) {
    return [text = std::move(text)] {
        Text copy(text);
        benchmark::DoNotOptimize(copy);
        return copy.size();
    };
}

void addCopies(const char* work, std::size_t size) {
    const std::wstring text = textOf(size);
    compare(work, library, size, copyOf(Wide(text.c_str())));
    compare(work, standardString, size, copyOf(text));
    compare(work, sharedString, size, copyOf(Shared(text)));
}

template <class Text, class Append>
auto appended(std::size_t size, Append append) {
    return [size, append] {
        Text text;
        for (std::size_t i = 0; i != size; ++i)
            append(text, static_cast<wchar_t>(L'a' + (i & 15)));
        benchmark::DoNotOptimize(text);
        return text.size();
    };
}

void addAppends(std::size_t size) {
    compare("append", library, size,
            appended<Wide>(size, [](Wide& text, wchar_t c) { text.append(c); }));
    compare("append", standardString, size,
            appended<std::wstring>(size, [](std::wstring& text, wchar_t c) { text.push_back(c); }));
    compare("append", sharedString, size,
            appended<Shared>(size, [](Shared& text, wchar_t c) { text.append(c); }));
}

/// Names of key containers, as a token's certificates have them.
std::vector<std::wstring> containerNames(std::size_t count) {
    std::mt19937_64 random(1); // the same names in every run
    std::vector<std::wstring> names;
    for (std::size_t i = 0; i != count; ++i) {
        unsigned char id[20];
        for (unsigned char& byte : id)
            byte = static_cast<unsigned char>(random());
        names.push_back(L"CKAIDHEX:" + std::wstring(buffer::hexEncode({id, sizeof id}).c_str()));
    }
    return names;
}

/// Looks all keys up, one after the other.
template <class Key, class Make>
auto lookUp(const std::vector<std::wstring>& names, Make make) {
    std::map<Key, std::size_t> map;
    std::vector<Key> keys;
    for (const std::wstring& name : names) {
        map.emplace(make(name), map.size());
        keys.push_back(make(name));
    }
    return [map = std::move(map), keys = std::move(keys), next = std::size_t{0}]() mutable {
        next = next + 1 == keys.size() ? 0 : next + 1;
        return map.find(keys[next])->second;
    };
}

void addLookUps(std::size_t count) {
    const std::vector<std::wstring> names = containerNames(count);
    compare("mapkey", library, count,
            lookUp<Wide>(names, [](const std::wstring& name) { return Wide(name.c_str()); }),
            count);
    compare("mapkey", standardString, count,
            lookUp<std::wstring>(names, [](const std::wstring& name) { return name; }), count);
    compare("mapkey", sharedString, count,
            lookUp<Shared>(names, [](const std::wstring& name) { return Shared(name); }), count);
}

} // namespace

void addBuffers() {
    addCopies("copyshort", 10);
    for (const std::size_t size : {100u, 1'000u, 10'000u, 100'000u})
        addCopies("copylong", size);
    for (const std::size_t size : {10u, 100u, 1'000u, 10'000u, 100'000u})
        addAppends(size);
    for (const std::size_t count : {10u, 100u, 1'000u, 10'000u})
        addLookUps(count);
}

} // namespace bench
