#include "tests/support/TestFolder.h"

#include <cstdlib>
#include <filesystem>

namespace tests {

TestFolder::TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "tarn-test-XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    fPath = name;
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
}

}  // namespace tests
