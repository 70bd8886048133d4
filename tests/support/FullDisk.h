#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "orb/MovieFileInventory.h"
#include "orb/container/MovieFile.h"

namespace tests {

/// While it lives QuickTime files stand on a disk that takes so many samples of each, and the end
/// of a file or not; files whose path lacks `name` find room for all. One at a time.
class FullDisk {
public:
    FullDisk(int samples, bool takesEnd, const char* name = "") {
        fSamples = samples;
        fTakesEnd = takesEnd;
        fName = name;
        Quillon::Orb::MovieFileInventory::Add('mov ', make);
    }
    ~FullDisk() { Quillon::Orb::MovieFileInventory::Add('mov ', nullptr); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    class File final : public Quillon::Orb::MovieFile {
    public:
        using Result = Quillon::Orb::Result;

        File(const char* path, const Quillon::Orb::MovieFileOptions& options)
            : fPath(path), fFile(Quillon::Orb::MakeMovieFile(path, options)) {}

        int AddTrack(const Quillon::Orb::MovieTrack& track) override {
            return fFile->AddTrack(track);
        }
        Result Begin() override { return fFile->Begin(); }
        Result WriteSample(int track, const Quillon::Orb::MovieSample& sample) override {
            return ++fWritten > fSamples ? is_full() : fFile->WriteSample(track, sample);
        }
        Result Finish() override {
            Result finished = fFile->Finish();
            return fTakesEnd ? std::move(finished) : is_full();
        }

    private:
        Result is_full() const {
            return Quillon::Orb::ResultError("%s: no space left on device", fPath.c_str());
        }

        const std::string fPath;
        const std::unique_ptr<Quillon::Orb::MovieFile> fFile;
        int fWritten = 0;
    };

    static std::unique_ptr<Quillon::Orb::MovieFile> make(
        const char* path, const Quillon::Orb::MovieFileOptions& options) {
        if (std::string(path).find(fName) == std::string::npos)
            return Quillon::Orb::MakeMovieFile(path, options);
        return std::make_unique<File>(path, options);
    }

    static inline std::atomic<int> fSamples{0};
    static inline std::atomic<bool> fTakesEnd{true};
    static inline std::string fName;
};

}  // namespace tests
