#pragma once

#include <functional>
#include <future>
#include <memory>
#include <string>

#include "spar/zCancelClass.h"
#include "spar/zDirectObserver.h"
#include "tarn/export.h"

class tnISOAccessor;
class zRecord;

/// Looks in the settings of one ISO output for all that would spoil its recording: its source, the
/// other outputs, its numbers, its file name, its folder and the disk behind that.
///
/// Each problem is a flag; the words are the host's. Belongs to the host's main thread, operations,
/// flags and all. The folder alone is asked on a thread of its own, because disks can be slow; its
/// two flags change when the host drains the main thread's queue. Until then they hold what the
/// check before found. So one Validate can tell fChanged twice.
class TARN_API tnISOValidator {
public:
    /// `outputs` holds every ISO output as a child, also the one that is checked; null for none. It
    /// stays the host's, which keeps it alive.
    explicit tnISOValidator(zRecord* outputs);
    /// Calls the folder check off and waits for its thread, as long as the question to the disk
    /// that is under way takes. Nobody is told anything afterwards.
    ~tnISOValidator();
    tnISOValidator(const tnISOValidator&) = delete;
    tnISOValidator& operator=(const tnISOValidator&) = delete;

    /// Checks `settings`, the output's record, and tells fChanged if a flag or the source has
    /// changed.
    ///
    /// Never asks the disk itself. It calls an unfinished folder check of an earlier call off and
    /// waits until that one's question to the disk has come back. Tags all children of the outputs
    /// as ISO outputs. Throws std::system_error if there is no thread to be had.
    void Validate(zRecord const& settings);

    /// Whether the last Validate found anything. True before the first.
    bool HasProblems() const;

    std::string fSourceId;            // of what the last Validate found recorded
    int fSourceNumber = 0;            // what fSourceLookup gave; 0: there is no such source
    bool fSourceInUse = false;        // another output records the same
    bool fPathInUse = false;          // another output writes to the same file
    bool fNoTracksEnabled = false;    // neither picture nor sound is on
    bool fTracksUnavailable = false;  // nothing that is on is what the source has
    bool fBadFilename = false;        // characters that file systems forbid
    bool fBitrateOutOfRange = false;
    bool fFolderExists = true;   // unlike the others good when true
    bool fLowDiskSpace = false;  // less than 512 MiB are free
    bool fDurationOutOfRange = false;

    /// Set by the host: a number that is not 0 for an output whose source or shot exists. While
    /// there is none, no source counts as missing, and the tracks that one has are not looked at.
    std::function<int(tnISOAccessor const&)> fSourceLookup;
    /// Set by the host: tells by its flags, false at the call, if there is picture and if there is
    /// sound.
    std::function<void(tnISOAccessor const&, bool& hasVideo, bool& hasAudio)> fTrackLookup;
    zDirectObserver<std::function<void()>> fChanged;

    // of the latest folder check
    std::shared_ptr<zCancelClass> fCancel;
    zRecord* fOutputs;
    std::future<bool> fFolderCheck;

private:
    bool check_source(zRecord const& settings, tnISOAccessor const& accessor);
    bool check_tracks(zRecord const& settings, tnISOAccessor const& accessor);
    bool check_other_outputs(zRecord const& settings, tnISOAccessor const& accessor);
    void start_folder_check(std::string const& folder);
    bool check_folder(std::string const& folder, std::shared_ptr<zCancelClass> const& token);
    void take_folder(bool exists, bool isLow);
};
