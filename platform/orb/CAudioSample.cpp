#include "orb/CAudioSample.h"

namespace Quillon::Orb {

CAudioSample::CAudioSample(long long packets) : CMediaSample(kType, nullptr), fPackets(packets) {}

}  // namespace Quillon::Orb
