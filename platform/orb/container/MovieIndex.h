#pragma once

#include <memory>

#include "IndexSlot.h"

namespace Quillon::Orb {

/// The index of a movie in its file, of which one whole state shows at every instant.
///
///     ftyp | switch | room: slots | mdat | media data ... | switch | slots | mdat | ...
///
/// The switch is the 16-byte head of a free box that reaches up to the slot which shows; behind the
/// slot a second free box reaches to the media data. Two slots take turns: the hidden one is
/// brought up to date, and one aligned write of the switch makes it show. As the recording grows,
/// the pair of slots is followed by a larger one, written bit by bit beforehand. The next pair
/// stands in the room in front as long as that lasts, and then behind the media data written so
/// far, with a switch of its own. Showing that one turns the old switch into the head of an mdat
/// box, in which the old index, the old media data and its head are payload that nothing points to.
///
/// One thread at a time uses it, and orders the writes: Prepare, sync, Show, sync, Shown. Prepare
/// reads the movie's tables, under the lock that guards them; the others do not need it.
class MovieIndex {
public:
    static constexpr long long kAlignment = 4096;

    MovieIndex(FileLayer& file, const Movie& movie) : fFile(file), fMovie(movie) {}

    /// Writes the file's head with an empty movie, room in front for `seconds` of it; with 0 there
    /// is little room, and the index moves behind the media data as it grows. `end` is where the
    /// media data starts. 0 or a negative errno, as all below.
    int Begin(double seconds, long long& end);

    /// Brings the hidden state up to date; may take room for a larger pair at `end`.
    int Prepare(long long& end);
    /// Lets the prepared state show.
    int Show();
    /// The shown state is durable: gives back the blocks that the one before it held alone. May
    /// take as long as the file system needs for that; what it keeps is room, and no failure.
    void Shown();

    /// Gives the media data, which ends at `end`, its size. The last state has been shown.
    int Finish(long long end);
    /// Gives back the blocks of everything but the state that shows, as Shown does.
    void ReleaseHidden();

    /// Where the state that shows stands.
    long long ShownPosition() const { return fPair->slots[fPair->shown]->Position(); }

private:
    /// A switch and the room that it governs, up to its mdat box.
    struct Region {
        long long start = 0;  // the switch
        long long room = 0;   // slots may stand from here
        long long data = 0;   // head of the mdat box
    };
    struct Pair {
        Region region;
        long long slotSize = 0;
        std::unique_ptr<IndexSlot> slots[2];
        int shown = 0;

        long long Start() const { return slots[0]->Position(); }
        long long End() const { return Start() + 2 * slotSize; }
        IndexSlot& Hidden() { return *slots[1 - shown]; }
    };

    std::unique_ptr<Pair> make_pair_at(const Region& region, long long position,
                                       long long slotSize);
    std::unique_ptr<Pair> plan_in_front(long long slotSize);
    std::unique_ptr<Pair> plan_behind(long long slotSize, long long& end);
    int plan_next(long long& end);
    void build_next(long long budget);
    int move_to_next(long long& end);
    int begin_region(const Pair& pair);
    void release(long long from, long long to);
    long long entries() const;

    FileLayer& fFile;
    const Movie& fMovie;
    long long fFullSlot = 0;  // the largest slot that the room in front takes a pair of
    std::unique_ptr<Pair> fPair;
    std::unique_ptr<Pair> fNext;     // grows until the pair cannot hold the movie any more
    std::unique_ptr<Pair> fRetired;  // the pair that showed before, until Shown
    Region fShownRegion;             // of the switch that is in force
    long long fEntriesBefore = 0;
};

}  // namespace Quillon::Orb
