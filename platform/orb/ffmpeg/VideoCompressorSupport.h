#pragma once

#include <string>

#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"

// What all video compressors of this folder share.

namespace Quillon::Orb {

/// Makes a compressor known under its kCode.
template <class Compressor>
void AddVideoCompressor() {
    using Factory = CSimpleComponentFactory<CVideoCompressor, Compressor>;
    RObject<Factory> factory(new Factory(Compressor::kCode));
    CComponentInventory<CComponentFactory<CVideoCompressor>>::GetSingleton().Add(factory.Get());
}

/// How many threads to use when the host asked for `wanted`: 0 takes as many as there are
/// processors, at most `most`.
int ThreadCount(int wanted, int most);

/// Says why a component failed. A source that goes wrong goes wrong for every picture, so that only
/// the first failure of a row is traced.
class FailureTrace {
public:
    /// Gives the result back. A ResultFalse and every other success ends the row.
    Result Say(const std::string& owner, Result result);

private:
    bool fFailing = false;
};

}  // namespace Quillon::Orb
