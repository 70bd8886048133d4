#include "LivePoints.h"

#include "tarn/sync/tnSleeper.h"

void LiveAtPoint(LivePoint point) {
    tnSleeper::Sleep(point == LivePoint::kRenderer ? tnSleeper::kSleepRenderer
                                                   : tnSleeper::kSleepTaskDecompressor);
}
