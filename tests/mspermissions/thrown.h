// The events that the permission operations throw.
#pragma once

#include "certstoreupdatererror.h"
#include "throwsite.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <ostream>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace mspermissions_test {

using Params = std::vector<std::pair<std::wstring, std::wstring>>;

/// What an event says, without its line.
struct Thrown {
    std::string name;
    Params params;
    friend bool operator==(const Thrown&, const Thrown&) = default;
};

inline void PrintTo(const Thrown& thrown, std::ostream* out) {
    *out << thrown.name << ::testing::PrintToString(thrown.params);
}

/// The error of a Windows function.
inline Thrown failureOf(const std::wstring& method, DWORD error) {
    return {"CertStoreUpdaterError_InvalidConfiguration",
            {{L"Method", method}, {L"error", std::to_wstring(error)}}};
}

inline std::wstring toWstring(const buffer::Buffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

/// What `action` throws, which must be an event of the permission code and of the right class;
/// {"nothing", {}} if it returns.
template <class Action>
Thrown thrownBy(Action&& action) {
    try {
        action();
    } catch (const korv::GenericEvent& event) {
        EXPECT_TRUE(typeid(event) ==
                    typeid(pkcs11::certstoreupdater::CertStoreUpdaterError_InvalidConfiguration));
        EXPECT_EQ(toWstring(event.file()), L"src\\mspermissions.cpp");
        testsupport::expectThrowSite(event);
        EXPECT_EQ(event.code(), 0u);
        EXPECT_EQ(event.parent(), nullptr);
        Thrown thrown{event.what(), {}};
        for (const auto& param : event.params())
            thrown.params.emplace_back(toWstring(param.key), toWstring(param.value));
        return thrown;
    }
    return {"nothing", {}};
}

} // namespace mspermissions_test
