#include "movieContainer.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(MovieContainer, IsWhatTheEndingSays) {
    struct Case {
        const char* path;
        unsigned int container;
    };
    const Case cases[] = {
        {"a.mov", 'mov '},
        {"A.MOV", 'mov '},
        {"/x.mp4/a.Mov", 'mov '},
        {"a.mp4", 'mp4 '},
        {"CLIP01.MP4", 'mp4 '},
        {"a.m4v", 'mp4 '},
        {"a.M4V", 'mp4 '},
        {"a.mov.ogg", 0},
        {"a", 0},
        {".mov", 0},
        {"", 0},
        {"a.mov/b", 0},
        {"a.mov ", 0},
    };
    for (const Case& c : cases) EXPECT_EQ(ContainerOf(c.path), c.container) << c.path;
}

TEST(MovieContainer, EveryEndingIsNamedToWhoeverGaveAnother) {
    EXPECT_EQ(UnknownContainer("a.ogg"),
              "'a.ogg': unknown kind of file; end its name in .mov, .mp4 or .m4v");
}

}  // namespace
