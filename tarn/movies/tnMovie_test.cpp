#include "tarn/movies/tnMovie.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "spar/zObject.h"
#include "tarn/movies/tnBaseWriteMovie.h"
#include "tarn/movies/tnStream.h"
#include "tarn/movies/tnStreamBufferGroup.h"

namespace {

class PlainStream final : public tnStream {
public:
    explicit PlainStream(const tnMediaRecord& format) : fFormat(format) {}
    const tnMediaRecord& DisplayFormat() const override { return fFormat; }
    const tnMediaRecord& EncodedFormat() const override { return fFormat; }

private:
    tnMediaRecord fFormat;
};

struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        object->Release();
    }
};
template <typename T>
using Held = std::unique_ptr<T, Releaser>;

TEST(Stream, AnswersForWhatItCannotDo) {
    const Held<tnStream> stream(new PlainStream(tnMediaRecord(TN_MEDIA_VIDEO)));
    zRecord info;
    tnMediaRecord format;
    long long time = 5;
    long long duration = 6;
    EXPECT_EQ(stream->Timescale(), 0);
    EXPECT_EQ(stream->Duration(), 0);
    EXPECT_EQ(stream->CurrentTime(), 0);
    EXPECT_EQ(stream->CurrentSample(), 0);
    EXPECT_EQ(stream->SampleForTime(9), 0);
    EXPECT_EQ(stream->ID(), 0u);
    EXPECT_EQ(stream->SetFormat(format), -28);
    EXPECT_EQ(stream->SeekToTime(0, 0), -28);
    EXPECT_EQ(stream->GetNextSampleTime(0, &time, &duration), -28);
    EXPECT_EQ(stream->ReadSample(nullptr, 0, nullptr, 0), -28);
    tnStreamBufferGroup group;
    EXPECT_EQ(stream->InitializeWritingWithGroup(group), 0);
    EXPECT_EQ(stream->WriteSample(nullptr, 0, 0, 0, 0, info), -28);
    EXPECT_EQ(stream->InsertMetaData(info), -28);
    EXPECT_EQ(stream->SetRawSamples(true), -28);
    EXPECT_EQ(stream->CanOutputFormat(format, false), -28);
    tn_output_statistics statistics;
    EXPECT_EQ(stream->GetOutputStatistics(statistics), -28);
    EXPECT_FALSE(stream->OutputDoesAutoReconnectOnError(1));
    EXPECT_TRUE(stream->LastSeekRendered());
    EXPECT_EQ(stream->GetInFlightWriteBufferCount(nullptr), 0);
    int count = 0;
    EXPECT_EQ(stream->GetInFlightWriteBufferCount(&count), 0);
    EXPECT_EQ(count, 1);
}

TEST(Stream, ThePooledWriteGivesItsReferenceBackAndTheRawWritesResult) {
    const Held<tnStream> stream(new PlainStream(tnMediaRecord(TN_MEDIA_VIDEO)));
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 8, false), 0);
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    buffer->AddWritingRef();
    zRecord info;
    EXPECT_EQ(stream->WriteSample(*buffer, 0, info, 0), -28);
    tnStreamBuffer* again = nullptr;
    EXPECT_EQ(group.GetBuffer(&again, false), 0);
    EXPECT_EQ(again, buffer);
}

/// Notes the raw write that it gets, and whether its buffer was still out meanwhile.
class NotingStream final : public tnStream {
public:
    explicit NotingStream(tnStreamBufferGroup& group) : fGroup(group) {}
    using tnStream::WriteSample;
    int WriteSample(void* data, unsigned int size, long long time, unsigned int samples,
                    long long duration, zRecord& info) override {
        ++calls;
        fData = data;
        fSize = size;
        fTime = time;
        fSamples = samples;
        fDuration = duration;
        fInfo = &info;
        tnStreamBuffer* other = nullptr;
        wasOut = fGroup.GetBuffer(&other, false) == -1025;
        return 7;
    }
    const tnMediaRecord& DisplayFormat() const override { return fFormat; }
    const tnMediaRecord& EncodedFormat() const override { return fFormat; }

