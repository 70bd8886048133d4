#include "spar/zFSPath.h"

#include <gtest/gtest.h>

namespace {

TEST(zFSPath, GoesToTheParent) {
    struct Case {
        const char* path;
        int result;
        const char* parent;
    };
    const Case kCases[] = {
        {"/media/replay/a.xml", 0, "/media/replay"},
        {"/media/", 0, "/"},
        {"/media", 0, "/"},
        {"/", -1, "/"},
        {"//", -1, "/"},
        {"a.xml", 0, "."},
        {"./a.xml", 0, "."},
        {"folder/a.xml", 0, "folder"},
        {"folder//a.xml", 0, "folder"},
        {".", 0, ".."},
        {"/media/replay/.", 0, "/media"},
        {"/media/replay/./", 0, "/media"},
        {"/media/replay/././/.", 0, "/media"},
        {"/media/./replay", 0, "/media"},
        {"/media/replay.", 0, "/media"},
        {"/.", -1, "/"},
        {"a/.", 0, "."},
        {"./.", 0, ".."},
        {"../.", 0, "../.."},
        {"..", 0, "../.."},
        {"../..", 0, "../../.."},
        {"", -1, ""},
    };
    for (const Case& c : kCases) {
        zFSPath path(c.path);
        EXPECT_EQ(path.GoParent(), c.result) << c.path;
        EXPECT_STREQ(path.CString(), c.parent) << c.path;
    }
}

TEST(zFSPath, GoesToAChild) {
    struct Case {
        const char* path;
        const char* name;
        const char* child;
    };
    const Case kCases[] = {
        {"/media", "17.mov", "/media/17.mov"},
        {"/media/", "17.mov", "/media/17.mov"},
        {"/", "media", "/media"},
        {"", "17.mov", "17.mov"},
        {".", "17.mov", "./17.mov"},
        {"a", "b/c", "a/b/c"},
        {"a", "/b", "a/b"},
        {"a", "b/", "a/b"},
        {"a", "..", "a/.."},
        {"a", ".", "a"},
        {"", ".", "."},
        {"/", ".", "/"},
    };
    for (const Case& c : kCases) {
        zFSPath path(c.path);
        EXPECT_EQ(path.GoChild(c.name), 0);
        EXPECT_STREQ(path.CString(), c.child);
    }
    zFSPath path("a");
    EXPECT_EQ(path.GoChild(nullptr), -22);
    EXPECT_EQ(path.GoChild(""), -22);
    EXPECT_STREQ(path.CString(), "a");
}

TEST(zFSPath, KnowsLeafAndExtension) {
    struct Case {
        const char* path;
        const char* leaf;
        const char* extension;  // null: there is none
    };
    const Case kCases[] = {
        {"/media/17.mov", "17.mov", "mov"},
        {"17.tar.gz", "17.tar.gz", "gz"},
        {"/media.d/17", "17", nullptr},
        {"/media/17.", "17.", ""},
        {"/media/.hidden", ".hidden", nullptr},
        {".hidden.mov", ".hidden.mov", "mov"},
        {"/media/", "media", nullptr},
        {"/media/.", "media", nullptr},
        {"/media/17.mov/.", "17.mov", "mov"},
        {"/", "/", nullptr},
        {"", "", nullptr},
        {"..", "..", nullptr},
        {"a/..", "..", nullptr},
        {".", ".", nullptr},
    };
    for (const Case& c : kCases) {
        const zFSPath path(c.path);
        EXPECT_STREQ(path.GetLeaf(), c.leaf) << c.path;
        EXPECT_STREQ(path.GetExtension(), c.extension) << c.path;
    }
}

TEST(zFSPath, IsMadeFromStrings) {
    EXPECT_STREQ(zFSPath(zString("/media/")).CString(), "/media");
    EXPECT_STREQ(zFSPath(static_cast<const char*>(nullptr)).CString(), "");
    EXPECT_EQ(zFSPath("/media").Path(), "/media");
}

TEST(zFSPath, KnowsWhatANameMayNotHold) {
    const std::pair<const char*, bool> kPortable[] = {
        {"output_filename", false},
        {"caméra 1 (take 2).mov", false},
        {"", false},
        {"a/b", true},
        {"a\\b", true},
        {"a:b", true},
        {"a*b", true},
        {"a?b", true},
        {"a\"b", true},
        {"a<b", true},
        {"a>b", true},
        {"a|b", true},
        {"a\nb", true},
        {"a\x7f", true},
    };
    for (const auto& [name, restricted] : kPortable) {
        EXPECT_EQ(zFSPath::NameHasRestrictedCharacters(name, true), restricted) << name;
    }
    EXPECT_TRUE(zFSPath::NameHasRestrictedCharacters("a/b", false));
    EXPECT_TRUE(zFSPath::NameHasRestrictedCharacters(std::string("a\0b", 3), false));
    EXPECT_FALSE(zFSPath::NameHasRestrictedCharacters("a:b*c?\n", false));
}

}  // namespace
