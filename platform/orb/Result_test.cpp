#include "orb/Result.h"

#include <gtest/gtest.h>
#include <type_traits>
#include <utility>

namespace Quillon::Orb {
namespace {

TEST(Result, EveryKindHasASignThatSaysWhetherItFailed) {
    struct Case {
        Result result;
        bool failed;
    };
    const Case cases[] = {
        {ResultOK(nullptr), false},
        {ResultFalse(nullptr), false},
        {ResultError(nullptr), true},
        {ResultNullPointer(nullptr), true},
        {ResultOutOfMemory(nullptr), true},
        {ResultNotSupported(nullptr), true},
        {ResultInvalidArgument(nullptr), true},
        {ResultArgumentOutOfRange(nullptr), true},
        {Result(7), false},
        {Result(-1000), true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.failed, c.result.Failed()) << static_cast<int>(c.result);
        EXPECT_EQ(!c.failed, c.result.Succeeded());
        EXPECT_EQ(c.failed, static_cast<int>(c.result) < 0);
        EXPECT_STREQ("", c.result.GetMessage());
    }
}

TEST(Result, KindsDiffer) {
    const int codes[] = {ResultOK::kCode,
                         ResultFalse::kCode,
                         ResultError::kCode,
                         ResultNullPointer::kCode,
                         ResultOutOfMemory::kCode,
                         ResultNotSupported::kCode,
                         ResultInvalidArgument::kCode,
                         ResultArgumentOutOfRange::kCode};
    for (std::size_t i = 0; i < std::size(codes); ++i) {
        for (std::size_t j = 0; j < i; ++j) EXPECT_NE(codes[i], codes[j]);
    }
    EXPECT_EQ(0, static_cast<int>(Result(ResultOK(nullptr))));
}

TEST(Result, MessageIsFormattedAndTravels) {
    Result result = ResultError("'%s': %d", "cam1.mov", 28);
    EXPECT_STREQ("'cam1.mov': 28", result.GetMessage());
    Result copy = result;
    EXPECT_STREQ("'cam1.mov': 28", copy.GetMessage());
    Result moved = std::move(result);
    EXPECT_STREQ("'cam1.mov': 28", moved.GetMessage());
    copy = ResultOK();
    EXPECT_STREQ("", copy.GetMessage());
    copy = moved;
    EXPECT_STREQ("'cam1.mov': 28", copy.GetMessage());
    Result& same = copy;
    copy = same;
    EXPECT_STREQ("'cam1.mov': 28", copy.GetMessage());
    EXPECT_EQ(ResultError::kCode, copy);
}

TEST(Result, SuccessKeepsNoText) {
    const char* format = "nothing of %d";
    EXPECT_STREQ("", ResultOK(format, 3).GetMessage());
    EXPECT_STREQ("", ResultFalse(format, 3).GetMessage());
    EXPECT_STREQ("", ResultError(static_cast<const char*>(nullptr)).GetMessage());
}

TEST(Result, SuccessIsMadeAndMovedWithoutMemory) {
    static_assert(std::is_nothrow_move_constructible_v<Result>);
    static_assert(sizeof(Result) <= 16);
    Result result = ResultOK(nullptr);
    result = ResultFalse(nullptr);
    EXPECT_EQ(1, result);
}

}  // namespace
}  // namespace Quillon::Orb
