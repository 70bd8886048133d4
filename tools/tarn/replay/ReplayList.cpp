#include "ReplayList.h"

#include <algorithm>
#include <fmt/format.h>

#include "../JsonString.h"
#include "../TextUnits.h"

namespace {

constexpr long long kRounding = 1;
constexpr int kTimelineWidth = 60;

std::string text_of(long long time) {
    return TextOfSeconds(ReplaySeconds(time));
}

/// How much of the stretch from `from` to `to` is recorded.
long long covered(const ReplayRecording& recording, long long from, long long to) {
    long long sum = 0;
    for (const ReplayPiece& piece : recording.pieces) {
        sum += std::max(0LL, std::min(to, piece.stop) - std::max(from, piece.start));
    }
    return sum;
}

}  // namespace

std::vector<ReplayGap> GapsOf(const ReplayRecording& recording) {
    std::vector<ReplayGap> gaps;
    long long reached = recording.Start();
    for (const ReplayPiece& piece : recording.pieces) {
        if (piece.start > reached + kRounding) gaps.push_back({reached, piece.start});
        reached = std::max(reached, piece.stop);
    }
    return gaps;
}

std::string ReplayTimeline(const ReplayRecording& recording, int width) {
    std::string cells;
    const double length = static_cast<double>(recording.Stop() - recording.Start());
    for (int cell = 0; cell < width; ++cell) {
        const auto edge = [&](int index) {
            return recording.Start() + static_cast<long long>(length * index / width);
        };
        const long long from = edge(cell);
        const long long to = std::max(edge(cell + 1), from + 1);
        const long long in = covered(recording, from, to);
        cells += in + kRounding >= to - from ? '#' : in > 0 ? '+' : '.';
    }
    return cells;
}

std::string TextOfReplay(const ReplayRecording& recording) {
    const char* const state = recording.closed ? "ended" : "not closed: it goes on, or was cut off";
    if (recording.pieces.empty()) {
        return fmt::format("{}: no segments; {}\n", recording.folder, state);
    }
    std::string text =
        fmt::format("{}: {} in {} segments, {}; {}\n{} [{}] {}\n", recording.folder,
                    text_of(recording.Stop() - recording.Start()), recording.pieces.size(),
                    TextOfBytes(recording.Bytes()), state, text_of(recording.Start()),
                    ReplayTimeline(recording, kTimelineWidth), text_of(recording.Stop()));
    text +=
        fmt::format("{:>10} {:>12} {:>12} {:>10} {:>10}\n", "id", "from", "to", "length", "size");
    const std::vector<ReplayGap> gaps = GapsOf(recording);
    auto gap = gaps.begin();
    for (const ReplayPiece& piece : recording.pieces) {
        if (gap != gaps.end() && gap->stop == piece.start) {
            text += fmt::format("{:>10} {:>12} {:>12} {:>10}\n", "gap", text_of(gap->start),
                                text_of(gap->stop), text_of(gap->stop - gap->start));
            ++gap;
        }
        text += fmt::format("{:>10} {:>12} {:>12} {:>10} {:>10}\n", piece.id, text_of(piece.start),
                            text_of(piece.stop), text_of(piece.stop - piece.start),
                            TextOfBytes(piece.bytes));
    }
    return text;
}

std::string JsonOfPiece(const ReplayPiece& piece) {
    return fmt::format(R"({{"id":{},"from":{:.6f},"to":{:.6f},"bytes":{},"path":{}}})", piece.id,
                       ReplaySeconds(piece.start), ReplaySeconds(piece.stop), piece.bytes,
                       JsonString(piece.path));
}

std::string JsonOfReplay(const ReplayRecording& recording) {
    std::string pieces;
    for (const ReplayPiece& piece : recording.pieces) {
        if (!pieces.empty()) pieces += ',';
        pieces += JsonOfPiece(piece);
    }
    std::string gaps;
    for (const ReplayGap& gap : GapsOf(recording)) {
        gaps += fmt::format(R"({}{{"from":{:.6f},"to":{:.6f}}})", gaps.empty() ? "" : ",",
                            ReplaySeconds(gap.start), ReplaySeconds(gap.stop));
    }
    return fmt::format(
        R"({{"event":"list","folder":{},"closed":{},"from":{:.6f},"to":{:.6f},"bytes":{},"segments":[{}],"gaps":[{}]}})",
        JsonString(recording.folder), recording.closed, ReplaySeconds(recording.Start()),
        ReplaySeconds(recording.Stop()), recording.Bytes(), pieces, gaps);
}
