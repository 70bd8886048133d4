#include "tarn/iso/tnISOValidator.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

#include "spar/zMutex.h"
#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "tarn/iso/tnISOAccessor.h"
#include "tarn/iso/tnISOFileLayer.h"

#include "tests/support/NoThreads.h"

namespace {

constexpr long long kPlenty = 1'000'000'000'000;

/// A file system that tests fill, hold up and let fail. In place while it lives.
class Files : public tnISOFileLayer {
public:
    Files() { Set(this); }
    ~Files() override { Set(nullptr); }

    bool IsFolder(const std::string& path) override {
        pass_gate();
        if (fFolderThrows) throw std::runtime_error("folder");
        const zMutexLock lock(fLock);
        return fFree.count(path) != 0;
    }

    long long SpaceAvailable(const std::string& path) override {
        ++fSpaceAsked;
        if (fSpaceThrows) throw std::bad_alloc();
        const zMutexLock lock(fLock);
        const auto found = fFree.find(path);
        // As the real layer answers of a place that has vanished between the two questions.
        return found != fFree.end() ? found->second : std::numeric_limits<long long>::max();
    }

    void SetFree(const std::string& path, long long bytes) {
        const zMutexLock lock(fLock);
        fFree[path] = bytes;
    }
    void Remove(const std::string& path) {
        const zMutexLock lock(fLock);
        fFree.erase(path);
    }

    /// From now on a question does not come back until LetGo.
    void Hang() {
        const zMutexLock lock(fLock);
        fHangs = true;
        fWaiting = 0;
    }
    void LetGo() {
        const zMutexLock lock(fLock);
        fHangs = false;
        fMoved.WakeAll();
    }
    void WaitUntilAsked() {
        const zMutexLock lock(fLock);
        while (fWaiting == 0) fMoved.Wait(fLock);
    }
    int Asked() const { return fAsked; }
    int SpaceAsked() const { return fSpaceAsked; }
    std::thread::id Thread() const { return fThread; }

    std::atomic<bool> fFolderThrows{false};
    std::atomic<bool> fSpaceThrows{false};

private:
    void pass_gate() {
        ++fAsked;
        const zMutexLock lock(fLock);
        fThread = std::this_thread::get_id();
        ++fWaiting;
        fMoved.WakeAll();
        while (fHangs) fMoved.Wait(fLock);
        --fWaiting;
    }

    std::atomic<int> fAsked{0};
    std::atomic<int> fSpaceAsked{0};
    std::atomic<std::thread::id> fThread{};
    zMutex fLock;
    zCondition fMoved;
    std::map<std::string, long long> fFree SPAR_GUARDED_BY(fLock);
    bool fHangs SPAR_GUARDED_BY(fLock) = false;
    int fWaiting SPAR_GUARDED_BY(fLock) = 0;
};

/// A host with one output that is right in everything, and its validator.
class Validator : public testing::Test {
protected:
    Validator() {
        zThread::DrainMainQueue();
        fFiles.SetFree("/media/iso", kPlenty);
        fValidator = std::make_unique<tnISOValidator>(&fOutputs);
        fValidator->fSourceLookup = [](tnISOAccessor const&) { return 7; };
        fValidator->fTrackLookup = [this](tnISOAccessor const&, bool& hasVideo, bool& hasAudio) {
            ++fTracksAsked;
            EXPECT_FALSE(hasVideo || hasAudio);
            hasVideo = fHasVideo;
            hasAudio = fHasAudio;
        };
        fValidator->fChanged.Add(fToken, [this] { ++fTold; });
    }
    ~Validator() override {
        fFiles.LetGo();
        fValidator.reset();
        EXPECT_EQ(zThread::DrainMainQueue(), 0) << "work of a dead validator";
    }

    static void fill(zRecord& record, const std::string& name) {
        record.SetString('guid', "guid " + name, 0);
        record.SetString("source_id", "source " + name, 0);
        record.SetString("output_filename", name, 0);
        record.SetCString("output_folder", "/media/iso", 0);
        record.SetCString("video_format", "H264-MP4", 0);
    }

    zRecord& add_output(const std::string& name) {
        auto* output = new zRecord;
        fill(*output, name);
        fOutputs.AddChild(output, 0x7FFFFFFF);
        return *output;
    }

