#include "tarn/replay/tnReplaySegment.h"

#include "spar/zRecord.h"

tnReplaySegment::tnReplaySegment(unsigned int id, long long start, long long stop)
    : fId(id), fStart(start), fStop(stop) {}

tnReplaySegment::~tnReplaySegment() = default;

int tnReplaySegment::Read(const zRecord& record, unsigned int /*options*/) {
    fId = record.AsUInt32("id", 0);
    if (fId == 0) return -1;
    fStart = record.AsInt64("start", 0);
    fStop = record.AsInt64("stop", 0);
    return fStop > fStart ? 0 : -1;
}

int tnReplaySegment::Write(zRecord& record, bool /*full*/) {
    record.SetCString('xTag', "segment");
    record.SetUInt32("id", fId);
    record.SetInt64("start", fStart);
    record.SetInt64("stop", fStop);
    return 0;
}
