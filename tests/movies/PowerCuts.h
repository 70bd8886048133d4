#pragma once

#include <functional>
#include <random>
#include <vector>

#include "tests/support/RecordedFile.h"

/// Replays a log of writes and syncs to what a power cut may leave.
///
/// What was written before the last sync that had returned is there. Of the writes after it any may
/// be there, in whole, in part by sectors, or not at all. Before the file shows under its name
/// there is nothing to look at.
class PowerCuts {
public:
    /// How a state came about. Behind a sync is what was promised.
    enum class Kind { Prefix, Reordered, Synced };
    using Visit = std::function<void(const std::vector<unsigned char>& image, Kind kind)>;

    explicit PowerCuts(const std::vector<FileRecord::Operation>& log) : fLog(log) {}

    /// Random states behind each window between two syncs, besides the ordered ones.
    int statesPerWindow = 20;
    /// Of a window with no more writes than this, every choice of them is a state.
    std::size_t allChoicesUpTo = 6;

    /// `visit` gets every state.
    void Run(const Visit& visit);

private:
    using Operations = std::vector<const FileRecord::Operation*>;

    void window(const Operations& writes, const Visit& visit);
    void all_choices(const Operations& writes, const Visit& visit);
    void random_choices(const Operations& writes, const Visit& visit);
    void apply_part(const FileRecord::Operation& write, std::vector<unsigned char>& image);

    const std::vector<FileRecord::Operation>& fLog;
    std::vector<unsigned char> fDurable;
    std::mt19937 fRandom{11};
};
