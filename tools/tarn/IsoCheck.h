#pragma once

#include <memory>
#include <string>
#include <vector>

#include "IsoProblems.h"
#include "IsoSettings.h"

class tnISOValidator;

constexpr long long kIsoFolderPatienceUs = 5'000'000;

/// Checks one ISO output beside the others, and waits for its folder only as long as it is told
/// to: a disk that does not answer is a problem of its own. One thread.
class IsoCheck {
public:
    /// Both outlive the check.
    IsoCheck(zRecord& outputs, const std::vector<IsoSource>& sources);
    /// Leaves a check behind whose folder has not answered: waiting for it might be for ever.
    ~IsoCheck();
    IsoCheck(const IsoCheck&) = delete;
    IsoCheck& operator=(const IsoCheck&) = delete;

    /// Checks; the folder's answer comes later. Does nothing while an earlier question to the
    /// folder hangs.
    void Begin(const zRecord& settings);
    /// Waits for the folder's answer until zTime::MicroNow reaches `time`. False: it has not come.
    bool WaitUntil(long long time);
    /// What is wrong, as far as known. A folder counts as silent after kIsoFolderPatienceUs.
    std::vector<IsoProblem> Problems(const zRecord& settings) const;

private:
    friend struct IsoCheckTestPeer;  // puts in its place a disk that does not answer

    bool is_folder_asked() const;

    const std::vector<IsoSource>& fSources;
    long long fAskedUs = 0;
    std::unique_ptr<tnISOValidator> fValidator;
};

/// Checks one output at once; blocks up to kIsoFolderPatienceUs. Empty: it may start.
std::vector<IsoProblem> CheckIsoOutput(zRecord& outputs, const zRecord& settings,
                                       const std::vector<IsoSource>& sources);