    /// Validate alone; the number of times that it told of changes.
    int validate(const zRecord& settings) {
        fTold = 0;
        fValidator->Validate(settings);
        return fTold;
    }

    /// Lets the folder check end and its result reach the main thread; how often that told.
    int finish_folder() {
        fTold = 0;
        fValidator->fFolderCheck.wait();
        zThread::DrainMainQueue();
        return fTold;
    }

    void check(const zRecord& settings) {
        fValidator->Validate(settings);
        finish_folder();
    }

    Files fFiles;
    zRecord fOutputs;
    zRecord& fOutput = add_output("cam1");
    bool fHasVideo = true;
    bool fHasAudio = true;
    int fTracksAsked = 0;
    int fTold = 0;
    std::shared_ptr<int> fToken = std::make_shared<int>();
    std::unique_ptr<tnISOValidator> fValidator;
};

TEST_F(Validator, NewOneHasNoSourceAndSoAProblem) {
    static_assert(!std::is_polymorphic_v<tnISOValidator>);
    const tnISOValidator fresh(nullptr);
    EXPECT_TRUE(fresh.HasProblems());
    EXPECT_TRUE(fresh.fSourceId.empty());
    EXPECT_EQ(fresh.fSourceNumber, 0);
    EXPECT_FALSE(fresh.fSourceInUse || fresh.fPathInUse || fresh.fNoTracksEnabled ||
                 fresh.fTracksUnavailable || fresh.fBadFilename || fresh.fBitrateOutOfRange ||
                 fresh.fLowDiskSpace || fresh.fDurationOutOfRange);
    EXPECT_TRUE(fresh.fFolderExists);
    EXPECT_FALSE(fresh.fSourceLookup || fresh.fTrackLookup || fresh.fCancel);
    EXPECT_FALSE(fresh.fFolderCheck.valid());
}

TEST_F(Validator, GoodSettingsHaveNoProblem) {
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_EQ(fValidator->fSourceId, "source cam1");
    EXPECT_EQ(fValidator->fSourceNumber, 7);
    EXPECT_EQ(finish_folder(), 0);
    EXPECT_FALSE(fValidator->HasProblems());
    EXPECT_NE(fFiles.Thread(), std::this_thread::get_id()) << "the disk is not asked from here";
}

TEST_F(Validator, SameSettingsAgainTellNothing) {
    check(fOutput);
    EXPECT_EQ(validate(fOutput), 0);
    EXPECT_EQ(finish_folder(), 0);
    fFiles.Remove("/media/iso");
    EXPECT_EQ(validate(fOutput), 0);
    EXPECT_TRUE(fValidator->fFolderExists) << "until the check is done";
    EXPECT_EQ(finish_folder(), 1);
    EXPECT_FALSE(fValidator->fFolderExists);
    EXPECT_EQ(validate(fOutput), 0);
    EXPECT_EQ(finish_folder(), 0);
}

TEST_F(Validator, OutputWithoutASourceTellsSoEachTime) {
    fOutput.RemoveKey("source_id");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(validate(fOutput), 1);
        EXPECT_TRUE(fValidator->HasProblems());
        EXPECT_EQ(fValidator->fSourceNumber, 0);
    }
}

TEST_F(Validator, SourceThatIsNotFoundTellsSoEachTime) {
    fValidator->fSourceLookup = [](tnISOAccessor const&) { return 0; };
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(validate(fOutput), 1);
        EXPECT_TRUE(fValidator->HasProblems());
    }
    fValidator->fSourceLookup = [](tnISOAccessor const&) { return -3; };
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_EQ(fValidator->fSourceNumber, -3) << "any number but 0 is a source";
    EXPECT_EQ(validate(fOutput), 0);
    fValidator->fSourceLookup = [](tnISOAccessor const&) { return 4; };
    EXPECT_EQ(validate(fOutput), 1);
}

TEST_F(Validator, WithoutALookupNoSourceIsMissing) {
    fValidator->fSourceLookup = {};
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_EQ(validate(fOutput), 1) << "the number could not be had";
    finish_folder();
    EXPECT_EQ(fValidator->fSourceNumber, 0);
    EXPECT_EQ(fTracksAsked, 0) << "no source whose tracks to ask for";
    EXPECT_FALSE(fValidator->HasProblems());
}

