#include "ReplayCut.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "spar/zXML.h"
#include "tarn/replay/tnManifestBefore.h"

#include "../folderTrouble.h"
#include "../movieContainer.h"
#include "CutWriter.h"
#include "ReplayEncode.h"
#include "SegmentFile.h"

namespace {

constexpr long long kRounding = 1;

/// The formats in the manifest at `path`; false where there are none.
bool take_formats(const std::string& path, tnMediaRecord& video, tnMediaRecord& audio) {
    zRecord record;
    if (zXML::ParseFile(zXML::kAttributes, &record, path.c_str()) != 0) return false;
    const zRecord* const formats =
        record.FindChildByStrVariable('xTag', "formats", true, 0xFFFFFFFF, Z_MATCH_EXACT);
    if (formats == nullptr) return false;
    return tnMediaRecord::FindFirstByType(*formats, TN_MEDIA_VIDEO, video) == 0 &&
           tnMediaRecord::FindFirstByType(*formats, TN_MEDIA_AUDIO, audio) == 0;
}

/// The recording's formats, which never change. While its manifest is written anew they stand in
/// the one from before; where that has gone between the two looks, the new one is there.
void read_formats(const std::string& manifest, tnMediaRecord& video, tnMediaRecord& audio) {
    const std::string before = tnManifestBefore(manifest).Path();
    for (int reads = 0; reads < kMostReplayReads; ++reads) {
        if (take_formats(manifest, video, audio) || take_formats(before, video, audio)) return;
    }
}

long long ticks_of(long long time, int timescale) {
    return av_rescale(time, timescale, kReplayUnitsPerSecond);
}

long long time_of(long long ticks, int timescale) {
    return av_rescale(ticks, kReplayUnitsPerSecond, timescale);
}

/// One pass over the segments: first what would be copied, then the copying.
class Cutter {
public:
    Cutter(const ReplayRecording& recording, const ReplayCutWish& wish, ReplayCutResult& result)
        : fWish(wish), fResult(result) {
        read_formats(recording.manifest, fVideoFormat, fAudioFormat);
    }

    bool Hold(const ReplayRecording& recording, std::string& error);
    /// Whether a copy has both ends where they are asked for.
    bool CopiesExactly(bool& exactly, std::string& error);
    bool Copy(const std::atomic<bool>& stop, const std::function<void(double)>& progress,
              std::string& error);
    /// After a Copy that failed: whether segments were encoded in more than one way, so that the
    /// movie can only be encoded anew.
    bool IsMixed() const { return fIsMixed; }
    /// Lets go of the movie as far as it was copied: a part must not pass for the whole.
    void Abandon();
    const std::vector<SegmentFile>& Files() const { return fFiles; }

private:
    bool begin(std::string& error);
    bool copy_segment(std::string& error);
    bool write_pictures_and_sound(std::size_t first, std::string& error);
    bool write_picture(const SegmentPacket& packet, std::string& error);
    bool flush_late(std::string& error);
    bool write_sound(const SegmentPacket& packet, std::string& error);
    std::size_t first_picture() const;
    long long out_ticks() const { return ticks_of(fWish.out, fPictures.timescale); }
    long long sound_start() const;

    const ReplayCutWish& fWish;
    ReplayCutResult& fResult;
    tnMediaRecord fVideoFormat;
    tnMediaRecord fAudioFormat;
    std::vector<SegmentFile> fFiles;
    CutWriter fWriter;
    bool fBegun = false;
    bool fIsMixed = false;

    // the segment at hand
    SegmentTrack fPictures;
    SegmentTrack fSound;
    long long fGapTicks = 0;   // of the pictures, up to here
    long long fGapFrames = 0;  // of the sound

