#include "clipNames.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/TestFolder.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void Write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

TEST(ClipNames, WhatIsReadOnceIsKnown) {
    const tests::TestFolder folder;
    Write(folder.File("a.mov"), "clip");
    Write(folder.File("pipe:0"), "clip");
    const struct {
        std::string name;
        bool once;
    } kRows[] = {
        {folder.File("a.mov"), false},
        {folder.File("pipe:0"), false},
        {folder.File("none.mov"), false},
        {folder.Path(), false},
        {"/dev/null", true},
        {"pipe:0", true},
        {"pipe:", true},
        {"fd:3", true},
        {"unix:/tmp/a", true},
        {"udp://127.0.0.1:1234", true},
        {"udp://:1234", true},
        {"udp://@:1234", true},
        {"udp://@239.1.2.3:1234?reuse=1", false},
        {"udp://224.1.2.3:1234", false},
        {"udp://[ff02::1]:1234", false},
        {"udp://192.168.239.1:1234", true},
        {"rtp://127.0.0.1:1234", true},
        {"tcp://127.0.0.1:1234", false},
        {"tcp://0.0.0.0:1234?listen", true},
        {"tcp://0.0.0.0:1234?timeout=5&listen=1", true},
        {"tcp://0.0.0.0:1234?listen=0", false},
        {"srt://:1234?mode=listener", true},
        {"http://listen.example/a.mp4", false},
    };
    for (const auto& row : kRows) EXPECT_EQ(IsReadOnce(row.name), row.once) << row.name;
}

TEST(ClipNames, FilesStandBehindProtocols) {
    const tests::TestFolder folder;
    const std::string a = folder.File("a.mov");
    const std::string b = folder.File("b.mov");
    Write(a, "clip");
    Write(b, "clip");
    EXPECT_THAT(FilesOfClip(a), ElementsAre(a));
    EXPECT_THAT(FilesOfClip("file:" + a), ElementsAre(a));
    EXPECT_THAT(FilesOfClip("cache:file:" + a), ElementsAre(a));
    EXPECT_THAT(FilesOfClip("subfile,,start,1,end,9,,:" + a), ElementsAre(a));
    EXPECT_THAT(FilesOfClip("concat:" + a + "|" + b), ElementsAre(a, b));
    EXPECT_THAT(FilesOfClip("tcp://127.0.0.1:1234"), IsEmpty());
    EXPECT_THAT(FilesOfClip(folder.File("none.mov")), IsEmpty());
}

// Of a name that is one as it stands, no piece counts.
TEST(ClipNames, AFileWithAColonIsThatFileAlone) {
    const tests::TestFolder folder;
    const std::string odd = folder.File("x:a.mov");
    Write(odd, "clip");
    Write(folder.File("a.mov"), "clip");
    EXPECT_THAT(FilesOfClip(odd), ElementsAre(odd));
}

TEST(ClipNames, ListsNameTheirFiles) {
    const tests::TestFolder folder;
    const std::string a = folder.File("a.mov");
    const std::string b = folder.File("it's b.mov");
    Write(a, "clip");
    Write(b, "clip");
    const std::string concat = folder.File("list.ffconcat");
    Write(concat, "ffconcat version 1.0\n# file no.mov\n  file a.mov\r\nduration 3\nfile '" +
                      folder.Path() + "/it'\\''s b.mov'\nfile\nfile none.mov");
    EXPECT_THAT(FilesOfClip(concat), ElementsAre(concat, a, b));
    EXPECT_THAT(FilesOfClip("file:" + concat), ElementsAre(concat, a, b));

    const std::string playlist = folder.File("list.m3u8");
    Write(playlist, "#EXTM3U\r\n#EXTINF:3,\r\nit's b.mov\r\n\r\nfile:" + a + "\n");
    EXPECT_THAT(FilesOfClip(playlist), ElementsAre(playlist, b, a));

    const std::string lists = folder.File("lists.ffconcat");
    Write(lists, "ffconcat version 1.0\nfile list.m3u8");
    EXPECT_THAT(FilesOfClip(lists), ElementsAre(lists, playlist, b, a));
}

TEST(ClipNames, AListThatNamesItselfEnds) {
    const tests::TestFolder folder;
    const std::string list = folder.File("list.ffconcat");
    Write(list, "ffconcat version 1.0\nfile list.ffconcat\n");
    EXPECT_THAT(FilesOfClip(list), testing::Each(list));
}

}  // namespace