    int calls = 0;
    void* fData = nullptr;
    unsigned int fSize = 0;
    long long fTime = 0;
    unsigned int fSamples = 0;
    long long fDuration = 0;
    zRecord* fInfo = nullptr;
    bool wasOut = false;

private:
    tnMediaRecord fFormat;
    tnStreamBufferGroup& fGroup;
};

TEST(Stream, ThePooledWriteIsTheRawOneOfWhatTheBufferHolds) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 48, false), 0);
    const Held<NotingStream> stream(new NotingStream(group));
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    buffer->SetNumberOfSamples(3);
    buffer->SetDurationForData(1001);
    buffer->AddWritingRef();
    zRecord info;
    EXPECT_EQ(stream->WriteSample(*buffer, 90000, info, 5), 7);
    EXPECT_EQ(stream->calls, 1);
    EXPECT_EQ(stream->fData, buffer->GetPointer());
    EXPECT_EQ(stream->fSize, 48u);
    EXPECT_EQ(stream->fTime, 90000);
    EXPECT_EQ(stream->fSamples, 3u);
    EXPECT_EQ(stream->fDuration, 1001);
    EXPECT_EQ(stream->fInfo, &info);
    EXPECT_TRUE(stream->wasOut) << "the data is the write's until it returns";
    tnStreamBuffer* again = nullptr;
    EXPECT_EQ(group.GetBuffer(&again, false), 0);
}

TEST(Stream, KeepsAnIdForEachOfTwoKindsOfOutput) {
    const Held<tnStream> stream(new PlainStream(tnMediaRecord(TN_MEDIA_VIDEO)));
    stream->SetOutputUniqueID(TN_OUTPUT_DEFAULT, 11);
    stream->SetOutputUniqueID(TN_OUTPUT_STREAMING, 22);
    stream->SetOutputUniqueID(static_cast<tn_output>(3), 33);
    EXPECT_EQ(stream->GetOutputUniqueID(TN_OUTPUT_DEFAULT), 11);
    EXPECT_EQ(stream->GetOutputUniqueID(TN_OUTPUT_STREAMING), 22);
    EXPECT_EQ(stream->GetOutputUniqueID(static_cast<tn_output>(3)), 0);
    EXPECT_EQ(stream->GetOutputUniqueID(static_cast<tn_output>(0)), 0);
}

/// A movie whose outputs start and stop as they are told to.
class Movie final : public tnBaseWriteMovie {
public:
    int CreateWriteStream(tnMediaRecord& format, tnStream** stream, int flags) override {
        flagsSeen.push_back(flags);
        if (flags == failOnFlags) return -77;
        *stream = giveNoStream ? nullptr : new PlainStream(format);
        return 0;
    }
    int BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                    zRecord& result) override {
        changesAmidstWrites += writing > 0 ? 1 : 0;
        begun.push_back(output.OutputType());
        settingsSeen.push_back(settings);
        results.push_back(&result);
        return output.OutputType() == failOnType ? -55 : 0;
    }
    int EndOutput(const tnOutputAccessor& output, const tnOutputAccessor& active,
                  zRecord& result) override {
        changesAmidstWrites += writing > 0 ? 1 : 0;
        ended.push_back(output.OutputType());
        endedURL = output.URL();
        activeURL = active.URL();
        hadActiveRecord = active.Record() != nullptr;
        results.push_back(&result);
        return endResult;
    }
    unsigned int TrackCount() override { return tracks; }
    int GetTrackFormat(unsigned int index, tnMediaRecord* format) override {
        format->fWidth.SetInt32(static_cast<int>(index) + 100);
        return trackResult;
    }
    unsigned int FormatID() override { return 'movf'; }
    const char* FormatName() override { return "Test Movie"; }
    int GetMovieSetting(const char*, zRecord&) override { return 0; }
    int SetMovieSetting(const char*, const zRecord&) override { return 0; }

    unsigned int StreamCount() const { return fStreams.Count(); }
    unsigned int OutputCount() const { return fOutputs.ChildCount(); }
    bool Writing() const { return fWriting; }
    int StatisticsObserver() const { return fStatisticsObserver; }

    std::vector<int> flagsSeen;
    std::vector<int> begun;
    std::vector<int> ended;
    std::vector<const zRecord*> settingsSeen;
    std::vector<zRecord*> results;
    std::string endedURL;
    std::string activeURL;
    bool hadActiveRecord = false;
    int failOnFlags = -1;
    int failOnType = -1;
    int endResult = 0;
    bool giveNoStream = false;
    unsigned int tracks = 1;
    int trackResult = 0;
    std::atomic<int> writing{0};  ///< writes under way
    int changesAmidstWrites = 0;
};

