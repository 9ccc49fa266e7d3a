// What the tests of CertStoreHelper share.
#pragma once

#include "bufcodecs.h"
#include "certbuilder.h"
#include "certstorehelper.h"
#include "cryptoapi.h"
#include "der.h"
#include "storeview.h"
#include "throwsite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace testsupport {

using pkcs11::certstoreupdater::CertItem;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreHelper;
using pkcs11::certstoreupdater::CertStoreUpdaterError;

using Params = std::vector<std::pair<std::wstring, std::wstring>>;

constexpr wchar_t certStoreHelperFile[] = L"src\\certstorehelper.cpp";

inline std::wstring toString(const buffer::Buffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

inline Params paramsOf(const korv::GenericEvent& event) {
    Params params;
    for (const korv::GenericEvent::Param& param : event.params())
        params.emplace_back(toString(param.key), toString(param.value));
    return params;
}

/// Expects `call` to throw an event of exactly this class, with these parameters in this order.
template <class Event, class Call>
void expectThrows(Call call, std::string_view name, const Params& params = {},
                  const std::wstring& file = certStoreHelperFile) {
    try {
        call();
        FAIL() << "nothing was thrown";
    } catch (const korv::GenericEvent& event) {
        EXPECT_EQ(typeid(event), typeid(Event));
        EXPECT_EQ(event.what(), name);
        EXPECT_EQ(toString(event.file()), file);
        expectThrowSite(event);
        EXPECT_EQ(event.code(), 0u);
        EXPECT_EQ(paramsOf(event), params);
    }
}

/// Expects an event of the library's own family. The class is its name.
#define EXPECT_THROWS_EVENT(Event, call, ...)                                                      \
    ::testsupport::expectThrows<::pkcs11::certstoreupdater::Event>(                                \
        [&] { call; }, #Event __VA_OPT__(, ) __VA_ARGS__)

inline void expectThrowsMalformedUtf8(const std::function<void()>& call) {
    expectThrows<buffer::BufferError_InvalidEncodingUnit>(
        call, "BufferError_InvalidEncodingUnit",
        {{L"CODEC", L"Utf8Decoder"}, {L"CAUSE", L"BadUft8Encoding"}},
        L"util\\include\\bufcodecs.h");
}

inline asn1::Certificate certificateOf(const Bytes& encoded) {
    asn1::Certificate certificate;
    asn1::der::decode({encoded.data(), encoded.size()}, certificate);
    return certificate;
}

inline Bytes bytesOf(const asn1::Certificate& certificate) {
    const auto encoded = certificate.encoding();
    return Bytes(encoded.begin(), encoded.end());
}

/// A certificate that differs from those of other numbers.
inline Bytes numbered(int number) {
    return CertBuilder()
        .serialNumber(number)
        .names("Holder " + std::to_string(number), "Test issuer")
        .build();
}

/// A KorvaneCspRef value of ASCII text.
inline Bytes reference(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

inline KeyProvInfo keyProvInfo(const std::wstring& container, const std::wstring& provider) {
    KeyProvInfo info;
    info.container = container;
    info.provider = provider;
    return info;
}

inline CertItem itemOf(const Bytes& encoded, const wchar_t* label = L"") {
    CertItem item;
    item.label = label;
    item.certificate = certificateOf(encoded);
    return item;
}

/// A store that is empty before and gone after the test.
class StoreTest : public testing::Test {
protected:
    const std::wstring& storeName() const { return store.name(); }

    TestStore store;
};

} // namespace testsupport
