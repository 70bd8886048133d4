#include "VideoCompressorSupport.h"

#include <algorithm>
#include <thread>

#include "orb/fourText.h"
#include "orb/reasonOf.h"
#include "spar/trace.h"

namespace Quillon::Orb {

int ThreadCount(int wanted, int most) {
    if (wanted > 0) return wanted;
    return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, most);
}

Result FailureTrace::OfSetUp(Result result) {
    fFailing = false;
    if (result.Failed()) say(result);
    return result;
}

Result FailureTrace::OfInput(Result result) {
    if (result.Failed() && !fFailing) say(result);
    fFailing = result.Failed();
    return result;
}

Result FailureTrace::OfOutput(Result result) {
    if (result.Failed() && !fFailing) say(result);
    fFailing = fFailing || result.Failed();
    return result;
}

void FailureTrace::say(const Result& result) const {
    zTrace("{}: {}\n", four_text(fOwner.GetType()), explained(result).GetMessage());
}

}  // namespace Quillon::Orb
