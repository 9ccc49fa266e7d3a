// What comes out of a run of the library.
#include "outcome.h"

#include "genericevent.h"
#include "throwsite.h"

#include <boost/filesystem/exception.hpp>

#include <gtest/gtest.h>

#include <new>
#include <ostream>
#include <typeinfo>

namespace torture {

namespace {

std::wstring textOf(const buffer::Buffer<wchar_t>& text) {
    return std::wstring(text.c_str(), text.size());
}

Params paramsOf(const korv::GenericEvent& event) {
    Params params;
    for (const korv::GenericEvent::Param& param : event.params())
        params.emplace_back(textOf(param.key), textOf(param.value));
    return params;
}

Outcome outcomeOfEvent(const korv::GenericEvent& event) {
    const std::string name = event.what();
    EXPECT_NE(std::string(typeid(event).name()).find(name), std::string::npos)
        << typeid(event).name() << " says that it is " << name;
    EXPECT_EQ(event.code(), 0u);
    testsupport::expectThrowSite(event);
    return {name, paramsOf(event), event.parent() ? paramsOf(*event.parent()) : Params{}};
}

} // namespace

Outcome caughtException() {
    try {
        throw;
    } catch (const korv::GenericEvent& event) {
        return outcomeOfEvent(event);
    } catch (const boost::filesystem::filesystem_error& error) {
        return {"filesystem_error", {{L"error", std::to_wstring(error.code().value())}}, {}};
    } catch (const std::bad_alloc&) {
        return outOfMemory;
    } catch (const std::exception& error) {
        return {error.what(), {}, {}};
    }
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << (outcome.isSuccess() ? "success" : outcome.exception)
         << ::testing::PrintToString(outcome.params);
    if (!outcome.causeParams.empty())
        *out << " because of " << ::testing::PrintToString(outcome.causeParams);
}

} // namespace torture
