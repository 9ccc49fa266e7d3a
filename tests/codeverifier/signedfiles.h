// The files that makesignedfiles.sh makes, and the authority that signed them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>

namespace signedfiles {

/// The folder with the files: beside the test program.
std::filesystem::path folder();

/// Makes the test authority one of those that Windows trusts while the tests run. For the whole
/// machine, since Windows asks the user about an authority of his own; so the tests need the
/// rights of an administrator. Before the first signature is verified, since Wine looks at the
/// trusted authorities once in a process.
class TrustedAuthority : public ::testing::Environment {
public:
    void SetUp() override;
    void TearDown() override;
};

} // namespace signedfiles
