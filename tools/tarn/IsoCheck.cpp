#include "IsoCheck.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/iso/tnISOAccessor.h"
#include "tarn/iso/tnISOValidator.h"

namespace {

const IsoSource* find_source(const std::vector<IsoSource>& sources, const std::string& id,
                             bool isShot) {
    const auto found = std::find_if(sources.begin(), sources.end(), [&](const IsoSource& source) {
        return source.isShot == isShot && source.id == id;
    });
    return found != sources.end() ? &*found : nullptr;
}

}  // namespace

IsoCheck::IsoCheck(zRecord& outputs, const std::vector<IsoSource>& sources)
    : fSources(sources), fValidator(std::make_unique<tnISOValidator>(&outputs)) {
    if (fSources.empty()) return;
    // The id that is looked for is the validator's own by the time that it asks.
    const tnISOValidator& validator = *fValidator;
    fValidator->fSourceLookup = [this, &validator](const tnISOAccessor& accessor) {
        const IsoSource* const found =
            find_source(fSources, validator.fSourceId, accessor.IsShotRecording());
        return found ? static_cast<int>(found - fSources.data()) + 1 : 0;
    };
    fValidator->fTrackLookup = [this, &validator](const tnISOAccessor&, bool& hasVideo,
                                                  bool& hasAudio) {
        const auto place = static_cast<std::size_t>(validator.fSourceNumber - 1);
        hasVideo = fSources[place].hasVideo;
        hasAudio = fSources[place].hasAudio;
    };
}

IsoCheck::~IsoCheck() {
    if (is_folder_asked()) (void)fValidator.release();
}

void IsoCheck::Begin(const zRecord& settings) {
    if (is_folder_asked()) return;
    fAskedUs = zTime::MicroNow();
    fValidator->Validate(settings);
}

bool IsoCheck::WaitUntil(long long time) {
    const std::future<bool>& folder = fValidator->fFolderCheck;
    const long long left = std::max(0LL, time - zTime::MicroNow());
    if (folder.valid() &&
        folder.wait_for(std::chrono::microseconds(left)) != std::future_status::ready) {
        return false;
    }
    zThread::DrainMainQueue();
    return true;
}

std::vector<IsoProblem> IsoCheck::Problems(const zRecord& settings) const {
    std::vector<IsoProblem> problems = DescribeIsoProblems(*fValidator, settings, fSources);
    if (is_folder_asked() && zTime::MicroNow() - fAskedUs >= kIsoFolderPatienceUs) {
        problems.push_back(
            {"folder_silent", fmt::format("the disk of '{}' does not answer; check its connection, "
                                          "or set output_folder to another disk",
                                          settings.AsString("output_folder", ""))});
    }
    return problems;
}

bool IsoCheck::is_folder_asked() const {
    const std::future<bool>& folder = fValidator->fFolderCheck;
    return folder.valid() && folder.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

std::vector<IsoProblem> CheckIsoOutput(zRecord& outputs, const zRecord& settings,
                                       const std::vector<IsoSource>& sources) {
    IsoCheck check(outputs, sources);
    check.Begin(settings);
    check.WaitUntil(zTime::MicroNow() + kIsoFolderPatienceUs);
    return check.Problems(settings);
}