zRecord* track(tnMediaType type, bool enabled, int mask) {
    auto* record = new zRecord();
    record->SetInt32('type', static_cast<int>(type));
    record->SetBool('mena', enabled);
    if (mask >= 0) record->SetUInt32("audio_output_track_mask", static_cast<unsigned int>(mask));
    return record;
}

zRecord* output(int type, bool enabled, const char* url = "a") {
    auto* record = new zRecord();
    record->SetInt32('mOyp', type);
    record->SetBool('mOen', enabled);
    record->SetCString('mURL', url);
    return record;
}

constexpr int kAppend = 0x7FFFFFFF;

/// A movie that writes what it must and nothing else.
class PlainMovie final : public tnMovie {
public:
    unsigned int TrackCount() override { return 0; }
    int GetTrackFormat(unsigned int, tnMediaRecord*) override { return 0; }
    unsigned int FormatID() override { return 0; }
    const char* FormatName() override { return ""; }
    int GetMovieSetting(const char*, zRecord&) override { return 0; }
    int SetMovieSetting(const char*, const zRecord&) override { return 0; }
};

TEST(Movie, ThatOverridesNothingCanDoNothing) {
    const Held<tnMovie> movie(new PlainMovie());
    zRecord record;
    zRecord result;
    tnMediaRecord format;
    tnStream* stream = nullptr;
    EXPECT_EQ(movie->CreateStreams(record, 0, 0), -28);
    EXPECT_EQ(movie->GetWriteStreamForType(TN_MEDIA_VIDEO, &stream), -28);
    EXPECT_EQ(movie->CreateWriteStream(format, &stream, 0), -28);
    EXPECT_EQ(movie->CreateReadStream(0, &stream), -28);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(movie->CreateDiskFile("x"), -28);
    EXPECT_EQ(movie->BeginWritingFromDestination(record, nullptr, result), -28);
    EXPECT_EQ(movie->UpdateOutput(tnOutputAccessor(record), nullptr, result, TN_OUTPUT_UPDATE_ADD),
              -28);
    EXPECT_FALSE(movie->IsOutputActive(TN_OUTPUT_DEFAULT));
    EXPECT_EQ(movie->ExecuteRPC(record, result), 0);
    EXPECT_EQ(movie->SendRtmpDataMessage(record), 0);
    EXPECT_EQ(movie->StatisticsControl(record, result), 0);
    movie->WaitForIndexingToComplete();
    EXPECT_TRUE(record.IsEmpty());
    EXPECT_TRUE(result.IsEmpty());
}

TEST(Movie, AnswersForWhatItCannotDoAndKeepsItsFlag) {
    const Held<Movie> movie(new Movie());
    EXPECT_EQ(movie->CreateReadStream(0, nullptr), -28);
    EXPECT_EQ(movie->CreateDiskFile("x"), -28);
    zRecord a;
    zRecord b;
    EXPECT_EQ(movie->ExecuteRPC(a, b), 0);
    EXPECT_EQ(movie->SendRtmpDataMessage(a), 0);
    EXPECT_EQ(movie->StatisticsControl(a, b), 0);
    EXPECT_FALSE(movie->Writing());
    EXPECT_EQ(movie->BeginWriting(nullptr), -28);
    EXPECT_TRUE(movie->Writing());
    EXPECT_EQ(movie->FinishWriting(), -28);
    EXPECT_FALSE(movie->Writing());
    EXPECT_EQ(movie->StatisticsObserver(), 0);
    movie->SetStatisticsObserver(123);
    EXPECT_EQ(movie->StatisticsObserver(), 123);
}

