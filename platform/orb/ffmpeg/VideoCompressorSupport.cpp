#include "VideoCompressorSupport.h"

#include <algorithm>
#include <thread>

#include "spar/trace.h"

namespace Quillon::Orb {

int ThreadCount(int wanted, int most) {
    if (wanted > 0) return wanted;
    return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, most);
}

Result FailureTrace::Say(const std::string& owner, Result result) {
    if (result.Failed() && !fFailing) zTrace("{}: {}\n", owner, result.GetMessage());
    fFailing = result.Failed();
    return result;
}

}  // namespace Quillon::Orb
