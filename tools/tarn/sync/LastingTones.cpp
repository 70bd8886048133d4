#include "LastingTones.h"

#include <algorithm>

namespace {

constexpr int kLeastBlocks = 6;
constexpr int kLargestStep = 3;   // blocks from one that heard the digit to the next
constexpr int kBlocksBefore = 3;  // of the first that heard it: where the tone may begin

}  // namespace

LastingTones::LastingTones(int sampleRate) : fBlock(tnSyncDTMF::BlockSize(sampleRate)) {
    fDetector.changeSampleRate(sampleRate);
}

void LastingTones::Add(const short* pcm, long long frames, int channels) {
    for (; frames > 0; --frames, pcm += channels) {
        const char digit = fDetector.processSample(static_cast<unsigned short>(*pcm));
        ++fPosition;
        if (digit == 0) continue;
        const char* const known = tnSyncDTMF::kAsciiDTMF;
        heard(static_cast<int>(std::find(known, known + 16, digit) - known), fPosition);
    }
}

void LastingTones::heard(int digit, long long end) {
    Run& run = fRuns[digit];
    if (end - run.span.end > kLargestStep * fBlock) run = {};
    if (run.blocks == 0) run.span.begin = end - kBlocksBefore * fBlock;
    run.span.end = end + fBlock;
    ++run.blocks;
    if (run.blocks == kLeastBlocks) {
        run.place = fSpans.size();
        fSpans.push_back(run.span);
    } else if (run.blocks > kLeastBlocks) {
        fSpans[run.place].end = run.span.end;
    }
}

std::vector<ToneSpan> LastingTones::Spans() const {
    std::vector<ToneSpan> spans = fSpans;
    std::sort(spans.begin(), spans.end(),
              [](const ToneSpan& a, const ToneSpan& b) { return a.begin < b.begin; });
    std::vector<ToneSpan> apart;
    for (const ToneSpan& span : spans) {
        if (!apart.empty() && span.begin <= apart.back().end) {
            apart.back().end = std::max(apart.back().end, span.end);
        } else {
            apart.push_back(span);
        }
    }
    return apart;
}
