#include "MovieIndex.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace Quillon::Orb {
namespace {

constexpr long long kSmallestSlot = 65536;
constexpr long long kLargestSlot = 1LL << 30;  // three of them fit a box of 32 bits
constexpr long long kTrailer = 16;             // behind a slot: a free box up to the media data
constexpr long long kDataHeader = 16;          // an mdat box that can grow beyond 4 GiB
constexpr double kMargin = 1.25;               // room in front beyond the announced length
constexpr double kFillForNext = 0.875;         // from here on the next pair is written
// Old entries that a checkpoint copies to the next pair for each new one, and at least. With 32 the
// next pair stands long before the rest of the present one is used.
constexpr long long kCopiesPerEntry = 32;
constexpr long long kLeastCopies = 16384;

long long align(long long value) {
    return (value + MovieIndex::kAlignment - 1) / MovieIndex::kAlignment * MovieIndex::kAlignment;
}

/// A box head with a size of 64 bits, or with one of 32 and eight bytes of payload.
struct Head {
    unsigned char bytes[16] = {};

    static Head Short(unsigned int type, long long size) {
        Head head;
        PutBig(head.bytes, static_cast<unsigned long long>(size), 4);
        PutBig(head.bytes + 4, type, 4);
        return head;
    }
    static Head Long(unsigned int type, long long size) {
        Head head = Short(type, 1);
        PutBig(head.bytes + 8, static_cast<unsigned long long>(size), 8);
        return head;
    }
    /// Media data up to the end of the file, and room in front of it for its later size.
    static Head OpenEnded() {
        Head head = Short('free', 8);
        PutBig(head.bytes + 12, 'mdat', 4);
        return head;
    }
};

}  // namespace

int MovieIndex::Begin(double seconds, long long& end) {
    const auto wanted = static_cast<double>(EstimateIndexSize(fMovie, seconds * kMargin));
    long long first = align(PresentIndexSize(fMovie)) + kSmallestSlot;
    fFullSlot = align(static_cast<long long>(std::min(wanted, static_cast<double>(kLargestSlot))));
    // Room for a pair of half the full size, and the full pair that follows that one. Where not
    // even two pairs follow each other, one is made that takes all.
    const bool grows = seconds > 0 && first <= fFullSlot / 2;
    if (!grows) first = fFullSlot = seconds > 0 ? std::max(first, fFullSlot) : first;
    const long long room = grows ? 3 * fFullSlot : 2 * fFullSlot;
    Region front;
    front.start = kFileTypeSize;
    front.room = kAlignment;
    front.data = front.room + room + kAlignment - kDataHeader;
    end = front.data + kDataHeader;
    fPair = make_pair_at(front, front.room, first);
    if (!fPair) return -EINVAL;
    fShownRegion = front;
    long long budget = std::numeric_limits<long long>::max();
    if (const int error = fPair->slots[0]->Update(fFile, fMovie, budget)) return error;
    if (const int error = begin_region(*fPair)) return error;
    BoxWriter head;
    WriteFileType(head, fMovie);
    return fFile.WriteAt(0, head.Memory().data(), head.Memory().size());
}

std::unique_ptr<MovieIndex::Pair> MovieIndex::make_pair_at(const Region& region, long long position,
                                                           long long slotSize) {
    IndexLayout layout = PlanLayout(fMovie, slotSize - kTrailer);
    if (layout.tracks.size() != fMovie.tracks.size()) return nullptr;
    auto pair = std::make_unique<Pair>();
    pair->region = region;
    pair->slotSize = slotSize;
    pair->slots[0] = std::make_unique<IndexSlot>(position, region.data, layout);
    pair->slots[1] = std::make_unique<IndexSlot>(position + slotSize, region.data, layout);
    // With blocks of its own a pair takes a last checkpoint on a disk that media data has filled,
    // and they lie side by side. Where there are none for it now there may be later.
    (void)!fFile.Reserve(position, 2 * slotSize);
    return pair;
}

/// The region's switch and the head of its media data. Nothing of it shows yet when the region
/// stands behind the media data.
int MovieIndex::begin_region(const Pair& pair) {
    const Region& region = pair.region;
    const Head data = Head::OpenEnded();
    if (const int error = fFile.WriteAt(region.data, data.bytes, sizeof data.bytes)) return error;
    const Head first = Head::Short('free', pair.Start() - region.start);
    return fFile.WriteAt(region.start, first.bytes, sizeof first.bytes);
}

int MovieIndex::Prepare(long long& end) {
    const long long now = entries();
    const long long budget = kLeastCopies + kCopiesPerEntry * (now - fEntriesBefore);
    fEntriesBefore = now;
    if (!LayoutHolds(fPair->Hidden().Layout(), fMovie)) return move_to_next(end);
    long long unlimited = std::numeric_limits<long long>::max();
    if (const int error = fPair->Hidden().Update(fFile, fMovie, unlimited)) return error;
    // What hinders the next pair, a full disk as a rule, does not harm this state; once the pair is
    // needed it must stand.
    if (!fNext && LayoutFill(fPair->Hidden().Layout(), fMovie) > kFillForNext) plan_next(end);
    build_next(budget);
    return 0;
}

