// A host that boots the module, finds an encoder and reads a format by its key.
#include <cstdio>

#include "orb/CComponentInventory.h"
#include "spar/zBoot.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/writers/tnWriteORB2.h"

int main() {
    if (zBoot::StartAll() != 0) {
        return 1;
    }
    tnMediaRecord format(TN_MEDIA_VIDEO);
    format.fWidth = 1920;
    const int width = format.AsInt32("tn_width", 0);
    tnWriteORB2 writer;
    std::printf("width %d\n", width);
    zBoot::StopAll();
    return width == 1920 ? 0 : 2;
}
