#include "tarn/movies/tnFiles.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "spar/jigAddon.h"
#include "spar/jigManager.h"
#include "spar/xCUnknown.h"
#include "spar/zRecord.h"
#include "tarn/movies/tnDestination.h"
#include "tarn/movies/tnFormatsIterator.h"
#include "tarn/movies/tnXIMovieFile.h"

struct tnAppFunctions {};

namespace {

/// What the test add-ons do, by their place in the list.
struct Behaviour {
    const char* name;
    unsigned int id;
    bool supportsDefault;
    int loadResult;
    int createResult;
    bool refuses = false;  ///< its interface, once it has been listed
};

std::vector<Behaviour> gBehaviours;
std::vector<std::string> gCalls;

template <int Place>
class TestFile final : public tnXIMovieFile {
public:
    int QueryInterface(const char* name, void** out) override {
        if (does().refuses || std::string(name) != "tnXIMovieFile") return -31;
        ++fCount;
        *out = static_cast<tnXIMovieFile*>(this);
        return 0;
    }
    int AddRef() override { return ++fCount; }
    int Release() override {
        const int left = --fCount;
        if (left == 0) delete this;
        return left;
    }
    void DeleteInterface() override {}
    int GetVersion() override { return 1; }
    int LoadFile(const char*, tnMovie**, const zRecord&, tnAppFunctions&) override {
        gCalls.push_back("load " + std::to_string(Place));
        return does().loadResult;
    }
    int CreateMovie(tnMovie**) override {
        gCalls.push_back("create " + std::to_string(Place));
        return does().createResult;
    }
    bool FormatFlag() override { return Place == 1; }
    bool IsOutputSupported(const zRecord& output) override { return output.AsBool("ok", false); }
    const char* FileExtension() override { return ""; }
    int GetCapabilities(zRecord&) override { return 0; }
    int ConfigureInterface(const zRecord&) override { return 0; }
    unsigned int FormatID() override { return does().id; }
    const char* FormatName() override { return does().name; }
    bool SupportsOutput(tn_output output) override {
        return output != TN_OUTPUT_DEFAULT || does().supportsDefault;
    }

private:
    static const Behaviour& does() { return gBehaviours[Place]; }
    int fCount = 1;
};

const jigAddon kAddons[] = {
    JIG_LINKED_ADDON(tnXIMovieFile, TestFile<0>),
    JIG_LINKED_ADDON(tnXIMovieFile, TestFile<1>),
    JIG_LINKED_ADDON(tnXIMovieFile, TestFile<2>),
};

class Files : public testing::Test {
protected:
    Files() {
        gCalls.clear();
        gBehaviours = {{"Alpha", 10, true, -1254, 0},
                       {"Beta", 20, true, -1254, 0},
                       {"Gamma", 20, true, -1254, 0}};
        for (const jigAddon& addon : kAddons) EXPECT_EQ(fManager.Add(addon), 0);
        tnFiles::LoadAddons(fManager);
    }

    jigManager fManager;
    tnMovie* fMovie = nullptr;
    zRecord fOptions;
    tnAppFunctions fFunctions;
};

// First in this file, while no manager has been loaded yet.
TEST(FilesBeforeLoading, SayThatAddonsAreNotLoaded) {
    zRecord options;
    tnAppFunctions functions;
    tnMovie* movie = nullptr;
    EXPECT_EQ(tnFiles::LoadFile("x", &movie, options, functions), -1014);
    EXPECT_EQ(tnFiles::CreateMovie(&movie, 1, TN_OUTPUT_DEFAULT), -1014);
}

TEST_F(Files, LoadStopsAtTheFirstAnswer) {
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), -1254);
    EXPECT_EQ(gCalls.size(), 3u);
    gCalls.clear();
    gBehaviours[1].loadResult = -50;
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), -50);
    EXPECT_EQ(gCalls, (std::vector<std::string>{"load 0", "load 1"}));
    gBehaviours[0].loadResult = 0;
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), 0);
}

