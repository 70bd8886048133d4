#include "spar/zDirectory.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "spar/zFileStream.h"

#include "tests/support/TestFolder.h"

namespace {

class Directory : public ::testing::Test {
protected:
    Directory() : fDirectory(zDirectory::Factory()) {
        EXPECT_EQ(fDirectory->Create((fRoot + "/inner/most").c_str()), 0);
    }

    std::string Path(const char* name) const { return fRoot + "/" + name; }
    void Touch(const char* name) {
        zFileStream file(Path(name).c_str(), Z_FILE_WRITE, false);
        ASSERT_EQ(file.Open(), 0);
    }

    const tests::TestFolder fFolder;
    const std::string fRoot = fFolder.File("directory_test");
    const std::unique_ptr<zDirectory> fDirectory;
};

TEST_F(Directory, WalkNamesFilesAndFoldersButNoLinks) {
    Touch("file");
    std::filesystem::create_symlink(Path("nowhere"), Path("link"));
    std::vector<std::string> names;
    const auto take = [&](const char* name) { names.push_back(name); };
    ASSERT_EQ(zDirectory::ForEachEntry(fRoot.c_str(), take), 0);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"file", "inner"}));
    EXPECT_LT(zDirectory::ForEachEntry(Path("none").c_str(), take), 0);
    EXPECT_LT(zDirectory::ForEachEntry(Path("file").c_str(), take), 0);
    EXPECT_LT(zDirectory::ForEachEntry(nullptr, take), 0);
    EXPECT_EQ(names.size(), 2u);
}

/// Puts an empty file in the place of the descriptor that is open on `folder`.
void break_open_folder(const std::string& folder) {
    std::string open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed;
        if (std::filesystem::read_symlink(entry.path(), closed) == folder) {
            open = entry.path().filename();
        }
    }
    ASSERT_NE(open, "");
    const int empty = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_NE(::dup2(empty, std::stoi(open)), -1);
    ::close(empty);
}

TEST_F(Directory, AWalkThatFailsUnderwaySaysSo) {
    const int files = 3000;  // more than one look at the folder brings
    for (int i = 0; i < files; ++i) Touch(std::to_string(i).c_str());
    const std::string folder = std::filesystem::canonical(fRoot);
    int seen = 0;
    const auto breakAtFirst = [&](const char*) {
        if (seen++ == 0) break_open_folder(folder);
    };
    EXPECT_EQ(zDirectory::ForEachEntry(fRoot.c_str(), breakAtFirst), -5020) << "not a folder";
    EXPECT_GT(seen, 0);
    EXPECT_LT(seen, files);
}

TEST_F(Directory, MakesFoldersAndThoseAbove) {
    EXPECT_TRUE(zDirectory::Exists(Path("inner/most").c_str()));
    EXPECT_EQ(fDirectory->Create(Path("inner").c_str()), 0) << "it stands already";
    Touch("file");
    EXPECT_FALSE(zDirectory::Exists(Path("file").c_str()));
    EXPECT_FALSE(zDirectory::Exists(Path("none").c_str()));
    EXPECT_FALSE(zDirectory::Exists(nullptr));
    EXPECT_NE(fDirectory->Create(Path("file").c_str()), 0);
    EXPECT_NE(fDirectory->Create(Path("file/below").c_str()), 0);
    EXPECT_NE(fDirectory->Create(nullptr), 0);
}

TEST_F(Directory, RemovesAnEmptyFolderOnly) {
    EXPECT_EQ(fDirectory->Remove(Path("inner").c_str()), -5039) << "not empty";
    EXPECT_TRUE(zDirectory::Exists(Path("inner/most").c_str()));
    EXPECT_EQ(fDirectory->Remove(Path("inner/most").c_str()), 0);
    EXPECT_FALSE(zDirectory::Exists(Path("inner/most").c_str()));
    EXPECT_EQ(fDirectory->Remove(Path("inner/most").c_str()), 0) << "gone is gone";
    Touch("file");
    EXPECT_EQ(fDirectory->Remove(Path("file").c_str()), -5020) << "not a folder";
    EXPECT_EQ(fDirectory->RemoveWithContent(Path("file").c_str()), -5020);
    EXPECT_TRUE(zFileStream::Exists(Path("file").c_str()));
    EXPECT_NE(fDirectory->Remove(nullptr), 0);
    EXPECT_NE(fDirectory->RemoveWithContent(nullptr), 0);
}

TEST_F(Directory, RemovesAFolderWithItsContent) {
    Touch("inner/file");
    Touch("inner/most/file");
    Touch("outside");
    std::filesystem::create_symlink(Path("outside"), Path("inner/link"));
    std::filesystem::create_directory(Path("kept"));
    Touch("kept/file");
    std::filesystem::create_directory_symlink(Path("kept"), Path("inner/most/folder_link"));
    EXPECT_EQ(fDirectory->RemoveWithContent(Path("inner").c_str()), 0);
    EXPECT_FALSE(zFileStream::Exists(Path("inner").c_str()));
    EXPECT_TRUE(zFileStream::Exists(Path("outside").c_str()));
    EXPECT_TRUE(zFileStream::Exists(Path("kept/file").c_str())) << "links are not followed";
    EXPECT_EQ(fDirectory->RemoveWithContent(Path("inner").c_str()), 0);
}

TEST_F(Directory, ListsNamesInOrder) {
    Touch("b");
    Touch("a");
    Touch(".hidden");
    std::vector<std::string> names{"old"};
    EXPECT_EQ(fDirectory->List(fRoot.c_str(), names), 0);
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "a", "b", "inner"}));
    EXPECT_EQ(fDirectory->List(Path("inner/most").c_str(), names), 0);
    EXPECT_TRUE(names.empty());
    names = {"old"};
    EXPECT_EQ(fDirectory->List(Path("none").c_str(), names), -5002);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(fDirectory->List(Path("a").c_str(), names), -5020);
    EXPECT_NE(fDirectory->List(nullptr, names), 0);
}

}  // namespace
