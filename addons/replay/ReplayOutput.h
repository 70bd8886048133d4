#pragma once

#include <deque>
#include <limits>
#include <memory>

#include "addons/replay/SegmentMovie.h"
#include "addons/support/PictureLine.h"

class tnReplayManifest;

/// Writes a source in segments: movies "1.mov", "2.mov", ... in a folder, and a manifest that lists
/// each one as soon as it is complete on the disk.
///
/// A segment begins at a key frame and ends where the next one begins; its sound begins and ends
/// with it, by a packet of run-up that two neighbours share. What is older than the limit is
/// deleted while it records, but for segments that somebody in this process holds.
///
/// The manifest's timeline is the source's own, in microseconds, as long as that goes forward.
/// Where the source's times are set back the recording goes on from where it was: in a list of
/// segments that is in order of time, newer ones would else stand before older ones, take their
/// place and be deleted first.
class ReplayOutput final : public MovieOutput {
public:
    static constexpr char kManifestName[] = "replay.xml";
    /// What is kept is reckoned in microseconds; thirty years leave room for that.
    static constexpr double kLongestKeptSeconds = 1e9;

    struct Wish {
        double segmentSeconds = 2;  ///< at least; it goes on to the next key frame
        double keepSeconds = 0;     ///< 0 keeps everything; at most kLongestKeptSeconds
    };

    ReplayOutput(Settings settings, const Wish& wish);
    ~ReplayOutput() override;

    /// Makes the folder: 0; -1006 if there can be none, or if a recording stands there already;
    /// -1009 without pictures.
    int Open() override;
    long long BytesWritten(bool ofPictures) const override;

protected:
    /// -1006 for a manifest that cannot be made.
    int begin_file(const MovieStart& start) override;
    int write_picture(const MediaItem& item) override;
    int write_sound(const MediaItem& item) override;
    int finish_file() override;
    bool takes_picture(tnVideoCompressor::EncodedBuffer& buffer) override;

private:
    int advance(bool ending);
    bool may_go(const MediaItem& picture) const;
    int take_picture(const MediaItem& item);
    int begin_segment(const MediaItem& key);
    int open_movie(const MediaItem& key, bool hasSound);
    int end_segment(double timeMs);
    int list_segment(double stopMs);
    int write_sound_until(double timeMs);
    int delete_old(long long newestUs);
    int delete_before(long long limitUs);
    std::string manifest_path() const;
    std::string path_of(unsigned int id) const;

    const Wish fWish;
    tnReplayManifest* fManifest = nullptr;

    // the output's thread; times on the pictures' line
    std::deque<MediaItem> fPictures;  // that wait for their sound
    std::deque<MediaItem> fSounds;    // that wait for their pictures
    std::deque<MediaItem> fRunUp;     // written, and of use to a segment that begins now
    PictureLine fPictureLine;
    PictureLine fSoundLine;  // moved to the pictures'
    double fSoundShiftMs = 0;
    double fSoundEndMs = 0;  // of what has come
    bool fHasSound = false;
    bool fFailed = false;
    std::unique_ptr<SegmentMovie> fMovie;  // of the segment that is being written
    unsigned int fID = 0;
    double fStartMs = 0;                                             // of the segment
    double fPictureEndMs = 0;                                        // of what stands in it
    long long fDeletedToUs = std::numeric_limits<long long>::min();  // limit of the last deletion

    std::atomic<long long> fPictureBytes{0};
    std::atomic<long long> fSoundBytes{0};
};