TEST(Movie, DescribesItselfAndItsTracks) {
    const Held<Movie> movie(new Movie());
    zRecord record;
    EXPECT_EQ(movie->ArchiveTracksToRecord(record), 0);
    EXPECT_EQ(record.AsString('xTag', ""), "movie");
    EXPECT_EQ(record.AsString("format_name", ""), "Test Movie");
    EXPECT_EQ(record.AsInt32("format_id", 0), 'movf');
    ASSERT_EQ(record.ChildCount(), 1u);
    EXPECT_EQ(record.Child(0)->AsString('xTag', ""), "track");
    EXPECT_EQ(record.Child(0)->AsInt32('mwid', 0), 100);

    movie->tracks = 0;
    zRecord untouched;
    EXPECT_EQ(movie->ArchiveTracksToRecord(untouched), -1022);
    EXPECT_TRUE(untouched.IsEmpty());
}

TEST(Movie, DescribesEveryTrackWhateverAskingForItSays) {
    const Held<Movie> movie(new Movie());
    movie->tracks = 2;
    movie->trackResult = -5;
    zRecord record;
    record.AddChild(new zRecord(), kAppend);
    EXPECT_EQ(movie->ArchiveTracksToRecord(record), 0);
    ASSERT_EQ(record.ChildCount(), 3u) << "behind what is there";
    for (unsigned int track = 0; track < 2; ++track) {
        EXPECT_EQ(record.Child(track + 1)->AsString('xTag', ""), "track");
        EXPECT_EQ(record.Child(track + 1)->AsInt32('mwid', 0), 100 + static_cast<int>(track));
    }
}

TEST(Movie, TellsItsObservers) {
    const Held<Movie> movie(new Movie());
    auto owner = std::make_shared<zObject>();
    int told = 0;
    movie->MovieObservers().Add(owner, [&] { ++told; });
    movie->MovieObservers().Notify();
    owner.reset();
    movie->MovieObservers().Notify();
    EXPECT_EQ(told, 1);
}

TEST(BaseWriteMovie, MakesStreamsOfEnabledTracksThatAnOutputTakes) {
    const Held<Movie> movie(new Movie());
    zRecord tracks;
    tracks.AddChild(track(TN_MEDIA_VIDEO, true, -1), kAppend);
    tracks.AddChild(track(TN_MEDIA_VIDEO, false, -1), kAppend);
    tracks.AddChild(track(TN_MEDIA_AUDIO, true, -1), kAppend);
    tracks.AddChild(track(TN_MEDIA_AUDIO, true, 0), kAppend);
    tracks.AddChild(track(TN_MEDIA_AUDIO, true, 2), kAppend);
    tracks.AddChild(track(static_cast<tnMediaType>('text'), true, -1), kAppend);
    EXPECT_EQ(movie->CreateStreams(tracks, 5, 6), 0);
    EXPECT_EQ(movie->flagsSeen, (std::vector<int>{5, 6, 0}));
    EXPECT_EQ(movie->StreamCount(), 3u);

    tnStream* stream = nullptr;
    EXPECT_EQ(movie->GetWriteStreamForType(TN_MEDIA_AUDIO, nullptr), -22);
    ASSERT_EQ(movie->GetWriteStreamForType(TN_MEDIA_AUDIO, &stream), 0);
    EXPECT_EQ(stream->EncodedFormat().fType.AsInt32(0), static_cast<int>(TN_MEDIA_AUDIO));
    EXPECT_EQ(stream->Release(), 1) << "the movie's own reference stays";
    EXPECT_EQ(movie->GetWriteStreamForType(static_cast<tnMediaType>('none'), &stream), -1009);
    EXPECT_EQ(movie->CreateStreams(zRecord(), 5, 6), 0);
}

TEST(BaseWriteMovie, StopsAtAStreamThatCannotBeMadeAndKeepsTheOthers) {
    const Held<Movie> movie(new Movie());
    movie->failOnFlags = 6;
    zRecord tracks;
    tracks.AddChild(track(TN_MEDIA_VIDEO, true, -1), kAppend);
    tracks.AddChild(track(TN_MEDIA_AUDIO, true, 1), kAppend);
    tracks.AddChild(track(TN_MEDIA_VIDEO, true, -1), kAppend);
    EXPECT_EQ(movie->CreateStreams(tracks, 5, 6), -77);
    EXPECT_EQ(movie->StreamCount(), 1u);
    movie->giveNoStream = true;
    movie->failOnFlags = -1;
    EXPECT_EQ(movie->CreateStreams(tracks, 5, 6), 0);
    EXPECT_EQ(movie->StreamCount(), 1u);
}