TEST_F(Files, WithNobodyToAskSaySo) {
    jigManager empty;
    tnFiles::LoadAddons(empty);
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), -1015);
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 10, TN_OUTPUT_DEFAULT), -1017);
    void* found = nullptr;
    EXPECT_EQ(tnFiles::QueryInterface("tnXIMovieFile", &found), -31);
    tnFiles::LoadAddons(fManager);
}

TEST_F(Files, AnAddonWithoutItsInterfaceIsPassedOver) {
    gBehaviours[0].refuses = true;
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), -1254);
    EXPECT_EQ(gCalls, (std::vector<std::string>{"load 1", "load 2"}));
    gBehaviours[1].refuses = true;
    gCalls.clear();
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 20, TN_OUTPUT_DEFAULT), 0);
    EXPECT_EQ(gCalls, std::vector<std::string>{"create 2"});
    unsigned int id = 0;
    EXPECT_EQ(tnFiles::GetFormatID("Alpha", &id), -1020);
    EXPECT_EQ(tnFiles::GetFormatID("Gamma", &id), 0);
}

TEST_F(Files, AddonsThatAllLackTheirInterfaceAreNobodyToAsk) {
    for (Behaviour& behaviour : gBehaviours) behaviour.refuses = true;
    EXPECT_EQ(tnFiles::LoadFile("x", &fMovie, fOptions, fFunctions), -1015);
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 10, TN_OUTPUT_DEFAULT), -1017);
    EXPECT_TRUE(gCalls.empty());
    void* found = this;
    EXPECT_EQ(tnFiles::QueryInterface("tnXIMovieFile", &found), -31);
    tnXIMovieFile* file = nullptr;
    EXPECT_EQ(tnFiles::GetMovieFileInterface("Alpha", &file), -1016);

    tnFormatsIterator* walk = tnFiles::CreateFormatIterator();
    tnFormatsIterator::tn_format format{99, "before", true};
    for (walk->Init(); !walk->Done(); walk->Next()) EXPECT_EQ(walk->Current(format), -31);
    EXPECT_EQ(format.id, 99u);
    EXPECT_STREQ(format.name, "before");
    EXPECT_TRUE(format.flag);
    walk->Delete();
}

TEST_F(Files, CreateGoesOnAfterAFailureAndPastUnsupportedOutputs) {
    gBehaviours[1].createResult = -5;
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 20, TN_OUTPUT_DEFAULT), 0);
    EXPECT_EQ(gCalls, (std::vector<std::string>{"create 1", "create 2"}));
    gCalls.clear();
    gBehaviours[1].supportsDefault = false;
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 20, TN_OUTPUT_DEFAULT), 0);
    EXPECT_EQ(gCalls, std::vector<std::string>{"create 2"});
    gBehaviours[2].createResult = -6;
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 20, TN_OUTPUT_DEFAULT), -1017);
    EXPECT_EQ(tnFiles::CreateMovie(&fMovie, 99, TN_OUTPUT_DEFAULT), -1017);
}

TEST_F(Files, FindsAnAddonByItsWholeName) {
    tnXIMovieFile* file = nullptr;
    EXPECT_EQ(tnFiles::GetMovieFileInterface("Bet", &file), -1016);
    EXPECT_EQ(tnFiles::GetMovieFileInterface("", &file), -22);
    EXPECT_EQ(tnFiles::GetMovieFileInterface("Beta", nullptr), -22);
    ASSERT_EQ(tnFiles::GetMovieFileInterface("Beta", &file), 0);
    EXPECT_STREQ(file->FormatName(), "Beta");
    EXPECT_GT(file->Release(), 0);

    zRecord output;
    EXPECT_FALSE(tnFiles::IsOutputSupported("Beta", output));
    output.SetBool("ok", true);
    EXPECT_TRUE(tnFiles::IsOutputSupported("Beta", output));
    EXPECT_FALSE(tnFiles::IsOutputSupported("Nobody", output));
}

