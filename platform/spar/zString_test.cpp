#include "spar/zString.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "spar/zMap.h"

namespace {

TEST(zString, IsMadeFromText) {
    EXPECT_EQ(zString().Length(), 0u);
    EXPECT_STREQ(zString().CString(), "");
    EXPECT_TRUE(zString("").IsEmpty());
    EXPECT_EQ(zString("abc").Length(), 3u);
    EXPECT_EQ(zString("abcdef", 3), "abc");
    EXPECT_EQ(zString("abc", 0).Length(), 0u);
    EXPECT_EQ(zString("a\0b", 3).Length(), 3u) << "counted, zero bytes and all";
    EXPECT_EQ(zString(static_cast<const char*>(nullptr)).Length(), 0u);
    EXPECT_EQ(zString(nullptr, 5).Length(), 0u);
    EXPECT_EQ(zString(std::string("from std")), "from std");
    const zString source("copied");
    zString copy(source);
    copy += "!";
    EXPECT_EQ(source, "copied");
    EXPECT_EQ(copy, "copied!");
    EXPECT_STREQ(copy, "copied!") << "goes where a const char* is wanted";
}

TEST(zString, IsAssignedAndGrows) {
    zString text;
    text = "one";
    text += " two";
    text += zString(" three");
    text += std::string(" four");
    EXPECT_EQ(text, "one two three four");
    EXPECT_EQ(text.AsString(), "one two three four");
    text = static_cast<const char*>(nullptr);
    EXPECT_TRUE(text.IsEmpty());
    text += static_cast<const char*>(nullptr);
    EXPECT_TRUE(text.IsEmpty());
    text = zString("other");
    text = *&text;
    EXPECT_EQ(text, "other");
    text = std::string("std");
    EXPECT_EQ(text, std::string("std"));
}

TEST(zString, TakesItsOwnText) {
    zString text("abc");
    text += text;
    EXPECT_EQ(text, "abcabc");
    text += text.CString();
    EXPECT_EQ(text, "abcabcabcabc");
    text.AddToEnd(text.CString() + 10, 0xFFFFFFFF);
    EXPECT_EQ(text, "abcabcabcabcbc");
    text = text.CString() + 12;
    EXPECT_EQ(text, "bc");
    text.sprintf("%s-%s", text.CString(), text.CString());
    EXPECT_EQ(text, "bc-bc");
}

TEST(zString, AddsToItsEnd) {
    zString text("a");
    text.AddToEnd("bcdef", 2);
    EXPECT_EQ(text, "abc");
    text.AddToEnd("def", 0xFFFFFFFF);
    EXPECT_EQ(text, "abcdef");
    text.AddToEnd("x", 0);
    text.AddToEnd(nullptr, 0xFFFFFFFF);
    EXPECT_EQ(text, "abcdef");
    text.AddToEnd("\0z", 2);
    EXPECT_EQ(text.Length(), 8u);
}

TEST(zString, GivesRoomToWriteTo) {
    zString text("kept");
    char* room = text.Preallocate(25);
    ASSERT_NE(room, nullptr);
    EXPECT_STREQ(room, "kept");
    EXPECT_EQ(text.Length(), 4u) << "nobody has written yet";
    std::strcpy(room, "01:02:03");
    EXPECT_EQ(text.Length(), 8u);
    EXPECT_EQ(text, "01:02:03");
    const zString copy(text);
    EXPECT_EQ(copy, "01:02:03");
    text += "!";
    EXPECT_EQ(text, "01:02:03!");
    room = text.Preallocate(2);
    EXPECT_STREQ(room, "01:02:03!") << "room enough already, the text stays";
    room[0] = 0;
    EXPECT_TRUE(text.IsEmpty());
    text.AddToEnd("new", 0xFFFFFFFF);
    EXPECT_EQ(text, "new");
    EXPECT_NE(text.Preallocate(0), nullptr);
    EXPECT_EQ(text, "new");
}

TEST(zString, AllOfTheRoomMayBeUsed) {
    zString text;
    char* room = text.Preallocate(25);
    std::memset(room, 'x', 25);
    EXPECT_EQ(text.Length(), 25u) << "the terminator has a place of its own";
}

TEST(zString, GivesNoRoomThatCannotBe) {
    zString text("kept");
    EXPECT_EQ(text.Preallocate(-1), nullptr);
    EXPECT_EQ(text.Preallocate(INT_MIN), nullptr);
    EXPECT_EQ(text, "kept");
}

TEST(zString, PrintsAFormat) {
    zString text("old");
    text.sprintf("%d.%s", 17, "mov");
    EXPECT_EQ(text, "17.mov");
    text.sprintf("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(text.Length(), 5000u);
    text.sprintf("%s", "");
    EXPECT_TRUE(text.IsEmpty());
}

TEST(zString, SpellsACode) {
    zString text;
    text.Set4CCCC('avc1');
    EXPECT_EQ(text, "avc1");
    text.Set4CCCC('mp4 ');
    EXPECT_EQ(text, "mp4 ");
    text.Set4CCCC(0x00616200);
    EXPECT_EQ(text.Length(), 4u);
    EXPECT_EQ(text.AsString(), std::string("\0ab\0", 4));
}

TEST(zString, ComparesTexts) {
    EXPECT_TRUE(zString::string_equal("x264", "x264"));
    EXPECT_FALSE(zString::string_equal("x264", "X264"));
    EXPECT_FALSE(zString::string_equal("x264", "x26"));
    EXPECT_TRUE(zString::string_equal(nullptr, nullptr));
    EXPECT_FALSE(zString::string_equal(nullptr, ""));
    EXPECT_FALSE(zString::string_equal("", nullptr));
    EXPECT_TRUE(zString::string_equal("x264", "x265", 3));
    EXPECT_FALSE(zString::string_equal("x264", "x265", 4));
    EXPECT_TRUE(zString::string_equal("x264", "x264", 40));
    EXPECT_FALSE(zString::string_equal("x264", "x2", 4));
    EXPECT_TRUE(zString::string_equal("a", "b", 0));
    EXPECT_FALSE(zString::string_equal(nullptr, "b", 0));
}

TEST(zStringCmp, OrdersByUnsignedBytes) {
    const zString ordered[] = {zString(),     zString("\0", 1), zString("A"), zString("a"),
                               zString("aa"), zString("ab"),    zString("b"), zString("\xC3")};
    for (std::size_t i = 0; i < std::size(ordered); ++i) {
        for (std::size_t j = 0; j < std::size(ordered); ++j) {
            const int order = zStringCmp::compare(ordered[i], ordered[j]);
            EXPECT_EQ(order < 0, i < j);
            EXPECT_EQ(order > 0, i > j);
            EXPECT_EQ(ordered[i] < ordered[j], i < j);
            EXPECT_EQ(ordered[i] == ordered[j], i == j);
        }
    }
}

TEST(zStringCmp, KeysAMap) {
    zMap<zString, int, zStringCmp> map;
    map["two"] = 2;
    map["one"] = 1;
    EXPECT_EQ(*map.Find("one"), 1);
    EXPECT_EQ(map.Find("three"), nullptr);
}

}  // namespace
