#pragma once

// Components and movie files that tests register: they can be slow, fail, or refuse.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "orb/CAudioCompressor.h"
#include "orb/CAudioSample.h"
#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoSample.h"
#include "orb/MovieFileInventory.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {

/// A door that threads wait at until it is opened; open at first.
class Gate {
public:
    void Close() {
        std::lock_guard held(fLock);
        fOpen = false;
    }
    void Open() {
        std::lock_guard held(fLock);
        fOpen = true;
        fChanged.notify_all();
    }
    void Pass() {
        std::unique_lock held(fLock);
        ++fArrived;
        fChanged.notify_all();
        fChanged.wait(held, [this] { return fOpen; });
    }
    /// Waits until so many have come to the door since it was made.
    void WaitForArrivals(int count) {
        std::unique_lock held(fLock);
        fChanged.wait(held, [&] { return fArrived >= count; });
    }

private:
    std::mutex fLock;
    std::condition_variable fChanged;
    bool fOpen = true;
    int fArrived = 0;
};

/// What a test tells its fake components, and what they tell it.
struct FakePlan {
    Gate gate;                         ///< an encoder passes it for every picture
    std::atomic<int> failAt{-1};       ///< the picture, counted from 0, that the encoder refuses
    std::atomic<int> delay{0};         ///< pictures that the encoder holds back
    std::atomic<unsigned> failOut{0};  ///< the pictures, bit 0 the first, that do not come out
    std::atomic<bool> failOutForever{false};  ///< nothing comes out any more
    std::atomic<int> throwAt{-1};             ///< the picture for which the encoder has no memory
    std::atomic<bool> throwAtEnd{false};      ///< it has none to give out what it held back
    std::atomic<bool> failBegin{false};
    std::atomic<bool> limitedOnly{false};  ///< the encoder makes limited range of whatever comes
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    std::atomic<int> drained{0};
    std::atomic<int> living{0};
};

inline RObject<CVideoSample> fake_picture(long long time, long long duration,
                                          unsigned char mark = 0, int bytes = 16) {
    RObject<CVideoSample> sample(new CVideoSample(0, duration, 0));
    sample->SetTime(time);
    RObject<CByteArray> array =
        bytes_of(std::vector<unsigned char>(static_cast<std::size_t>(bytes), mark));
    RObject<CMemoryDataReference> data(new CMemoryDataReference(array.Get()));
    sample->SetDataReference(data.Get());
    return sample;
}

inline RObject<CAudioSample> fake_sound(const std::vector<unsigned char>& bytes,
                                        long long packets) {
    RObject<CAudioSample> sample(new CAudioSample(packets));
    RObject<CByteArray> array = bytes_of(bytes);
    RObject<CBufferDataReference> data(new CBufferDataReference(array.Get()));
    sample->SetDataReference(data.Get());
    return sample;
}

/// Passes pictures through, `delay` of them late.
class FakeVideoCompressor : public CVideoCompressor {
public:
    FakeVideoCompressor(unsigned int type, std::shared_ptr<FakePlan> plan)
        : CVideoCompressor(type), fPlan(plan ? plan : std::make_shared<FakePlan>()) {
        ++fPlan->living;
    }
    ~FakeVideoCompressor() override { --fPlan->living; }

