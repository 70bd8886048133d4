#pragma once

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace tests {

/// Makes the clip at `path` with ffmpeg, over what is there. `how` is its words up to that name,
/// with blanks between them: inputs, filters, encoders.
inline testing::AssertionResult MakeClip(const std::string& path, const std::string& how) {
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-nostdin", "-y"};
    std::istringstream rest(how);
    for (std::string word; rest >> word;) words.push_back(word);
    words.push_back(path);
    const ProcessResult made = Run(words);
    if (made.exitCode == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "ffmpeg " << how << ": " << made.err;
}

}  // namespace tests