TEST_F(Validator, LookupIsAskedForTheSettingsUnderCheck) {
    std::string looked;
    fValidator->fSourceLookup = [&](tnISOAccessor const& accessor) {
        looked += accessor.IsShotRecording() ? "shot " : "source ";
        return 1;
    };
    validate(fOutput);
    fOutput.SetCString("recording_type", "shot", 0);
    validate(fOutput);  // has no shot_id, and so nothing to look for
    EXPECT_EQ(fValidator->fSourceId, "");
    fOutput.SetCString("shot_id", "shot 1", 0);
    validate(fOutput);
    EXPECT_EQ(fValidator->fSourceId, "shot 1");
    fOutput.SetCString("recording_type", "neither", 0);
    validate(fOutput);
    EXPECT_EQ(fValidator->fSourceId, "");
    EXPECT_EQ(looked, "source shot ");
}

TEST_F(Validator, TracksThatAreOnMustBeThoseOfTheSource) {
    const struct {
        bool fVideoOn;
        bool fAudioOn;
        bool fHasVideo;
        bool fHasAudio;
        bool fNone;
        bool fUnavailable;
    } kCases[] = {
        {true, true, true, true, false, false},    {true, true, true, false, false, false},
        {true, true, false, true, false, false},   {true, true, false, false, false, true},
        {false, true, true, false, false, true},   {false, true, false, true, false, false},
        {true, false, false, true, false, true},   {true, false, true, true, false, false},
        {false, false, false, false, true, false}, {false, false, true, true, true, false},
    };
    for (const auto& c : kCases) {
        fOutput.SetBool("video_track_enabled", c.fVideoOn, 0);
        fOutput.SetBool("audio_track_enabled", c.fAudioOn, 0);
        fHasVideo = c.fHasVideo;
        fHasAudio = c.fHasAudio;
        check(fOutput);
        EXPECT_EQ(fValidator->fNoTracksEnabled, c.fNone) << &c - kCases;
        EXPECT_EQ(fValidator->fTracksUnavailable, c.fUnavailable) << &c - kCases;
        EXPECT_EQ(fValidator->HasProblems(), c.fNone || c.fUnavailable) << &c - kCases;
    }
}

TEST_F(Validator, TracksAreOnlyMissingOfASourceThatIsThere) {
    fHasVideo = fHasAudio = false;
    check(fOutput);
    ASSERT_TRUE(fValidator->fTracksUnavailable);
    fValidator->fSourceLookup = [](tnISOAccessor const&) { return 0; };
    check(fOutput);
    EXPECT_FALSE(fValidator->fTracksUnavailable);
    fValidator->fSourceLookup = [](tnISOAccessor const&) { return 1; };
    fValidator->fTrackLookup = {};
    check(fOutput);
    EXPECT_FALSE(fValidator->fTracksUnavailable);
}

