#include "spar/jigManager.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

#include "spar/jigAddon.h"
#include "spar/jigElf.h"
#include "spar/jigIterator.h"
#include "spar/test_addons/TestFormat.h"

#include "tests/support/TraceKeeper.h"

namespace {

namespace fs = std::filesystem;

const std::string kAddons = SPAR_TEST_ADDONS;

class Folder {
public:
    Folder() {
        char path[] = "/tmp/spar_jig_XXXXXX";
        fPath = mkdtemp(path);
    }
    ~Folder() { fs::remove_all(fPath); }
    std::string Path(const std::string& leaf = "") const {
        return leaf.empty() ? fPath : fPath + "/" + leaf;
    }
    void Take(const std::string& name) const {
        fs::copy_file(kAddons + "/" + name, fPath + "/" + name);
    }
    void Write(const std::string& leaf, const std::string& bytes) const {
        std::ofstream(Path(leaf), std::ios::binary) << bytes;
    }

private:
    std::string fPath;
};

std::string bytes_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> names(jigManager& manager, const char* interfaceName = "TestFormat") {
    std::vector<std::string> found;
    jigIterator walk(manager, interfaceName);
    for (walk.Init(); !walk.Done(); walk.Next()) {
        void* out = nullptr;
        if (walk.GetInterface(&out) != 0) continue;
        auto* format = static_cast<TestFormat*>(out);
        found.push_back(format->FormatName());
        format->Release();
    }
    return found;
}

/// Whether this process has loaded that file.
bool is_mapped(const std::string& path) {
    return bytes_of("/proc/self/maps").find(path) != std::string::npos;
}

std::string problem_of(const std::string& bytes) {
    return jigElfProblem(bytes.size(), [&](std::uint64_t offset, void* to, std::size_t size) {
        if (offset > bytes.size() || size > bytes.size() - offset) return false;
        bytes.copy(static_cast<char*>(to), size, offset);
        return true;
    });
}

std::atomic<int> gAlive{0};

class Linked : public TestFormat {
public:
    Linked() { ++gAlive; }
    ~Linked() override { --gAlive; }
    int Concrete_QueryInterface(const char* name, void** out) override {
        if (std::string(name) == "TestFormat") return GetInterface(this, out);
        return xCUnknown::Concrete_QueryInterface(name, out);
    }
    const char* FormatName() override { return "linked"; }
};

const jigAddon kLinked = JIG_LINKED_ADDON(TestFormat, Linked);

jigManager* gOwnManager = nullptr;

/// Lists its own add-on while it is made, as a second thread might at that moment.
class ListsItself : public Linked {
public:
    ListsItself();
};

const jigAddon kListsItself = JIG_LINKED_ADDON(TestFormat, ListsItself);

ListsItself::ListsItself() {
    jigManager* manager = std::exchange(gOwnManager, nullptr);
    if (manager != nullptr) {
        EXPECT_EQ(manager->Add(kListsItself), 0);
    }
}

}  // namespace

TEST(jigManager, LoadsAFolderInTheOrderOfNamesAndSkipsWhatIsNoAddon) {
    tests::TraceKeeper capture;
    jigManager manager;
    EXPECT_EQ(manager.LoadFolder(kAddons), 2);
    EXPECT_EQ(names(manager), (std::vector<std::string>{"good_a", "good_b"}));
    // Each file that was passed over has a line of its own.
    for (const char* name : {"alien", "bad_entry", "bad_entry_number", "liar", "nameless", "null",
                             "other_abi", "other_mark", "throwing", "unresolved", "unwilling"})
        EXPECT_NE(capture.fText.find(kAddons + "/" + name + ".so'"), std::string::npos) << name;
    EXPECT_EQ(std::count(capture.fText.begin(), capture.fText.end(), '\n'), 11);
}

TEST(jigManager, SaysWhyAFileWasSkipped) {
    const struct {
        const char* file;
        const char* why;
    } kCases[] = {
        {"alien.so", "not an add-on"},
        {"bad_entry.so", "fails while it is loaded: no device"},
        {"bad_entry_number.so", "fails while it is loaded; skipped"},
        {"null.so", "not an add-on"},
        {"other_mark.so", "not an add-on"},
        {"other_abi.so", "built for add-on interface 2, this host has 1"},
        {"nameless.so", "names no interface"},
        {"liar.so", "gives no 'TestFormat'"},
        {"unwilling.so", "gives no 'TestFormat'"},
        {"throwing.so", "gives no 'TestFormat'"},
        {"unresolved.so", "nobody_has_this_function"},
        {"missing.so", "cannot be opened"},
        {".", "cannot be read"},
    };
    for (const auto& item : kCases) {
        tests::TraceKeeper capture;
        jigManager manager;
        EXPECT_EQ(manager.LoadFile(kAddons + "/" + item.file), -1) << item.file;
        EXPECT_NE(capture.fText.find(item.why), std::string::npos)
            << item.file << ": " << capture.fText;
        EXPECT_TRUE(names(manager).empty());
    }
}