TEST_F(Files, TurnsANameIntoAnId) {
    unsigned int id = 7;
    EXPECT_EQ(tnFiles::GetFormatID("Alpha", &id), 0);
    EXPECT_EQ(id, 10u);
    EXPECT_EQ(tnFiles::GetFormatID("Alpha", nullptr), -1);
    EXPECT_EQ(tnFiles::GetFormatID("", &id), -1);
    EXPECT_EQ(tnFiles::GetFormatID("Nobody", &id), -1020);
    EXPECT_EQ(id, 0u);
    gBehaviours[0].id = 0;
    EXPECT_EQ(tnFiles::GetFormatID("Alpha", &id), -1020);
    gBehaviours[2].name = "Alpha";
    EXPECT_EQ(tnFiles::GetFormatID("Alpha", &id), 0);
    EXPECT_EQ(id, 20u);
}

TEST_F(Files, CreatesByName) {
    EXPECT_EQ(tnFiles::CreateMovieWithName(&fMovie, "", TN_OUTPUT_DEFAULT), -1018);
    EXPECT_EQ(tnFiles::CreateMovieWithName(&fMovie, "Nobody", TN_OUTPUT_DEFAULT), -1020);
    EXPECT_EQ(tnFiles::CreateMovieWithName(&fMovie, "Alpha", TN_OUTPUT_DEFAULT), 0);
}

TEST_F(Files, ListTheirFormats) {
    tnFormatsIterator* walk = tnFiles::CreateFormatIterator();
    std::vector<std::string> names;
    for (walk->Init(); !walk->Done(); walk->Next()) {
        tnFormatsIterator::tn_format format;
        EXPECT_GT(walk->Current(format), 0) << "what releasing the interface gave";
        names.push_back(std::string(format.name) + (format.flag ? " flag " : " ") +
                        std::to_string(format.id));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Alpha 10", "Beta flag 20", "Gamma 20"}));
    walk->Delete();
    tnFormatsIterator::Delete(nullptr);
}

TEST_F(Files, GiveTheFirstAddonOfAnyInterface) {
    void* found = nullptr;
    ASSERT_EQ(tnFiles::QueryInterface("tnXIMovieFile", &found), 0);
    static_cast<tnXIMovieFile*>(found)->Release();
    EXPECT_EQ(tnFiles::QueryInterface("tnXIOther", &found), -31);
}

class Destination final : public tnDestination {
public:
    int Notify(int kind, const char* what, int subKind, zRecord* data) override {
        kinds.push_back(kind);
        subKinds.push_back(subKind);
        text = what;
        hadData = hadData || data;
        return 0;
    }
    int GetOutputs(zRecord&) override { return 0; }
    int SetOutputs(const zRecord&) override { return 0; }
    int GetTracks(zRecord&) override { return 0; }
    int SetTracks(const zRecord&) override { return 0; }
    int GetPresets(zRecord&) override { return 0; }
    int SetPreset(const char*) override { return 0; }
    const char* DisplayName() const override { return ""; }
    unsigned int FormatID() const override { return 0; }
    int Validate(zRecord&) override { return 0; }
    bool IsEnabled() const override { return true; }

    std::vector<int> kinds;
    std::vector<int> subKinds;
    std::string text;
    bool hadData = false;
};

TEST(Destination, SaysHowFarAChangeReaches) {
    Destination destination;
    EXPECT_EQ(destination.GetDefaultEncoderName(), "");
    destination.SendChangeNotification();
    destination.SendNonInvalidatingChangeNotification();
    destination.SendKeepPresetsChangeNotification();
    EXPECT_EQ(destination.kinds, (std::vector<int>(3, 'mdDC')));
    EXPECT_EQ(destination.subKinds, (std::vector<int>{'mdSC', 'mdNC', 'mdKP'}));
    EXPECT_EQ(destination.text, "tnDestinationMsg");
    EXPECT_FALSE(destination.hadData);
}

}  // namespace
