#include "tarn/replay/tnManifestBefore.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "spar/zFileStream.h"

#include "tests/support/ReplayFixture.h"
#include "tests/support/TestFolder.h"

namespace {

bool gHasLinks = true;

}  // namespace

// A disk without links.
extern "C" int __real__ZN11zFileStream8LinkFileEPKcS1_(const char* from, const char* to);
extern "C" int __wrap__ZN11zFileStream8LinkFileEPKcS1_(const char* from, const char* to) {
    if (gHasLinks) return __real__ZN11zFileStream8LinkFileEPKcS1_(from, to);
    return zFileStream::kErrorBase - EPERM;
}

namespace {

class ManifestBefore : public testing::TestWithParam<bool> {
protected:
    ManifestBefore() { gHasLinks = GetParam(); }
    ~ManifestBefore() override { gHasLinks = true; }

    /// Records three segments, the last of which begins at 20.
    void Record(tnReplayManifest& manifest) const {
        const tnMediaRecord video(TN_MEDIA_VIDEO);
        const tnMediaRecord audio(TN_MEDIA_AUDIO);
        ASSERT_EQ(manifest.BeginRecording(video, audio), 0);
        for (unsigned int id = 1; id <= 3; ++id) {
            std::ofstream(fFolder.File(std::to_string(id) + ".mov")) << "movie";
            ASSERT_EQ(manifest.AddSegment(id, 10 * id - 10, 10 * id), 0);
        }
    }
    bool StandsAlone() const {
        return !std::filesystem::exists(fBefore.Path()) &&
               !std::filesystem::exists(fBefore.Path() + ".part");
    }

    const tests::TestFolder fFolder;
    const std::string fPath = fFolder.File("replay.xml");
    const tnManifestBefore fBefore{fPath};
};

INSTANTIATE_TEST_SUITE_P(Links, ManifestBefore, testing::Bool());

TEST_P(ManifestBefore, KeepsTheListWhileItIsWrittenAnewAndDropsItThen) {
    tnReplayManifest manifest(fPath.c_str());
    Record(manifest);
    const std::string listed = tests::ReadText(fPath);
    std::ofstream(fBefore.Path()) << "an older one";
    ASSERT_TRUE(fBefore.Keep());
    tnReplayManifest::Segments kept;
    manifest.DeleteNonActiveSegments(kept, 10);
    EXPECT_EQ(tests::ReadText(fBefore.Path()).substr(0, listed.size()), listed);
    EXPECT_LT(tests::ReadText(fPath).size(), listed.size());
    EXPECT_EQ(kept.Count(), 2u);
    EXPECT_TRUE(fBefore.DropIfListed(manifest, kept));
    EXPECT_TRUE(StandsAlone());
    for (tnReplaySegment* segment : kept) segment->Release();
}

TEST_P(ManifestBefore, StaysWhereTheNewListHasFewer) {
    tnReplayManifest manifest(fPath.c_str());
    Record(manifest);
    ASSERT_TRUE(fBefore.Keep());
    tnReplayManifest::Segments kept;
    manifest.DeleteNonActiveSegments(kept, 10);
    auto* const missing = new tnReplaySegment(7, 100, 110);
    kept.Set(missing);
    EXPECT_FALSE(fBefore.DropIfListed(manifest, kept));
    EXPECT_TRUE(std::filesystem::exists(fBefore.Path()));
    for (tnReplaySegment* segment : kept) segment->Release();
}

TEST_P(ManifestBefore, ComesBackInTheManifestsPlace) {
    std::ofstream(fPath) << "whole";
    ASSERT_TRUE(fBefore.Keep());
    std::filesystem::remove(fPath);
    std::ofstream(fPath) << "half";
    EXPECT_TRUE(fBefore.BringBack());
    EXPECT_EQ(tests::ReadText(fPath), "whole");
    EXPECT_TRUE(StandsAlone());
    EXPECT_FALSE(fBefore.BringBack());
    EXPECT_EQ(tests::ReadText(fPath), "whole");
}

//   killed after    the link    the renaming           brought back
//                   A  A        A  A                   A
//                   |  .before  |  .remove             |  and ".remove" still
TEST_P(ManifestBefore, WhatAKillLeftOfARemovalIsInNobodysWay) {
    {
        tnReplayManifest manifest(fPath.c_str());
        Record(manifest);
    }
    ASSERT_TRUE(fBefore.Keep());
    std::filesystem::rename(fPath, fPath + ".remove");
    ASSERT_TRUE(fBefore.BringBack());
    tnReplayManifest manifest(fPath.c_str());
    ASSERT_EQ(manifest.Read(), 0);
    ASSERT_TRUE(fBefore.Keep());
    tnReplayManifest::Segments kept;
    manifest.DeleteNonActiveSegments(kept, 10);
    EXPECT_EQ(kept.Count(), 2u);
    EXPECT_TRUE(fBefore.DropIfListed(manifest, kept));
    EXPECT_FALSE(std::filesystem::exists(fPath + ".remove"));
    for (tnReplaySegment* segment : kept) segment->Release();
}

TEST_P(ManifestBefore, NothingIsKeptOfWhatIsNotThere) {
    EXPECT_FALSE(fBefore.Keep());
    EXPECT_TRUE(StandsAlone());
}

}  // namespace