TEST(jigManager, APipeOfThatNameIsNotWaitedFor) {
    tests::TraceKeeper capture;
    Folder folder;
    folder.Take("good_a.so");
    ASSERT_EQ(mkfifo(folder.Path("a_pipe.so").c_str(), 0600), 0);
    jigManager manager;
    EXPECT_EQ(manager.LoadFolder(folder.Path()), 1);
    EXPECT_EQ(capture.fText,
              "jigManager: '" + folder.Path("a_pipe.so") + "': cannot be read; skipped\n");
}

TEST(jigManager, AnEntryThatThrowsKeepsNobodyElseOut) {
    tests::TraceKeeper capture;
    Folder folder;
    for (const char* name : {"bad_entry.so", "bad_entry_number.so", "good_a.so", "good_b.so"})
        folder.Take(name);
    jigManager manager;
    EXPECT_EQ(manager.LoadFolder(folder.Path()), 2);
    EXPECT_EQ(capture.fText, "jigManager: '" + folder.Path("bad_entry.so") +
                                 "': fails while it is loaded: no device; skipped\n" +
                                 "jigManager: '" + folder.Path("bad_entry_number.so") +
                                 "': fails while it is loaded; skipped\n");
    EXPECT_FALSE(is_mapped(folder.Path("bad_entry.so")));
    EXPECT_TRUE(is_mapped(folder.Path("good_a.so")));
}

TEST(jigManager, AFileThatIsLoadedAlreadyIsListedOnce) {
    tests::TraceKeeper capture;
    jigManager manager;
    EXPECT_EQ(manager.LoadFile(kAddons + "/good_a.so"), 0);
    EXPECT_EQ(manager.LoadFile(kAddons + "/good_a.so"), 0);
    EXPECT_EQ(manager.LoadFolder(kAddons), 1);
    EXPECT_EQ(names(manager).size(), 2u);
    jigManager another;  // has a list of its own
    EXPECT_EQ(another.LoadFile(kAddons + "/good_a.so"), 0);
    EXPECT_EQ(names(another).size(), 1u);
}

TEST(jigManager, OnlySharedObjectsOfAFolderAreLookedAt) {
    tests::TraceKeeper capture;
    Folder folder;
    folder.Take("good_a.so");
    folder.Write("readme.txt", "not an add-on");
    fs::create_directory(folder.Path("inner"));
    jigManager manager;
    EXPECT_EQ(manager.LoadFolder(folder.Path()), 1);
    EXPECT_EQ(capture.fText, "");
}

TEST(jigManager, AFolderThatIsNotThereIsAnError) {
    tests::TraceKeeper capture;
    jigManager manager;
    EXPECT_EQ(manager.LoadFolder("/nowhere/at/all"), -1);
    EXPECT_NE(capture.fText.find("/nowhere/at/all"), std::string::npos);
}

TEST(jigManager, ANameWithoutAFolderMeansTheCurrentOne) {
    Folder folder;
    folder.Take("good_a.so");
    const fs::path before = fs::current_path();
    fs::current_path(folder.Path());
    jigManager manager;
    EXPECT_EQ(manager.LoadFile("good_a.so"), 0);
    fs::current_path(before);
}

// A file that was cut while it was copied: the loader would touch pages that are not there.
TEST(jigManager, ATruncatedFileIsRefusedAndNobodyDies) {
    tests::TraceKeeper capture;
    Folder folder;
    const std::string whole = bytes_of(kAddons + "/good_a.so");
    ASSERT_EQ(problem_of(whole), "");
    int refused = 0;
    const std::size_t step = whole.size() / 150 + 1;
    for (std::size_t size = 0; size < whole.size(); size += step) {
        const std::string leaf = std::to_string(size) + ".so";
        folder.Write(leaf, whole.substr(0, size));
        jigManager manager;
        const int result = manager.LoadFile(folder.Path(leaf));
        // What is cut behind the last loaded byte is whole for all that matters.
        EXPECT_EQ(result == 0, problem_of(whole.substr(0, size)).empty()) << size;
        EXPECT_EQ(names(manager).size(), result == 0 ? 1u : 0u);
        refused += result != 0;
        if (result == 0) break;
    }
    EXPECT_GT(refused, 5);
}