TEST(BaseWriteMovie, RemembersEveryOutputEvenAfterAFailure) {
    const Held<Movie> movie(new Movie());
    movie->failOnType = 2;
    zRecord outputs;
    zRecord result;
    outputs.AddChild(output(1, true), kAppend);
    outputs.AddChild(output(9, false), kAppend);
    outputs.AddChild(output(2, true), kAppend);
    outputs.AddChild(output(3, true), kAppend);
    const zRecord settings;
    EXPECT_EQ(movie->BeginWritingFromDestination(outputs, &settings, result), -55);
    EXPECT_EQ(movie->begun, (std::vector<int>{1, 2}));
    EXPECT_EQ(movie->settingsSeen, (std::vector<const zRecord*>(2, &settings)));
    EXPECT_EQ(movie->results, (std::vector<zRecord*>(2, &result)));
    EXPECT_EQ(movie->OutputCount(), 4u);
    EXPECT_TRUE(movie->IsOutputActive(static_cast<tn_output>(3)));
    EXPECT_FALSE(movie->IsOutputActive(static_cast<tn_output>(9)));
    EXPECT_FALSE(movie->IsWritingType(static_cast<tn_output>(4)));
}

TEST(BaseWriteMovie, AddsRemovesAndEnablesOutputs) {
    const Held<Movie> movie(new Movie());
    zRecord result;
    const std::unique_ptr<zRecord> first(output(1, true, "one"));
    const tnOutputAccessor accessor(*first);
    EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_REMOVE), -1023);
    EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_ENABLE), -1023);
    EXPECT_TRUE(movie->ended.empty());
    EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, static_cast<tn_output_update>(4)),
              -1011);
    EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, static_cast<tn_output_update>(0)),
              -1011);

    const zRecord settings;
    EXPECT_EQ(movie->UpdateOutput(accessor, &settings, result, TN_OUTPUT_UPDATE_ADD), 0);
    EXPECT_EQ(movie->settingsSeen, std::vector<const zRecord*>{&settings});
    EXPECT_TRUE(movie->IsOutputActive(TN_OUTPUT_DEFAULT));
    const std::unique_ptr<zRecord> off(output(1, false));
    EXPECT_EQ(movie->UpdateOutput(tnOutputAccessor(*off), nullptr, result, TN_OUTPUT_UPDATE_ENABLE),
              0);
    EXPECT_FALSE(movie->IsOutputActive(TN_OUTPUT_DEFAULT));

    movie->endResult = -66;
    const std::unique_ptr<zRecord> asked(output(1, true, "other"));
    EXPECT_EQ(
        movie->UpdateOutput(tnOutputAccessor(*asked), nullptr, result, TN_OUTPUT_UPDATE_REMOVE),
        -66);
    EXPECT_EQ(movie->endedURL, "other");
    EXPECT_EQ(movie->activeURL, "one") << "what is remembered of it";
    EXPECT_EQ(movie->results, (std::vector<zRecord*>(2, &result))) << "of its start and its end";
    EXPECT_EQ(movie->OutputCount(), 0u) << "forgotten although it did not stop well";

    movie->failOnType = 1;
    EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_ADD), -55);
    EXPECT_EQ(movie->OutputCount(), 0u);
}

TEST(BaseWriteMovie, AnOutputOfAKindThatIsThereReplacesWhatIsRemembered) {
    const Held<Movie> movie(new Movie());
    zRecord result;
    for (const char* url : {"one", "two"}) {
        const std::unique_ptr<zRecord> one(output(1, true, url));
        EXPECT_EQ(
            movie->UpdateOutput(tnOutputAccessor(*one), nullptr, result, TN_OUTPUT_UPDATE_ADD), 0);
    }
    EXPECT_EQ(movie->OutputCount(), 1u);
    zRecord copy;
    tnOutputAccessor accessor(copy);
    EXPECT_EQ(movie->get_output_at(0, accessor), 0);
    EXPECT_EQ(accessor.URL(), "two");
}

