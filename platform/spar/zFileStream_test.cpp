#include "spar/zFileStream.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "spar/zDirectory.h"
#include "spar/zMemoryStream.h"

#include "tests/support/TestFolder.h"

namespace {

constexpr int kNoFile = -5002;
constexpr int kNotOpen = -5009;
constexpr int kInvalid = -5022;

/// A folder of the test's own.
class FileStream : public ::testing::Test {
protected:
    FileStream() : fDirectory(zDirectory::Factory()) {
        EXPECT_EQ(fDirectory->Create(fFolder.c_str()), 0);
    }
    ~FileStream() override { EXPECT_EQ(fDirectory->RemoveWithContent(fFolder.c_str()), 0); }

    std::string Path(const char* name) const { return fFolder + "/" + name; }
    static void Write(const std::string& path, const std::string& text) {
        zFileStream file(path.c_str(), Z_FILE_WRITE, false);
        ASSERT_EQ(file.Open(), 0);
        EXPECT_EQ(file.WriteString(text), 0);
        EXPECT_EQ(file.Close(), 0);
    }
    static std::string Content(const std::string& path) {
        zFileStream file(path.c_str(), Z_FILE_READ, false);
        EXPECT_EQ(file.Open(), 0);
        std::string text(1 << 20, '\0');
        unsigned long got = 0;
        EXPECT_EQ(file.Read(text.data(), text.size(), &got), 0);
        text.resize(got);
        return text;
    }

    const tests::TestFolder fParent;
    const std::string fFolder = fParent.File("file_stream_test");
    const std::unique_ptr<zDirectory> fDirectory;
};

TEST_F(FileStream, IsMadeClosed) {
    const std::string path = Path("a");
    zFileStream file(path.c_str(), 2, false);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(zFileStream::Exists(path.c_str())) << "the file comes with Open";
    EXPECT_EQ(file.Write("x", 1), kNotOpen);
    EXPECT_EQ(file.Flush(), kNotOpen);
    EXPECT_EQ(file.Sync(), kNotOpen);
    EXPECT_EQ(file.SetPosition(0), kNotOpen);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(file.Open(), 0);
    EXPECT_TRUE(file.IsOpen());
    EXPECT_TRUE(zFileStream::Exists(path.c_str()));
    EXPECT_EQ(file.Open(), kInvalid) << "open already";
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(zFileStream::FileSize(path.c_str()), 0);
}

TEST_F(FileStream, WritesReachTheFileAtFlush) {
    const std::string path = Path("a");
    zFileStream file(path.c_str(), 2, false);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.WriteString("one\n"), 0);
    EXPECT_EQ(zFileStream::FileSize(path.c_str()), 0);
    EXPECT_EQ(file.Flush(), 0);
    EXPECT_EQ(zFileStream::FileSize(path.c_str()), 4);
    EXPECT_EQ(file.WriteString("two\n"), 0);
    EXPECT_EQ(file.Sync(), 0);
    EXPECT_EQ(Content(path), "one\ntwo\n");
    EXPECT_EQ(file.WriteString("three\n"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Content(path), "one\ntwo\nthree\n");
}

TEST_F(FileStream, ADestroyedStreamHasWrittenAll) {
    const std::string path = Path("a");
    {
        zFileStream file(path.c_str(), 2, false);
        ASSERT_EQ(file.Open(), 0);
        EXPECT_EQ(file.WriteString("kept"), 0);
    }
    EXPECT_EQ(Content(path), "kept");
}

TEST_F(FileStream, OpensEmptyOrAtTheEnd) {
    const std::string path = Path("a");
    Write(path, "long text");
    Write(path, "short");
    EXPECT_EQ(Content(path), "short");
    zFileStream file(path.c_str(), Z_FILE_WRITE, true);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.Position(), 5);
    EXPECT_EQ(file.WriteString(" and more"), 0);
    EXPECT_EQ(file.Position(), 5) << "not in the file yet";
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Content(path), "short and more");
}

TEST_F(FileStream, ReadsAndWritesOneFile) {
    const std::string path = Path("a");
    zFileStream file(path.c_str(), Z_FILE_READ_WRITE, false);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.WriteString("0123456789"), 0);
    EXPECT_EQ(file.SetPosition(2), 0);
    char read[5] = {};
    unsigned long got = 0;
    EXPECT_EQ(file.Read(read, 4, &got), 0);
    EXPECT_EQ(got, 4u);
    EXPECT_STREQ(read, "2345");
    EXPECT_EQ(file.WriteString("XY"), 0);
    EXPECT_EQ(file.Read(read, 4, &got), 0);
    EXPECT_EQ(got, 2u) << "only two are left";
    EXPECT_EQ(file.SetPosition(-1), kInvalid);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Content(path), "012345XY89");
}