    SegmentFormat fFirstPictures;  // what all segments must fit to
    SegmentFormat fFirstSound;
    long long fStartTicks = 0;
    long long fSoundEnd = 0;  // frames that have been written, less gaps
    long long fSoundStop = 0;
    // References from behind the end, that pictures before it may still ask for.
    std::vector<const SegmentPacket*> fLate;
};

bool Cutter::Hold(const ReplayRecording& recording, std::string& error) {
    RaiseFileLimit();
    for (const ReplayPiece& piece : recording.pieces) {
        if (piece.stop <= fWish.in || piece.start >= fWish.out) continue;
        SegmentFile file;
        if (!file.Hold(piece, error)) return false;
        fFiles.push_back(std::move(file));
    }
    if (!fFiles.empty()) return true;
    error = fmt::format("'{}': nothing is recorded between {:.3f} and {:.3f} s", recording.folder,
                        ReplaySeconds(fWish.in), ReplaySeconds(fWish.out));
    return false;
}

/// The key frame that the movie begins with: the last one up to the mark, else the first one.
std::size_t Cutter::first_picture() const {
    const long long in = ticks_of(fWish.in, fPictures.timescale);
    std::size_t found = fPictures.packets.size();
    for (std::size_t index = 0; index < fPictures.packets.size(); ++index) {
        const SegmentPacket& packet = fPictures.packets[index];
        if (!packet.isKey) continue;
        if (found < fPictures.packets.size() && packet.show > in) break;
        found = index;
    }
    return found;
}

bool Cutter::CopiesExactly(bool& exactly, std::string& error) {
    exactly = false;
    if (!fFiles.front().Load(fPictures, fSound, error)) return false;
    const std::size_t first = first_picture();
    if (first == fPictures.packets.size()) return true;
    const SegmentPacket& begin = fPictures.packets[first];
    const long long in = std::max(fWish.in, fFiles.front().Piece().start);
    const long long off = std::abs(begin.show - ticks_of(in, fPictures.timescale));
    if (2 * off > begin.duration) return true;
    if (!fFiles.back().Load(fPictures, fSound, error)) return false;
    bool isLate = false;
    exactly = true;
    for (const SegmentPacket& packet : fPictures.packets) {
        const bool isBehind = packet.show >= out_ticks();
        exactly = exactly && (isBehind || !isLate);
        isLate = isLate || isBehind;
    }
    return true;
}

/// Where the movie begins, in frames of sound.
long long Cutter::sound_start() const {
    return av_rescale(fStartTicks, fSound.timescale, fPictures.timescale);
}

bool Cutter::begin(std::string& error) {
    const std::size_t first = first_picture();
    if (first == fPictures.packets.size()) return true;  // the next segment will have one
    fStartTicks = fPictures.packets[first].show;
    int primed = 0;
    if (fSound.IsThere()) {
        const long long start = sound_start();
        fSoundEnd = start;
        // Decoders of compressed sound need a packet of run-up.
        const long long runUp = fSound.frameBytes > 0 ? 0 : fSound.framesPerPacket;
        for (const SegmentPacket& packet : fSound.packets) {
            if (packet.show + packet.duration + runUp <= start) continue;
            if (fSound.frameBytes == 0) fSoundEnd = std::min(start, packet.show);
            break;
        }
        primed = static_cast<int>(start - fSoundEnd);
    }
    const long long stop = std::min(fWish.out, fFiles.back().Piece().stop);
    fWriter.Announce(
        ReplaySeconds(std::max(0LL, stop - time_of(fStartTicks, fPictures.timescale))));
    if (!fWriter.Open(fWish.output, fPictures, fVideoFormat, fSound, fAudioFormat, fStartTicks,
                      primed, error)) {
        return false;
    }
    fBegun = true;
    fResult.from = time_of(fStartTicks, fPictures.timescale);
    fResult.to = fResult.from;
    return write_pictures_and_sound(first, error);
}

bool Cutter::write_sound(const SegmentPacket& packet, std::string& error) {
    const long long from = packet.show - fGapFrames;
    const long long early = fSoundEnd - from;  // that the segment before has brought already
    int skip = 0;
    if (fSound.frameBytes > 0) {
        skip = static_cast<int>(std::max(0LL, early)) * fSound.frameBytes;
    } else if (2 * early > packet.duration) {
        return true;
    }
    const int size = packet.bytes->size;
    if (skip >= size) return true;
    if (packet.show >= fSoundStop) return true;
    const long long frames =
        fSound.frameBytes > 0 ? (size - skip) / fSound.frameBytes : fSound.framesPerPacket;
    fSoundEnd += frames;
    return fWriter.WriteSound(packet, skip, error);
}

bool Cutter::flush_late(std::string& error) {
    for (const SegmentPacket* packet : fLate) {
        if (!fWriter.WritePicture(*packet, fGapTicks, error)) return false;
        ++fResult.frames;
    }
    fLate.clear();
    return true;
}

bool Cutter::write_picture(const SegmentPacket& packet, std::string& error) {
    if (packet.show >= out_ticks()) {
        fLate.push_back(&packet);
        return true;
    }
    if (!flush_late(error)) return false;
    ++fResult.frames;
    fResult.to = std::max(fResult.to, time_of(packet.show + packet.duration, fPictures.timescale));
    return fWriter.WritePicture(packet, fGapTicks, error);
}

/// In the order of time, as the file's own queues like it.
bool Cutter::write_pictures_and_sound(std::size_t first, std::string& error) {
    auto sound = fSound.packets.begin();
    for (std::size_t index = first; index < fPictures.packets.size(); ++index) {
        const SegmentPacket& picture = fPictures.packets[index];
        while (sound != fSound.packets.end() &&
               av_compare_ts(sound->show, {1, fSound.timescale}, picture.show,
                             {1, fPictures.timescale}) <= 0) {
            if (!write_sound(*sound++, error)) return false;
        }
        if (!write_picture(picture, error)) return false;
    }
    for (; sound != fSound.packets.end(); ++sound) {
        if (!write_sound(*sound, error)) return false;
    }
    fLate.clear();
    return true;
}

bool Cutter::copy_segment(std::string& error) {
    if (!fBegun) return begin(error);
    return write_pictures_and_sound(0, error);
}

bool Cutter::Copy(const std::atomic<bool>& stop, const std::function<void(double)>& progress,
                  std::string& error) {
    long long reached = fFiles.front().Piece().start;
    for (const SegmentFile& file : fFiles) {
        if (stop) {
            fResult.stopped = true;
            break;
        }
        const ReplayPiece& piece = file.Piece();
        if (!file.Load(fPictures, fSound, error)) return false;
        // Before the movie begins there is nothing that a gap could be closed in.
        if (fBegun && piece.start > reached + kRounding) fResult.gaps += piece.start - reached;
        reached = piece.stop;
        if (!fBegun) {
            fFirstPictures = fPictures;
            fFirstSound = fSound;
        }
        if (!fPictures.FitsTo(fFirstPictures) || !fSound.FitsTo(fFirstSound)) {
            fIsMixed = true;
            error = fmt::format(
                "'{}': is encoded otherwise than the segments before; cut up to it, or use --exact",
                piece.path);
            return false;
        }
        fGapTicks = ticks_of(fResult.gaps, fPictures.timescale);
        if (fSound.IsThere()) {
            fGapFrames = ticks_of(fResult.gaps, fSound.timescale);
            fSoundStop = ticks_of(std::min(fWish.out, piece.stop), fSound.timescale);
        }
        if (!copy_segment(error)) return false;
        if (fBegun) ++fResult.segments;
        progress(ReplaySeconds(piece.stop - fWish.in) / ReplaySeconds(fWish.out - fWish.in));
    }
    if (fBegun) return fWriter.Finish(error);
    error = fResult.stopped
                ? fmt::format("'{}': stopped before anything was copied", fWish.output)
                : fmt::format("'{}': no key frame from there on; choose an earlier --in",
                              fFiles.front().Piece().path);
    return false;
}

void Cutter::Abandon() {
    fWriter = CutWriter();
    std::error_code ignored;
    if (fBegun) std::filesystem::remove(fWish.output, ignored);
}

/// An empty line, or why the output cannot be where it is asked for.
std::string check_output(const ReplayRecording& recording, const std::string& output) {
    if (ContainerOf(output) == 0) return UnknownContainer(output);
    const std::filesystem::path folder = std::filesystem::path(output).parent_path();
    const std::string trouble = FolderTrouble(folder);
    if (!trouble.empty()) return fmt::format("'{}': {}", output, trouble);
    std::error_code failed;
    if (std::filesystem::equivalent(folder.empty() ? "." : folder, recording.folder, failed)) {
        return fmt::format("'{}': that folder belongs to the recording; choose another", output);
    }
    return "";
}

}  // namespace

bool CutReplay(const ReplayRecording& recording, const ReplayCutWish& wish,
               const std::atomic<bool>& stop, const std::function<void(double)>& progress,
               ReplayCutResult& result, std::string& error) {
    result = {};
    error = check_output(recording, wish.output);
    if (!error.empty()) return false;
    Cutter cutter(recording, wish, result);
    if (!cutter.Hold(recording, error)) return false;
    bool copies = true;
    if (wish.exact && !cutter.CopiesExactly(copies, error)) return false;
    if (copies) {
        if (cutter.Copy(stop, progress, error)) return true;
        cutter.Abandon();
        if (!wish.exact || !cutter.IsMixed()) return false;
        result = {};
        error.clear();
    }
    return EncodeReplay(cutter.Files(), wish, stop, progress, result, error);
}