// Any number of writes at once, and none while an output starts or stops.
TEST(BaseWriteMovie, OutputsChangeBetweenWrites) {
    const Held<Movie> movie(new Movie());
    movie->BeginStreamWrite();
    movie->BeginStreamWrite();  // a second writer need not wait for the first
    movie->EndStreamWrite();
    movie->EndStreamWrite();
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&] {
            while (!done) {
                movie->BeginStreamWrite();
                ++movie->writing;
                movie->IsWritingType(TN_OUTPUT_DEFAULT);
                --movie->writing;
                movie->EndStreamWrite();
                std::this_thread::yield();
            }
        });
    }
    zRecord result;
    const std::unique_ptr<zRecord> one(output(1, true));
    const tnOutputAccessor accessor(*one);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_ADD), 0);
        EXPECT_TRUE(movie->IsOutputActive(TN_OUTPUT_DEFAULT));
        EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_ENABLE), 0);
        EXPECT_EQ(movie->UpdateOutput(accessor, nullptr, result, TN_OUTPUT_UPDATE_REMOVE), 0);
    }
    done = true;
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(movie->changesAmidstWrites, 0);
    EXPECT_EQ(movie->ended.size(), 200u);
}

TEST(BaseWriteMovie, AnUnknownChangeIsRefusedWhileSamplesFlow) {
    const Held<Movie> movie(new Movie());
    zRecord result;
    movie->BeginStreamWrite();  // it would wait for ever if it took the lock
    EXPECT_EQ(
        movie->UpdateOutput(tnOutputAccessor(), nullptr, result, static_cast<tn_output_update>(4)),
        -1011);
    movie->EndStreamWrite();
    movie->WriteLock();
    EXPECT_FALSE(movie->IsWritingType(TN_OUTPUT_DEFAULT)) << "callable where the lock is held";
    movie->WriteUnlock();
}

TEST(BaseWriteMovie, AnOutputWithoutARecordIsOfTheDefaultKind) {
    const Held<Movie> movie(new Movie());
    zRecord result;
    EXPECT_EQ(movie->UpdateOutput(tnOutputAccessor(), nullptr, result, TN_OUTPUT_UPDATE_ADD), 0);
    EXPECT_EQ(movie->begun, std::vector<int>{1});
    EXPECT_EQ(movie->UpdateOutput(tnOutputAccessor(), nullptr, result, TN_OUTPUT_UPDATE_ENABLE), 0);
    EXPECT_FALSE(movie->IsOutputActive(TN_OUTPUT_DEFAULT));
}

// An empty place among the outputs counts as an output of the default kind.
TEST(BaseWriteMovie, EndsAnOutputOfWhichNothingIsRemembered) {
    const Held<Movie> movie(new Movie());
    zRecord outputs;
    zRecord result;
    outputs.AddChild(nullptr, kAppend);
    outputs.AddChild(output(2, true), kAppend);
    EXPECT_EQ(movie->BeginWritingFromDestination(outputs, nullptr, result), 0);
    ASSERT_EQ(movie->OutputCount(), 2u);
    movie->endResult = -66;
    const std::unique_ptr<zRecord> asked(output(1, true));
    EXPECT_EQ(
        movie->UpdateOutput(tnOutputAccessor(*asked), nullptr, result, TN_OUTPUT_UPDATE_REMOVE),
        -66);
    EXPECT_EQ(movie->ended, std::vector<int>{1});
    EXPECT_FALSE(movie->hadActiveRecord);
    EXPECT_EQ(movie->OutputCount(), 2u) << "there is nothing to forget";
    EXPECT_TRUE(movie->IsOutputActive(TN_OUTPUT_STREAMING));
}

TEST(BaseWriteMovie, CopiesOutARememberedOutput) {
    const Held<Movie> movie(new Movie());
    zRecord outputs;
    zRecord result;
    outputs.AddChild(output(1, true, "there"), kAppend);
    movie->BeginWritingFromDestination(outputs, nullptr, result);
    zRecord copy;
    tnOutputAccessor accessor(copy);
    EXPECT_EQ(movie->get_output_at(0, accessor), 0);
    EXPECT_EQ(accessor.URL(), "there");
    for (const int index : {1, -1}) {
        zRecord untouched;
        tnOutputAccessor other(untouched);
        EXPECT_EQ(movie->get_output_at(index, other), -1010);
        EXPECT_TRUE(untouched.IsEmpty());
    }
}

}  // namespace