TEST(jigManager, FilesOfOtherKindsAreRefused) {
    const std::string whole = bytes_of(kAddons + "/good_a.so");
    const auto with = [&](std::size_t at, char byte) {
        std::string bytes = whole;
        bytes[at] = byte;
        return problem_of(bytes);
    };
    EXPECT_EQ(problem_of(""), "not a shared object");
    EXPECT_EQ(problem_of("#!/bin/sh\n"), "not a shared object");
    EXPECT_EQ(problem_of(std::string(1000, 'x')), "not a shared object");
    EXPECT_EQ(with(4, 9), "of another word size");
    EXPECT_EQ(with(16, 1), "not a shared object");  // an object file
    EXPECT_EQ(with(18, 2), "for another processor");
    EXPECT_EQ(with(56, 0), "damaged headers");     // no segments
    EXPECT_EQ(with(57, 0x7F), "damaged headers");  // more than there are
    EXPECT_EQ(with(39, 0x7F), "cut short");        // segments listed far away
}

TEST(jigManager, LinkedInAddonsStandBesideLoadedOnes) {
    {
        jigManager manager;
        EXPECT_EQ(manager.Add(kLinked), 0);
        EXPECT_EQ(manager.Add(kLinked), 0);
        EXPECT_EQ(manager.LoadFile(kAddons + "/good_b.so"), 0);
        EXPECT_EQ(names(manager), (std::vector<std::string>{"linked", "good_b"}));
        EXPECT_EQ(gAlive, 1);
    }
    EXPECT_EQ(gAlive, 0);
}

TEST(jigManager, AnAddonThatIsListedWhileItIsMadeIsListedOnce) {
    {
        jigManager manager;
        gOwnManager = &manager;
        EXPECT_EQ(manager.Add(kListsItself), 0);
        EXPECT_EQ(names(manager), std::vector<std::string>{"linked"});
        EXPECT_EQ(gAlive, 1) << "the second object is given back";
    }
    EXPECT_EQ(gAlive, 0);
}

TEST(jigManager, ABadLinkedInAddonIsRefused) {
    tests::TraceKeeper capture;
    jigManager manager;
    jigAddon bad = kLinked;
    bad.fABI = kJigABI + 7;
    EXPECT_EQ(manager.Add(bad), -1);
    bad = kLinked;
    bad.fCreate = nullptr;
    EXPECT_EQ(manager.Add(bad), -1);
    EXPECT_TRUE(names(manager).empty());
}

TEST(jigIterator, GivesReferencesOfTheCallersOwn) {
    void* out = nullptr;
    {
        jigManager manager;
        manager.Add(kLinked);
        jigIterator walk(manager, "TestFormat");
        ASSERT_EQ(walk.GetInterface(&out), 0);
        EXPECT_EQ(walk.GetInterface(nullptr), -22);
    }
    EXPECT_EQ(gAlive, 1);  // outlives the manager
    EXPECT_EQ(static_cast<TestFormat*>(out)->Release(), 0);
    EXPECT_EQ(gAlive, 0);
}

TEST(jigIterator, AtItsEndThereIsNothing) {
    jigManager manager;
    manager.Add(kLinked);
    jigIterator other(manager, "OtherInterface");
    EXPECT_TRUE(other.Done());
    void* out = &manager;
    EXPECT_EQ(other.GetInterface(&out), -31);
    EXPECT_EQ(out, nullptr);

    jigIterator walk(manager, "TestFormat");
    EXPECT_FALSE(walk.Done());
    walk.Next();
    EXPECT_TRUE(walk.Done());
    walk.Next();
    EXPECT_TRUE(walk.Done());
    EXPECT_EQ(walk.GetInterface(&out), -31);
    walk.Init();
    EXPECT_FALSE(walk.Done());

    jigIterator nameless(manager, nullptr);
    EXPECT_TRUE(nameless.Done());
}

TEST(jigIterator, MeetsAddonsThatComeDuringTheWalk) {
    jigManager manager;
    manager.Add(kLinked);
    jigIterator walk(manager, "TestFormat");
    manager.LoadFile(kAddons + "/good_a.so");
    walk.Next();
    EXPECT_FALSE(walk.Done());
    walk.Next();
    manager.LoadFile(kAddons + "/good_b.so");
    EXPECT_TRUE(walk.Done());  // the end was reached before
}

TEST(jigManager, ThreadsMayLoadAndWalkAtOnce) {
    jigManager manager;
    std::atomic<bool> stop{false};
    std::thread walker([&] {
        while (!stop) names(manager);
    });
    std::thread loader([&] { manager.LoadFile(kAddons + "/good_a.so"); });
    manager.Add(kLinked);
    manager.LoadFile(kAddons + "/good_b.so");
    loader.join();
    stop = true;
    walker.join();
    EXPECT_EQ(names(manager).size(), 3u);
}