TEST_F(FileStream, PiecesOfEverySizeComeBack) {
    const std::string path = Path("a");
    std::mt19937 random(2);
    std::string expected;
    zFileStream file(path.c_str(), 2, false);
    ASSERT_EQ(file.Open(), 0);
    for (int round = 0; round < 60; ++round) {
        // From nothing to beyond what is gathered, and right at its bounds.
        const std::size_t sizes[] = {random() % 10, random() % 20000, 65535, 65536, 65537};
        const std::string piece(sizes[random() % 5], static_cast<char>('a' + random() % 26));
        expected += piece;
        ASSERT_EQ(file.WriteString(piece), 0);
        if (expected.size() > (1 << 20) - 70000) break;
    }
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Content(path), expected);
}

TEST_F(FileStream, AClosedStreamOpensAgain) {
    const std::string path = Path("a");
    zFileStream file(path.c_str(), 2, false);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.WriteString("first"), 0);
    EXPECT_EQ(file.Close(), 0);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.WriteString("2nd"), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Content(path), "2nd");
}

TEST_F(FileStream, TellsWhyItDoesNotOpen) {
    const std::string path = Path("a");
    zFileStream missing(path.c_str(), Z_FILE_READ, false);
    EXPECT_EQ(missing.Open(), kNoFile);
    EXPECT_EQ(zFileStream::ErrorText(kNoFile), "No such file or directory");
    zFileStream noFolder(Path("b/c").c_str(), Z_FILE_WRITE, false);
    EXPECT_EQ(noFolder.Open(), kNoFile);
    zFileStream folder(fFolder.c_str(), Z_FILE_WRITE, false);
    EXPECT_EQ(folder.Open(), -5021);
    for (const unsigned char mode : {0, 4, 255}) {
        zFileStream odd(path.c_str(), mode, false);
        EXPECT_EQ(odd.Open(), kInvalid);
    }
    zFileStream empty("", 2, false);
    EXPECT_EQ(empty.Open(), kInvalid);
    zFileStream null(nullptr, 2, false);
    EXPECT_EQ(null.Open(), kInvalid);
    EXPECT_FALSE(zFileStream::Exists(path.c_str()));
}

TEST_F(FileStream, DoesOnlyWhatItIsOpenFor) {
    const std::string path = Path("a");
    Write(path, "text");
    zFileStream reader(path.c_str(), Z_FILE_READ, false);
    ASSERT_EQ(reader.Open(), 0);
    EXPECT_EQ(reader.WriteString("x"), kNotOpen);
    zFileStream writer(path.c_str(), Z_FILE_WRITE, false);
    ASSERT_EQ(writer.Open(), 0);
    char byte = 0;
    unsigned long got = 5;
    EXPECT_EQ(writer.Read(&byte, 1, &got), kNotOpen);
    EXPECT_EQ(got, 0u);
}