    CValueList<unsigned int>* GetInputFormats() override {
        return new CValueList<unsigned int>({'UYVY', 'I420'});
    }
    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>({'jpeg', 'avc1'});
    }
    Result Begin() override {
        if (fPlan->failBegin) return ResultError("no device");
        ++fPlan->begun;
        RObject<CVideoProperties> output(GetOutputProperties(0));
        if (fPlan->limitedOnly) output->SetVideoRange(CVideoProperties::kLimitedRange);
        UpdateOutputProperties(output.Detach());
        return 0;
    }
    Result End() override {
        ++fPlan->ended;
        return 0;
    }
    Result ProcessSample(CVideoSample* sample) override {
        if (!sample) {
            ++fPlan->drained;
            fDraining = true;
            return 0;
        }
        fPlan->gate.Pass();
        const int number = fSeen++;
        if (number == fPlan->throwAt) throw std::bad_alloc();
        if (number == fPlan->failAt) return ResultError("the picture is bad");
        fHeld.push_back(RObject<CVideoSample>(new CVideoSample(sample)));
        return 0;
    }
    Result ReceiveSample(RObject<CVideoSample>& sample) override {
        sample.Clear();
        const std::size_t kept = fDraining ? 0 : static_cast<std::size_t>(fPlan->delay.load());
        if (fHeld.size() <= kept) return 0;
        if (fPlan->failOutForever) return ResultError("the device is gone");
        if (fDraining && fPlan->throwAtEnd) throw std::bad_alloc();
        sample = std::move(fHeld.front());
        fHeld.pop_front();
        const int number = fCameOut++;
        if (number >= 32 || (fPlan->failOut >> number & 1) == 0) return 0;
        sample.Clear();
        return ResultError("the picture is lost");
    }

private:
    const std::shared_ptr<FakePlan> fPlan;
    std::deque<RObject<CVideoSample>> fHeld;
    int fSeen = 0;
    int fCameOut = 0;
    bool fDraining = false;
};

class FakeVideoFactory : public CComponentFactory<CVideoCompressor> {
public:
    explicit FakeVideoFactory(unsigned int type, std::shared_ptr<FakePlan> plan = nullptr)
        : CComponentFactory<CVideoCompressor>(type), fPlan(std::move(plan)) {}
    CVideoCompressor* CreateInstance() override {
        return new FakeVideoCompressor(GetType(), fPlan);
    }

private:
    const std::shared_ptr<FakePlan> fPlan;
};

/// Makes one packet of 4 bytes out of every 8 frames of 16-bit mono.
class FakeAudioCompressor : public CAudioCompressor {
public:
    static constexpr int kFramesPerPacket = 8;
    static constexpr int kPriming = 3;

    FakeAudioCompressor(unsigned int type, std::shared_ptr<FakePlan> plan)
        : CAudioCompressor(type), fPlan(plan ? plan : std::make_shared<FakePlan>()) {}

    CValueList<unsigned int>* GetInputFormats() override {
        return new CValueList<unsigned int>({'sowt'});
    }
    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>({'mp4a'});
    }
    Result Begin() override {
        RObject<CAudioProperties> output(new CAudioProperties(Input()));
        output->SetFormat('mp4a');
        output->SetFramesPerPacket(kFramesPerPacket);
        output->SetPrimingFrames(kPriming);
        output->SetBitRate(64000);
        RObject<CDecoderSpecificProperties> info(new CDecoderSpecificProperties());
        RObject<CByteArray> bytes = bytes_of({0x11, 0x90});
        info->SetDecoderInfo(bytes.Get());
        output->SetExtension('mspe', info.Get());
        UpdateOutputProperties(output.Detach());
        fFrames = kPriming;
        return 0;
    }
    Result End() override {
        ++fPlan->ended;
        return 0;
    }
    Result PutSample(int, CMediaSample* sample) override {
        if (!sample) {
            fDraining = true;
            return 0;
        }
        fFrames += static_cast<CAudioSample*>(sample)->GetLength();
        return 0;
    }
    Result GetSample(int, RObject<CMediaSample>& sample) override {
        sample.Clear();
        const bool rest = fDraining && fFrames > 0;
        if (fFrames < kFramesPerPacket && !rest) return 0;
        RObject<CAudioSample> packet = fake_sound({1, 2, 3, 4}, 1);
        packet->SetDuration(std::min<long long>(fFrames, kFramesPerPacket));
        fFrames -= packet->GetDuration();
        sample = packet;
        return 0;
    }

private:
    const std::shared_ptr<FakePlan> fPlan;
    long long fFrames = 0;
    bool fDraining = false;
};

