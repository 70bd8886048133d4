#include "tarn/movies/tnSharedEncoders.h"

#include <algorithm>
#include <array>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "spar/zAsSharedPtr.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/movies/tnOutputStream.h"

namespace {

constexpr int kStarted = -22;
constexpr int kNobodyMakesIt = -1041;

/// Borne by no factory; requests with it can only join.
constexpr const char* kJoinOnly = "joins a shared encoder";

/// What a track's record says beside what its encoder is to do.
constexpr std::array<const char*, 5> kNotOfTheEncoder = {"tn_enabled", "audio_output_track_mask",
                                                         "source_id", "name", "unique_id"};

struct Encoder {
    int source;
    tnMediaRecord wish;   // as the streams want it
    tnMediaRecord asked;  // as the manager knows it: equal to no other of the source
    std::vector<tnOutputStream*> users;
};

// Recursive, since a filter's arrival runs inside a join and may want to join something else.
std::recursive_mutex gLock;

/// Under gLock. Never destroyed: a stream may still leave while the process ends.
std::list<Encoder>& encoders() {
    static auto& list = *new std::list<Encoder>;
    return list;
}

using Lock = std::lock_guard<std::recursive_mutex>;

bool says_nothing_else(const tnMediaRecord& a, const tnMediaRecord& b) {
    bool same = true;
    a.ForEachVariable([&](const zVariable& variable) {
        const zVariable* const other = b.FindVariable(variable.ID());
        same = other && variable.AsString("") == other->AsString("");
        return same;
    });
    return same;
}

tnMediaRecord wish_of(const tnMediaRecord& format) {
    tnMediaRecord wish(format);
    for (const char* key : kNotOfTheEncoder) wish.RemoveKey(key);
    wish.RemoveID('xTag');
    return wish;
}

bool is_same_wish(const tnMediaRecord& a, const tnMediaRecord& b) {
    return says_nothing_else(a, b) && says_nothing_else(b, a);
}

std::list<Encoder>::iterator find_by_wish(int source, const tnMediaRecord& wish) {
    return std::find_if(encoders().begin(), encoders().end(), [&](const Encoder& encoder) {
        return encoder.source == source && is_same_wish(encoder.wish, wish);
    });
}

std::list<Encoder>::iterator find_by_user(const tnOutputStream& stream) {
    return std::find_if(encoders().begin(), encoders().end(), [&](const Encoder& encoder) {
        return std::count(encoder.users.begin(), encoder.users.end(), &stream) > 0;
    });
}

/// The request for an encoder of its own. Another bit rate is what tells requests apart that are
/// alike in shape, and the least that changes an encoder: a thousand bits a second upwards, or for
/// wishes without a rate a number below 0, which encoders take for none.
tnMediaRecord request_of_its_own(tnFilterManager& manager, int source, const tnMediaRecord& wish) {
    tnMediaRecord request(wish);
    const int rate = wish.AsInt32('mtbr', 0);
    const int step = rate > 0 ? 1 : -1;
    for (int tried = rate; manager.HasEqualOutput(source, request);) {
        tried += step;
        request.SetInt32('mtbr', tried);
    }
    return request;
}

}  // namespace

int tnSharedEncoders::Join(tnOutputStream& stream) {
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    if (!manager) return kNobodyMakesIt;
    const Lock lock(gLock);
    if (find_by_user(stream) != encoders().end()) return kStarted;
    // What the filter must make, which need not be what a subclass shows as its format.
    const tnMediaRecord wish = wish_of(stream.fEncodedFormat);
    // Neither pictures nor sound, or a rate that is no number: no two such wishes are ever equal.
    if (!tnFilterManager::FormatsAreEqual(wish, wish)) return kNobodyMakesIt;
    const std::shared_ptr<void> life = zAsSharedPtr(&stream);

    const auto standing = find_by_wish(stream.Source(), wish);
    if (standing != encoders().end()) {
        tnMediaRecord request(standing->asked);
        request.SetCString('mcon', kJoinOnly);
        standing->users.push_back(&stream);
        stream.create_filters(request, life);
        return 0;
    }
    const tnMediaRecord request = request_of_its_own(*manager, stream.Source(), wish);
    encoders().push_back({stream.Source(), wish, request, {&stream}});
    stream.create_filters(request, life);
    if (manager->HasEqualOutput(stream.Source(), request)) return 0;
    // It observes nothing, and is not stopped either: a stop ends every source that has no outputs,
    // with the input format that the next wish needs.
    const auto refused = find_by_user(stream);
    if (refused != encoders().end()) encoders().erase(refused);
    stream.fObserverToken.reset();
    return kNobodyMakesIt;
}

void tnSharedEncoders::Leave(tnOutputStream& stream) {
    const Lock lock(gLock);
    const auto encoder = find_by_user(stream);
    if (encoder == encoders().end()) return;
    std::erase(encoder->users, &stream);
    if (encoder->users.empty()) encoders().erase(encoder);
    if (tnFilterManager::Default()) stream.DestroyFilters();
}

int tnSharedEncoders::CountUsers(int source, const tnMediaRecord& format) {
    const Lock lock(gLock);
    const auto encoder = find_by_wish(source, wish_of(format));
    return encoder == encoders().end() ? 0 : static_cast<int>(encoder->users.size());
}