TEST_F(Validator, NumbersMustBeInRange) {
    const struct {
        const char* fFormat;
        int fRate;
        int fDuration;
        const char* fUnits;
        bool fRateOut;
        bool fDurationOut;
    } kCases[] = {
        {"H264-MP4", 10, 4, "hour", false, false},
        {"H264-MP4", 501, 4, "hour", true, false},
        {"", 501, 4, "hour", true, false},
        {"PRORES-MOV", 501, 4, "hour", false, false},
        {"MJPEG-MOV", -501, 4, "hour", false, false},
        {"H264-MP4", 0, 4, "hour", false, false},  // counts as the default
        {"H264-MP4", 10, 9, "sec", false, true},
        {"H264-MP4", 10, 10, "sec", false, false},
        {"H264-MP4", 10, 12, "hour", false, false},
        {"H264-MP4", 10, 43'201, "sec", false, true},
        {"H264-MP4", 10, -1, "hour", false, true},
        {"H264-MP4", 10, 99, "days", false, false},  // counts as the default
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        fOutput.SetCString("video_format", c.fFormat, 0);
        fOutput.SetInt32("video_bitrate", c.fRate, 0);
        fOutput.SetInt32("file_duration", c.fDuration, 0);
        fOutput.SetCString("file_duration_units", c.fUnits, 0);
        fOutput.SetBool("file_duration_maxed", false, 0);
        check(fOutput);
        EXPECT_EQ(fValidator->fBitrateOutOfRange, c.fRateOut);
        EXPECT_EQ(fValidator->fDurationOutOfRange, c.fDurationOut);
        EXPECT_EQ(fValidator->HasProblems(), c.fRateOut || c.fDurationOut);
        fOutput.SetBool("file_duration_maxed", true, 0);
        check(fOutput);
        EXPECT_FALSE(fValidator->fDurationOutOfRange);
    }
}

TEST_F(Validator, FileNameHoldsNothingThatFileSystemsForbid) {
    const struct {
        std::string fName;
        bool fIsBad;
    } kCases[] = {{"cam 1 - take 2.mov", false},
                  {"", false},
                  {"caf\xC3\xA9", false},
                  {"cam/1", true},
                  {"cam:1", true},
                  {"cam\\1", true},
                  {"cam?", true},
                  {"a\nb", true}};
    for (const auto& c : kCases) {
        fOutput.SetString("output_filename", c.fName, 0);
        check(fOutput);
        EXPECT_EQ(fValidator->fBadFilename, c.fIsBad) << c.fName;
        EXPECT_EQ(fValidator->HasProblems(), c.fIsBad) << c.fName;
    }
}

TEST_F(Validator, TwoOutputsOfOneFileBothShowIt) {
    zRecord& other = add_output("CAM1");
    other.SetCString("source_id", "source of its own", 0);
    other.SetCString("output_folder", "/Media/ISO", 0);
    for (const zRecord* each : {&fOutput, &other}) {
        check(*each);
        EXPECT_TRUE(fValidator->fPathInUse);
        EXPECT_FALSE(fValidator->fSourceInUse);
        EXPECT_TRUE(fValidator->HasProblems());
    }
    other.SetCString("output_filename", "cam2", 0);
    check(fOutput);
    EXPECT_FALSE(fValidator->fPathInUse);
    EXPECT_FALSE(fValidator->HasProblems());
}

TEST_F(Validator, TwoOutputsOfOneSourceBothShowIt) {
    zRecord& other = add_output("cam2");
    other.SetCString("source_id", "source cam1", 0);
    for (const zRecord* each : {&fOutput, &other}) {
        check(*each);
        EXPECT_TRUE(fValidator->fSourceInUse);
        EXPECT_FALSE(fValidator->fPathInUse);
        EXPECT_TRUE(fValidator->HasProblems());
    }
    other.SetCString("recording_type", "shot", 0);  // records its shot then, whatever the source
    check(fOutput);
    EXPECT_FALSE(fValidator->fSourceInUse);
    other.SetCString("shot_id", "source cam1", 0);
    check(fOutput);
    EXPECT_TRUE(fValidator->fSourceInUse) << "ids are of one kind";
}

TEST_F(Validator, OutputsWithoutASourceDoNotShareOne) {
    fOutput.RemoveKey("source_id");
    add_output("cam2").RemoveKey("source_id");
    check(fOutput);
    EXPECT_FALSE(fValidator->fSourceInUse);
}

TEST_F(Validator, OutputDoesNotMeetItself) {
    zRecord copy(fOutput);
    check(copy);
    EXPECT_FALSE(fValidator->HasProblems()) << "its guid says that it is the one among the outputs";
    copy.SetCString('guid', "another", 0);
    check(copy);
    EXPECT_TRUE(fValidator->fSourceInUse && fValidator->fPathInUse);
    copy.RemoveID('guid');
    fOutput.RemoveID('guid');
    check(copy);
    EXPECT_FALSE(fValidator->HasProblems()) << "two without an identity count as one";
}

TEST_F(Validator, AllOutputsAreWalkedAndTagged) {
    zRecord& clash = add_output("cam1");
    clash.SetCString('guid', "clash", 0);
    zRecord& last = add_output("cam9");
    check(fOutput);
    EXPECT_TRUE(fValidator->fSourceInUse && fValidator->fPathInUse);
    for (const zRecord* each : {&fOutput, &clash, &last}) {
        EXPECT_STREQ(each->AsCString('xTag', ""), "iso_output");
    }
}

TEST_F(Validator, NoOutputsAreNoClash) {
    tnISOValidator alone(nullptr);
    alone.Validate(fOutput);
    EXPECT_FALSE(alone.fSourceInUse || alone.fPathInUse);
    EXPECT_FALSE(fOutput.ExistsID('xTag')) << "what is only read is not tagged";
}

TEST_F(Validator, MissingFolderIsOne) {
    fOutput.SetCString("output_folder", "/media/iso/file.txt", 0);
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_EQ(finish_folder(), 1);
    EXPECT_FALSE(fValidator->fFolderExists);
    EXPECT_FALSE(fValidator->fLowDiskSpace);
    EXPECT_EQ(fFiles.SpaceAsked(), 0);
    EXPECT_TRUE(fValidator->HasProblems());
}

TEST_F(Validator, SpaceIsLowBelowHalfAGibibyte) {
    const std::pair<long long, bool> kCases[] = {
        {0, true}, {536'870'911, true}, {536'870'912, false}, {kPlenty, false}};
    for (const auto& [bytes, isLow] : kCases) {
        fFiles.SetFree("/media/iso", bytes);
        check(fOutput);
        EXPECT_EQ(fValidator->fLowDiskSpace, isLow) << bytes;
        EXPECT_EQ(fValidator->HasProblems(), isLow) << bytes;
        EXPECT_TRUE(fValidator->fFolderExists);
    }
}

TEST_F(Validator, NoFolderIsKnownAtOnceAndSpaceKeepsItsValue) {
    fFiles.SetFree("/media/iso", 1);
    check(fOutput);
    ASSERT_TRUE(fValidator->fLowDiskSpace);
    const int asked = fFiles.Asked();
    fOutput.RemoveKey("output_folder");
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_FALSE(fValidator->fFolderExists);
    EXPECT_TRUE(fValidator->fLowDiskSpace);
    EXPECT_EQ(validate(fOutput), 0) << "nothing new";
    fOutput.SetCString("source_id", "another", 0);
    EXPECT_EQ(validate(fOutput), 1);
    EXPECT_EQ(fFiles.Asked(), asked);
}

TEST_F(Validator, FileSystemThatThrowsIsNoFolderOrNoLowSpace) {
    fFiles.fFolderThrows = true;
    check(fOutput);
    EXPECT_FALSE(fValidator->fFolderExists);
    EXPECT_FALSE(fValidator->fLowDiskSpace);
    fFiles.fFolderThrows = false;
    fFiles.fSpaceThrows = true;
    fFiles.SetFree("/media/iso", 1);
    check(fOutput);
    EXPECT_TRUE(fValidator->fFolderExists);
    EXPECT_FALSE(fValidator->fLowDiskSpace);
}

TEST_F(Validator, RealFoldersAreAskedWithoutALayer) {
    tnISOFileLayer::Set(nullptr);
    fOutput.SetCString("output_folder", "/proc/self/status", 0);
    check(fOutput);
    EXPECT_FALSE(fValidator->fFolderExists);
    fOutput.SetCString("output_folder", "/", 0);
    check(fOutput);
    EXPECT_TRUE(fValidator->fFolderExists);
    EXPECT_EQ(fFiles.Asked(), 0);
}

// A disk that does not answer.

TEST_F(Validator, HangingFolderHoldsNobodyUp) {
    fFiles.Hang();
    EXPECT_EQ(validate(fOutput), 1);  // returns, although the disk is not yet asked or hangs
    fFiles.WaitUntilAsked();
    EXPECT_EQ(zThread::DrainMainQueue(), 0);
    EXPECT_TRUE(fValidator->fFolderExists) << "what the check before said, or the start";
    EXPECT_FALSE(fValidator->HasProblems());
    fOutput.RemoveKey("output_folder");
    EXPECT_EQ(validate(fOutput), 1) << "without a folder nobody waits for the older check";
    fFiles.LetGo();
    EXPECT_EQ(finish_folder(), 0);
    EXPECT_FALSE(fValidator->fFolderExists) << "the older check was called off";
}

TEST_F(Validator, NextCheckCallsTheOneUnderWayOff) {
    fFiles.Hang();
    validate(fOutput);
    fFiles.WaitUntilAsked();
    // The disk gives the question back only after the next check has begun, which waits for that.
    std::thread disk([this, older = fValidator->fCancel] {
        while (!older->IsCancelled()) std::this_thread::yield();
        fFiles.LetGo();
    });
    fOutput.SetCString("output_folder", "/gone", 0);
    validate(fOutput);
    disk.join();
    EXPECT_EQ(fFiles.SpaceAsked(), 0) << "a check that was called off asks nothing more";
    EXPECT_EQ(finish_folder(), 1);
    EXPECT_FALSE(fValidator->fFolderExists) << "the answer is that of the newer folder";
    EXPECT_EQ(fFiles.Asked(), 2);
}

TEST_F(Validator, AnswerOfACheckThatWasCalledOffIsDropped) {
    fFiles.Remove("/media/iso");
    validate(fOutput);
    fValidator->fFolderCheck.wait();  // its answer waits for the main thread now
    fFiles.SetFree("/media/iso", kPlenty);
    validate(fOutput);
    EXPECT_EQ(finish_folder(), 0) << "only the newer one's answer came through";
    EXPECT_TRUE(fValidator->fFolderExists);
}

TEST_F(Validator, FolderThatVanishesBetweenTheQuestionsIsNoProblemYet) {
    class Vanishing : public tnISOFileLayer {
    public:
        explicit Vanishing(Files& files) : fFiles(files) { Set(this); }
        ~Vanishing() override { Set(&fFiles); }
        bool IsFolder(const std::string& path) override {
            const bool is = fFiles.IsFolder(path);
            fFiles.Remove(path);
            return is;
        }
        long long SpaceAvailable(const std::string& path) override {
            return fFiles.SpaceAvailable(path);
        }

    private:
        Files& fFiles;
    };
    {
        const Vanishing vanishing(fFiles);
        check(fOutput);
        EXPECT_TRUE(fValidator->fFolderExists);
        EXPECT_FALSE(fValidator->fLowDiskSpace);
        check(fOutput);
        EXPECT_FALSE(fValidator->fFolderExists) << "the next check sees it";
    }
}

TEST_F(Validator, DestructionDuringACheckIsQuiet) {
    fFiles.Hang();
    validate(fOutput);
    fFiles.WaitUntilAsked();
    const std::shared_ptr<zCancelClass> token = fValidator->fCancel;
    std::thread disk([&] {
        while (!token->IsCancelled()) std::this_thread::yield();  // the destructor is at work
        fFiles.LetGo();
    });
    fTold = 0;
    fValidator.reset();
    disk.join();
    EXPECT_EQ(fFiles.SpaceAsked(), 0) << "a check that was called off asks nothing more";
    EXPECT_EQ(zThread::DrainMainQueue(), 0);
    EXPECT_EQ(fTold, 0);
}

TEST_F(Validator, DestructionBeforeTheAnswerArrivesIsQuiet) {
    fFiles.Remove("/media/iso");
    validate(fOutput);
    fValidator->fFolderCheck.wait();
    fTold = 0;
    fValidator.reset();
    EXPECT_EQ(zThread::DrainMainQueue(), 0);
    EXPECT_EQ(fTold, 0);
}

TEST_F(Validator, WithoutAThreadItThrowsAndCanBeAskedAgain) {
    check(fOutput);
    fOutput.SetCString("source_id", "another", 0);
    fTold = 0;
    {
        const tests::NoThreads none;
        EXPECT_THROW(fValidator->Validate(fOutput), std::system_error);
    }
    EXPECT_EQ(fTold, 0) << "the call did not come to its end";
    EXPECT_EQ(fValidator->fSourceId, "another") << "what was checked before stands";
    EXPECT_FALSE(fValidator->HasProblems());
    EXPECT_EQ(zThread::DrainMainQueue(), 0);

    fFiles.SetFree("/media/iso", 1);
    validate(fOutput);
    EXPECT_EQ(finish_folder(), 1);
    EXPECT_TRUE(fValidator->fLowDiskSpace);
}

TEST_F(Validator, ChecksAndEndsInAnyOrderKeepTheThreadsApart) {
    // For the thread sanitizer: the disk's answers, calls off and ends of life fall together.
    for (int round = 0; round < 200; ++round) {
        tnISOValidator other(&fOutputs);
        fFiles.SetFree("/media/iso", round % 2 == 0 ? 1 : kPlenty);
        other.Validate(fOutput);
        if (round % 3 == 0) other.Validate(fOutput);
        if (round % 5 == 0) zThread::DrainMainQueue();
        if (round % 7 == 0) {
            other.fFolderCheck.wait();
            zThread::DrainMainQueue();
            EXPECT_EQ(other.fLowDiskSpace, round % 2 == 0);
        }
    }
}

}  // namespace