// A device that is always full stands in for a disk that is.
TEST_F(FileStream, AFullDiskIsToldAtFlushOrClose) {
    if (!zFileStream::Exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
    zFileStream file("/dev/full", Z_FILE_WRITE, true);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(file.WriteString("gathered"), 0);
    EXPECT_EQ(file.Flush(), -5028);
    EXPECT_EQ(file.Flush(), 0) << "what was lost is not tried again";
    EXPECT_EQ(file.WriteString(std::string(100000, 'x')), -5028) << "too much to gather";
    EXPECT_EQ(file.WriteString("gathered"), 0);
    EXPECT_EQ(file.Close(), -5028);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(zFileStream::ErrorText(-5028), "No space left on device");
}

TEST_F(FileStream, AFileWithTwoNamesGoesWithTheLast) {
    const std::string a = Path("a");
    const std::string b = Path("b");
    Write(a, "first");
    EXPECT_EQ(zFileStream::LinkFile(a.c_str(), b.c_str()), 0);
    EXPECT_EQ(zFileStream::RemoveFile(a.c_str()), 0);
    EXPECT_EQ(Content(b), "first");
    EXPECT_EQ(zFileStream::LinkFile(a.c_str(), b.c_str()), kNoFile);
    Write(a, "second");
    EXPECT_NE(zFileStream::LinkFile(a.c_str(), b.c_str()), 0);
    EXPECT_EQ(Content(b), "first") << "what stands there stays";
    EXPECT_EQ(zFileStream::LinkFile(nullptr, b.c_str()), kInvalid);
    EXPECT_EQ(zFileStream::LinkFile(a.c_str(), nullptr), kInvalid);
}

TEST_F(FileStream, ChecksRemovesAndRenames) {
    const std::string a = Path("a");
    const std::string b = Path("b");
    Write(a, "first");
    Write(b, "second");
    EXPECT_TRUE(zFileStream::Exists(a.c_str()));
    EXPECT_TRUE(zFileStream::Exists(fFolder.c_str()));
    EXPECT_FALSE(zFileStream::IsFolder(a));
    EXPECT_TRUE(zFileStream::IsFolder(fFolder));
    EXPECT_TRUE(zFileStream::IsFolder(fFolder + "/"));
    EXPECT_FALSE(zFileStream::IsFolder(""));
    EXPECT_FALSE(zFileStream::IsFolder(Path("none")));
    EXPECT_FALSE(zFileStream::Exists(nullptr));
    EXPECT_EQ(zFileStream::FileSize(a.c_str()), 5);
    EXPECT_EQ(zFileStream::FileSize(Path("none").c_str()), kNoFile);
    EXPECT_EQ(zFileStream::FileSize(nullptr), kInvalid);

    EXPECT_EQ(zFileStream::RenameFile(a.c_str(), b.c_str()), 0);
    EXPECT_FALSE(zFileStream::Exists(a.c_str()));
    EXPECT_EQ(Content(b), "first") << "what stood there is replaced";
    EXPECT_EQ(zFileStream::SyncFolder(fFolder.c_str()), 0);
    EXPECT_EQ(zFileStream::SyncFolder(Path("none").c_str()), kNoFile);
    EXPECT_EQ(zFileStream::SyncFolder(nullptr), kInvalid);
    EXPECT_EQ(zFileStream::RenameFile(a.c_str(), b.c_str()), kNoFile);
    EXPECT_EQ(zFileStream::RenameFile(nullptr, b.c_str()), kInvalid);
    EXPECT_EQ(zFileStream::RemoveFile(b.c_str()), 0);
    EXPECT_EQ(zFileStream::RemoveFile(b.c_str()), kNoFile);
    EXPECT_NE(zFileStream::RemoveFile(fFolder.c_str()), 0);
    EXPECT_TRUE(zFileStream::IsFolder(fFolder));
    EXPECT_EQ(zFileStream::RemoveFile(nullptr), kInvalid);
}

TEST_F(FileStream, TellsTheFreeSpaceOfAVolume) {
    const long long space = zFileStream::SpaceAvailable(fFolder);
    EXPECT_GT(space, 0);
    EXPECT_LT(space, std::numeric_limits<long long>::max());
    EXPECT_EQ(zFileStream::SpaceAvailable(Path("none")), std::numeric_limits<long long>::max());
    // Says that it has no blocks at all, as memory disks without a limit do.
    EXPECT_EQ(zFileStream::SpaceAvailable("/proc"), std::numeric_limits<long long>::max());
}

TEST_F(FileStream, SaysItsCodesInWords) {
    EXPECT_EQ(zFileStream::ErrorText(-5013), "Permission denied");
    EXPECT_EQ(zFileStream::ErrorText(-22), "error -22");
    EXPECT_EQ(zFileStream::ErrorText(0), "error 0");
}

TEST(zMemoryStream, GivesBackWhatWasWritten) {
    zMemoryStream stream("old ");
    EXPECT_EQ(stream.WriteString("and new"), 0);
    EXPECT_EQ(stream.Flush(), 0);
    EXPECT_EQ(stream.Content(), "old and new");
    char text[16] = {};
    unsigned long got = 0;
    EXPECT_EQ(stream.Read(text, 7, &got), 0);
    EXPECT_EQ(got, 7u);
    EXPECT_EQ(stream.Read(text + 7, 9, &got), 0);
    EXPECT_EQ(got, 4u);
    EXPECT_STREQ(text, "old and new");
    EXPECT_EQ(stream.Read(text, 9, &got), 0);
    EXPECT_EQ(got, 0u);
    stream.Rewind();
    EXPECT_EQ(stream.Read(text, 3, nullptr), 0);
    EXPECT_EQ(std::string(text, 3), "old");
}

}  // namespace