long long MovieIndex::entries() const {
    long long sum = 0;
    for (const auto& track : fMovie.tracks)
        for (int kind = 0; kind < kTableKinds; kind++)
            sum += track->Tables().View(static_cast<TableKind>(kind)).entries->Count();
    return sum;
}

int MovieIndex::plan_next(long long& end) {
    // Twice what there is; but where many samples came at once there may be less of it than is
    // expected of such tracks, which is what room is divided by.
    const long long wanted = align(std::max(
        {2 * fPair->slotSize, 2 * PresentIndexSize(fMovie), FittingIndexSize(fMovie) + kTrailer}));
    fNext = plan_in_front(wanted);
    if (!fNext) fNext = plan_behind(wanted, end);
    if (!fNext) return -EFBIG;
    const bool inFront = fNext->region.start == fPair->region.start;
    const int error = inFront ? 0 : begin_region(*fNext);
    if (error != 0) fNext.reset();
    return error;
}

std::unique_ptr<MovieIndex::Pair> MovieIndex::plan_in_front(long long slotSize) {
    const Region& region = fPair->region;
    if (region.start != kFileTypeSize || fPair->slotSize >= fFullSlot) return nullptr;
    // A pair of more than half the full size would leave no place for the full one.
    if (slotSize > fFullSlot / 2) slotSize = fFullSlot;
    const long long length = 2 * slotSize;
    long long position = region.room;
    if (position + length > fPair->Start() && position < fPair->End())
        position = region.room + 3 * fFullSlot - length;
    return make_pair_at(region, position, slotSize);
}

std::unique_ptr<MovieIndex::Pair> MovieIndex::plan_behind(long long slotSize, long long& end) {
    slotSize = std::min(slotSize, kLargestSlot);
    Region region;
    region.start = align(end);
    region.room = region.start + kAlignment;
    region.data = region.room + 2 * slotSize + kAlignment - kDataHeader;
    auto pair = make_pair_at(region, region.room, slotSize);
    if (pair) end = region.data + kDataHeader;
    return pair;
}

void MovieIndex::build_next(long long budget) {
    if (!fNext || !LayoutHolds(fNext->slots[0]->Layout(), fMovie)) return;
    for (const auto& slot : fNext->slots)
        if (slot->Update(fFile, fMovie, budget) != 0) return;
}

/// The present pair is full. Usually the next one is all but written by now; where many samples
/// came at once it is written here, which costs what they do.
int MovieIndex::move_to_next(long long& end) {
    if (fNext && !LayoutHolds(fNext->slots[0]->Layout(), fMovie)) {
        release(fNext->Start(), fNext->End());  // it was never shown
        fNext.reset();
    }
    if (!fNext) {
        if (const int error = plan_next(end)) return error;
    }
    long long unlimited = std::numeric_limits<long long>::max();
    if (const int error = fNext->slots[0]->Update(fFile, fMovie, unlimited)) return error;
    fRetired = std::move(fPair);
    fPair = std::move(fNext);
    fPair->shown = 1;  // the hidden one is the first
    return 0;
}

int MovieIndex::Show() {
    fPair->shown = 1 - fPair->shown;
    const Region& region = fPair->region;
    const bool sameRegion = region.start == fShownRegion.start;
    const Head head = sameRegion ? Head::Short('free', ShownPosition() - region.start)
                                 : Head::Long('mdat', region.start - fShownRegion.start);
    return fFile.WriteAt(fShownRegion.start, head.bytes, sizeof head.bytes);
}

void MovieIndex::Shown() {
    const Region before = fShownRegion;
    fShownRegion = fPair->region;
    if (!fRetired) return;
    const std::unique_ptr<Pair> retired = std::move(fRetired);
    if (before.start == fShownRegion.start)
        release(retired->Start(), retired->End());
    else
        release(before.room, before.data);
}

int MovieIndex::Finish(long long end) {
    const long long data = fShownRegion.data;
    const Head head = Head::Long('mdat', end - data);
    return fFile.WriteAt(data, head.bytes, sizeof head.bytes);
}

void MovieIndex::ReleaseHidden() {
    const IndexSlot& shown = *fPair->slots[fPair->shown];
    const Region& region = fPair->region;
    if (fNext && fNext->region.start != region.start)
        release(fNext->region.start, fNext->region.data + kDataHeader);
    release(region.room, shown.Position());
    release(shown.Position() + shown.MoovSize() + kTrailer, region.data);
}

void MovieIndex::release(long long from, long long to) {
    // Whole blocks only: what stands beside them in the same block is not ours to clear.
    from = align(from);
    to = to / kAlignment * kAlignment;
    if (to > from) (void)!fFile.Release(from, to - from);
}

}  // namespace Quillon::Orb
