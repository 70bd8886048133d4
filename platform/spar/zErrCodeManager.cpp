#include "spar/zErrCodeManager.h"

#include <algorithm>
#include <deque>
#include <string>

#include "spar/zMutex.h"

namespace {

struct Range {
    int first;
    int last;
    std::string name;
};

struct Ranges {
    zMutex lock;
    std::deque<Range> list SPAR_GUARDED_BY(lock);  // a deque: names stay where they are
};

/// Lives as long as the process. This library's own codes are there from the start.
Ranges& all_ranges() {
    static auto* const kRanges =
        new Ranges{{}, {{-5199, -5001, "file errors"}, {-5299, -5201, "XML errors"}}};
    return *kRanges;
}

}  // namespace

void zErrCodeManager::RegisterCodeRange(int first, int last, const char* name) {
    if (name == nullptr) return;
    if (first > last) std::swap(first, last);
    Ranges& ranges = all_ranges();
    zMutexLock lock(ranges.lock);
    for (const Range& range : ranges.list) {
        if (range.first == first && range.last == last && range.name == name) return;
    }
    ranges.list.push_back({first, last, name});
}

const char* zErrCodeManager::RangeName(int code) {
    Ranges& ranges = all_ranges();
    zMutexLock lock(ranges.lock);
    const Range* best = nullptr;
    const auto width = [](const Range& range) {
        return static_cast<long long>(range.last) - range.first;
    };
    for (const Range& range : ranges.list) {
        if (code < range.first || code > range.last) continue;
        if (best == nullptr || width(range) < width(*best)) best = &range;
    }
    return best == nullptr ? nullptr : best->name.c_str();
}
