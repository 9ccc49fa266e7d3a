// The files of a test.
#include "testfolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace testsupport {
namespace {

std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

TEST(TestFolder, IsGoneWithItsFilesAfterwards) {
    std::filesystem::path path;
    {
        const TestFolder folder;
        path = folder.path();
        EXPECT_EQ(contentsOf(folder.write("file", "contents")), "contents");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TestFolder, ReplacesAFileAsAWholeWhileItIsRead) {
    const TestFolder folder;
    const std::filesystem::path file = folder.write("file", "first");
    // Longer than what a stream reads at a time.
    const std::string before(100'000, 'a');
    const std::string after(200'000, 'b');
    folder.replace("file", before);
    std::thread reader([&] {
        std::string read;
        do {
            read = contentsOf(file);
            // A file that cannot be opened at the moment reads as nothing.
            EXPECT_TRUE(read.empty() || read == before || read == after) << read.size();
        } while (read != after);
    });
    for (int i = 0; i != 100; ++i)
        folder.replace("file", before);
    folder.replace("file", after);
    reader.join();
    EXPECT_EQ(contentsOf(file), after);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "file.new"));
}

} // namespace
} // namespace testsupport