class FakeAudioFactory : public CComponentFactory<CAudioCompressor> {
public:
    explicit FakeAudioFactory(unsigned int type, std::shared_ptr<FakePlan> plan = nullptr)
        : CComponentFactory<CAudioCompressor>(type), fPlan(std::move(plan)) {}
    CAudioCompressor* CreateInstance() override {
        return new FakeAudioCompressor(GetType(), fPlan);
    }

private:
    const std::shared_ptr<FakePlan> fPlan;
};

/// What fake movie files are told, and what was written to them.
struct FakeDisk {
    struct Written {
        int track;
        MovieSample sample;
        std::vector<unsigned char> bytes;
    };

    std::mutex lock;
    std::vector<MovieTrack> tracks;
    std::vector<Written> written;
    std::string path;
    MovieFileOptions options;
    int begun = 0;
    int finished = 0;
    int living = 0;
    Gate gate;                    ///< passed before every sample
    std::atomic<int> failAt{-1};  ///< the sample, counted from 0, that does not fit
    std::atomic<bool> failBegin{false};
    std::atomic<bool> failFinish{false};
    std::atomic<bool> refuseTracks{false};

    int CountWritten() {
        std::lock_guard held(lock);
        return static_cast<int>(written.size());
    }
    std::vector<Written> Of(int track) {
        std::lock_guard held(lock);
        std::vector<Written> found;
        for (const Written& w : written) {
            if (w.track == track) found.push_back(w);
        }
        return found;
    }
};

/// The disk of the test that runs; fake files of type 'fake' write to it.
inline FakeDisk* gDisk = nullptr;

class FakeMovieFile : public MovieFile {
public:
    explicit FakeMovieFile(FakeDisk& disk) : fDisk(disk) {
        std::lock_guard held(fDisk.lock);
        ++fDisk.living;
        fDisk.tracks.clear();
    }
    ~FakeMovieFile() override {
        std::lock_guard held(fDisk.lock);
        --fDisk.living;
    }
    int AddTrack(const MovieTrack& track) override {
        if (fDisk.refuseTracks) return -1;
        std::lock_guard held(fDisk.lock);
        fDisk.tracks.push_back(track);
        return static_cast<int>(fDisk.tracks.size()) - 1;
    }
    Result Begin() override {
        if (fDisk.failBegin) return ResultError("no such disk");
        std::lock_guard held(fDisk.lock);
        ++fDisk.begun;
        return 0;
    }
    Result WriteSample(int track, const MovieSample& sample) override {
        fDisk.gate.Pass();
        std::lock_guard held(fDisk.lock);
        if (static_cast<int>(fDisk.written.size()) == fDisk.failAt) {
            return ResultError("no space left on device");
        }
        fDisk.written.push_back({track, sample, {sample.data, sample.data + sample.size}});
        return 0;
    }
    Result Finish() override {
        if (fDisk.failFinish) return ResultError("the disk went away");
        std::lock_guard held(fDisk.lock);
        ++fDisk.finished;
        return 0;
    }

private:
    FakeDisk& fDisk;
};

/// Makes containers of a type go to a disk of this test for as long as it lives.
class FakeDiskInPlace {
public:
    explicit FakeDiskInPlace(unsigned int type = 'fake') : fType(type) {
        gDisk = &disk;
        MovieFileInventory::Add(fType, Make);
    }
    ~FakeDiskInPlace() {
        MovieFileInventory::Add(fType, nullptr);
        gDisk = nullptr;
    }
    FakeDisk disk;

private:
    const unsigned int fType;

    static std::unique_ptr<MovieFile> Make(const char* path, const MovieFileOptions& options) {
        {
            std::lock_guard held(gDisk->lock);
            gDisk->path = path;
            gDisk->options = options;
        }
        return std::make_unique<FakeMovieFile>(*gDisk);
    }
};

}  // namespace Quillon::Orb
