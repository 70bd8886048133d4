#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

#include "FileLayer.h"
#include "tests/support/TestFolder.h"

namespace Quillon::Orb {
namespace {

std::string contents_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void put(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

class PosixFileTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return fFolder.Path() + "/" + name; }

    tests::TestFolder fFolder;
    const std::unique_ptr<FileLayer> fFile = MakePosixFile();
};

TEST_F(PosixFileTest, ShowsUnderItsNameOnlyOnceItIsPublished) {
    const std::string path = Path("a.mov");
    put(path, "old");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "new", 3), 0);
    EXPECT_EQ(contents_of(path), "old");
    ASSERT_EQ(fFile->Publish(), 0);
    EXPECT_EQ(contents_of(path), "new");
    ASSERT_EQ(fFile->Sync(), 0);
    ASSERT_EQ(fFile->Close(), 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.Path()), {}), 1);
}

TEST_F(PosixFileTest, ClosedBeforeItWasPublishedItLeavesNothing) {
    const std::string path = Path("a.mov");
    put(path, "old");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->Close(), 0);
    EXPECT_EQ(contents_of(path), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.Path()), {}), 1);
}

// Programs that fetch files name what is not whole yet like this, too.
TEST_F(PosixFileTest, FilesBesideItAreNotTouched) {
    const std::string path = Path("a.mov");
    put(Path("a.mov.part"), "somebody's");
    std::filesystem::create_symlink(Path("nowhere"), Path("a.mov.part2"));
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "new", 3), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(fFile->Publish(), 0);
    ASSERT_EQ(fFile->Close(), 0);
    EXPECT_EQ(contents_of(path), "new");
    EXPECT_EQ(contents_of(Path("a.mov.part")), "somebody's");
    EXPECT_TRUE(std::filesystem::is_symlink(Path("a.mov.part2")));
    EXPECT_FALSE(std::filesystem::exists(Path("nowhere")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.Path()), {}), 3);
}

TEST_F(PosixFileTest, TwoRecordersThatBeginAtOnceDoNotMeet) {
    const std::string path = Path("a.mov");
    const std::unique_ptr<FileLayer> other = MakePosixFile();
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(other->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "the first", 9), 0);
    ASSERT_EQ(other->WriteAt(0, "other", 5), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    EXPECT_EQ(contents_of(path), "the first");
    ASSERT_EQ(other->Publish(), 0);
    EXPECT_EQ(contents_of(path), "other") << "the last one that is whole stands there";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.Path()), {}), 1);
}

// What killed recorders leave behind neither keeps the next one from its file nor grows for ever.
TEST_F(PosixFileTest, WhereAllNamesBesideItAreTakenItIsWrittenInPlace) {
    const std::string path = Path("a.mov");
    put(path, "old");
    put(path + ".part", "left behind");
    for (int i = 2; i < 100; ++i) put(path + ".part" + std::to_string(i), "left behind");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "new", 3), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    ASSERT_EQ(fFile->Close(), 0);
    EXPECT_EQ(contents_of(path), "new");
    EXPECT_EQ(contents_of(path + ".part99"), "left behind");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(fFolder.Path()), {}), 100);
}

TEST_F(PosixFileTest, TakesThePlaceOfTheFileBehindALinkAndKeepsItsMode) {
    put(Path("real.mov"), "old");
    ASSERT_EQ(chmod(Path("real.mov").c_str(), 0640), 0);
    std::filesystem::create_symlink("real.mov", Path("link.mov"));
    ASSERT_EQ(fFile->Create(Path("link.mov").c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "new", 3), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(Path("link.mov")));
    EXPECT_EQ(contents_of(Path("real.mov")), "new");
    struct stat status;
    ASSERT_EQ(stat(Path("real.mov").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(PosixFileTest, NameAtTheLimitOfItsLengthIsWrittenInPlace) {
    const std::string path = Path(std::string(251, 'x') + ".mov");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->WriteAt(0, "new", 3), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    EXPECT_EQ(contents_of(path), "new");
}

TEST_F(PosixFileTest, PathsThatCannotBeWrittenSayWhy) {
    EXPECT_EQ(fFile->Create(Path("no/such/a.mov").c_str()), -ENOENT);
    EXPECT_EQ(fFile->Create(fFolder.Path().c_str()), -EISDIR);
    put(Path("file"), "");
    EXPECT_EQ(fFile->Create(Path("file/a.mov").c_str()), -ENOTDIR);
}

TEST_F(PosixFileTest, SpansOfAnyNumberAndSizeLieEndToEnd) {
    const std::string path = Path("a.mov");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    std::string expected(7, '\0');
    std::vector<std::string> parts;
    for (int i = 0; i < 200; i++)
        parts.emplace_back(static_cast<std::size_t>(i % 5) * 100, 'a' + i % 26);
    std::vector<FileSpan> spans;
    for (const std::string& part : parts) {
        spans.push_back({part.data(), part.size()});
        expected += part;
    }
    ASSERT_EQ(fFile->WriteAt(7, spans.data(), static_cast<int>(spans.size())), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    EXPECT_EQ(contents_of(path), expected);
    ASSERT_EQ(fFile->Truncate(10), 0);
    EXPECT_EQ(contents_of(path), expected.substr(0, 10));
}

TEST_F(PosixFileTest, ReservedRoomIsNoLengthAndReleasedRoomReadsAsZeros) {
    const std::string path = Path("a.mov");
    ASSERT_EQ(fFile->Create(path.c_str()), 0);
    ASSERT_EQ(fFile->Publish(), 0);
    const std::string data(16384, 'x');
    ASSERT_EQ(fFile->WriteAt(0, data.data(), data.size()), 0);
    EXPECT_EQ(fFile->Reserve(0, 1 << 20), 0);
    EXPECT_EQ(std::filesystem::file_size(path), data.size());
    EXPECT_EQ(fFile->Release(4096, 8192), 0);
    const std::string kept = contents_of(path);
    EXPECT_EQ(kept.size(), data.size());
    EXPECT_EQ(kept.substr(0, 4096), data.substr(0, 4096));
    EXPECT_EQ(kept.substr(12288), data.substr(12288));
}

}  // namespace
}  // namespace Quillon::Orb
