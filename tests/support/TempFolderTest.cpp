#include "TempFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace keyferry {
namespace {

TEST(TempFolder, IsAFreshEmptyFolderUnderTheTemporaryFolderNamedByItsPrefix) {
    const TempFolder first("keyferry-support-test");
    const TempFolder second("keyferry-support-test");
    EXPECT_TRUE(std::filesystem::is_directory(first.path()));
    EXPECT_TRUE(std::filesystem::is_empty(first.path()));
    EXPECT_NE(first.path(), second.path());
    EXPECT_EQ(first.path().parent_path(), std::filesystem::temp_directory_path());
    EXPECT_TRUE(first.path().filename().string().starts_with("keyferry-support-test-"));
    EXPECT_EQ(first / "name", first.path() / "name");
}

TEST(TempFolder, GoesWithEverythingInItAtDestruction) {
    std::filesystem::path kept;
    {
        const TempFolder folder;
        kept = folder.path();
        std::filesystem::create_directories(folder / "inner" / "deeper");
        std::ofstream(folder / "inner" / "deeper" / "file.txt") << "text";
    }
    EXPECT_FALSE(std::filesystem::exists(kept));
}

TEST(TempFolder, SaysWhenItCannotBeMade) {
    EXPECT_THROW(TempFolder("no-such-folder/keyferry"), std::runtime_error);
}

} // namespace
} // namespace keyferry
