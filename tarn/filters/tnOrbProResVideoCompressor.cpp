#include "tarn/filters/tnOrbProResVideoCompressor.h"

#include "orb/CComponentInventory.h"

using namespace Quillon::Orb;

tnOrbProResVideoCompressor::~tnOrbProResVideoCompressor() = default;

// Without a component nothing fails here; frames are answered with the want of it.
int tnOrbProResVideoCompressor::create_orb_compressor(const zRecord&) {
    fEncoder = CComponentInventory<CComponentFactory<CVideoCompressor>>::CreateInstance('vtbx');
    return 0;
}
