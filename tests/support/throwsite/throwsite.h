// Where the sources throw what a test caught.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace testsupport {

/// Whether a line of a source file throws: by a `throw`, or by a function that throws for it
/// (`throw...`, `check...`), and not on behalf of a caller whose line it was given.
/// \param file as events name it: relative, with backslashes
testing::AssertionResult isThrowSite(const std::wstring& file, int line);

/// Expects an event's place to be one where the sources throw.
template <class Event>
void expectThrowSite(const Event& event) {
    EXPECT_TRUE(isThrowSite(event.file().c_str(), event.line()));
}

/// The files of a folder of the sources that name themselves in the events they throw, as events
/// name them. Nothing if there are no sources here.
std::vector<std::wstring> throwingFiles(const std::filesystem::path& folder);

} // namespace testsupport
