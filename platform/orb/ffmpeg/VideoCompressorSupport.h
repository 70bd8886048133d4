#pragma once

#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"

// What the video components of this folder share.

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

/// Says why a component failed. A source that goes wrong goes wrong for every picture, so that of
/// pictures that fail in a row only the first is traced.
class FailureTrace {
public:
    explicit FailureTrace(const CObject& owner) : fOwner(owner) {}

    // All give the result back.
    Result OfSetUp(Result result);  ///< always traced; ends the row
    Result OfInput(Result result);  ///< a picture that went in ends the row
    Result OfOutput(Result result);

private:
    void say(const Result& result) const;

    const CObject& fOwner;
    bool fFailing = false;
};

}  // namespace Quillon::Orb
