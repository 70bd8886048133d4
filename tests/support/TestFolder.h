#pragma once

#include <string>

namespace tests {

/// A folder of its own for one test, gone with it.
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::string& Path() const { return fPath; }
    std::string File(const std::string& name) const { return fPath + "/" + name; }

private:
    std::string fPath;
};

}  // namespace tests
