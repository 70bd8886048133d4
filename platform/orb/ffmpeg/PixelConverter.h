#pragma once

#include <memory>
#include <vector>

#include "orb/CVideoConverter.h"

#include "PixelPlan.h"
#include "VideoCompressorSupport.h"

namespace Quillon::Orb {

/// 'vfc ': turns raw pictures of one format into raw pictures of another, of the same size.
///
/// What the numbers mean is read from the properties of both sides. Matrix: that of the colour
/// space; where it says nothing, what pictures of that size usually have, BT.709 from 720 lines up,
/// else BT.601. Range: of Y, U and V and of 'GREY' what the properties say. Red, green and blue
/// always use all of their codes: hosts give one range for a whole recording, and of pictures made
/// for screens it speaks of the Y, U and V that they become. The output means what the input means
/// unless SetOutputProperties says otherwise. Of interlaced pictures each field keeps its chroma.
///
/// Each picture comes out at once, in a block of its own from the pool, also where nothing has to
/// be converted: callers reuse the memory of what they put in. Everything that a sample says but
/// its pixels is carried over.
class PixelConverter : public CVideoConverter {
public:
    static constexpr unsigned int kCode = 'vfc ';

    PixelConverter();

    CValueList<unsigned int>* GetInputFormats() override;
    CValueList<unsigned int>* GetOutputFormats() override;
    /// What shall come out, where that is more than another format: its colour space, range and, if
    /// not 0, format count. Null takes everything back. ResultInvalidArgument for another size.
    Result SetOutputProperties(const CVideoProperties* properties) override;
    /// ResultNullPointer without input properties, ResultNotSupported for a format that is not raw
    /// or a matrix but those of BT.601 and BT.709, ResultInvalidArgument for pictures without size
    /// or with more than kLargestSide columns or rows, ResultOutOfMemory.
    Result Begin() override;
    /// Drops what was not received.
    Result End() override;
    /// ResultError outside Begin and End; ResultInvalidArgument for a sample that holds no picture
    /// of the input's size, ResultOutOfMemory.
    Result ProcessSample(CVideoSample* sample) override;
    Result ReceiveSample(RObject<CVideoSample>& sample) override;

private:
    Result check_size(const CVideoProperties& wanted) const;
    Result describe(RObject<CVideoProperties>& output) const;
    Result set_up();
    Result process(CVideoSample* sample);
    Result convert(const CVideoSample& from, RObject<CVideoSample>& to);

    FailureTrace fFailures{*this};
    RObject<CVideoProperties> fWanted;  // what SetOutputProperties said; null: nothing

    // between Begin and End
    std::unique_ptr<PixelPlan> fPlan;
    RObject<CVideoProperties> fFrom;
    RObject<CVideoProperties> fTo;
    std::vector<RObject<CVideoSample>> fReady;  // oldest first; hardly ever more than one
};

/// What the numbers of such pictures mean, by the rules above. ResultNotSupported for a matrix that
/// is neither known nor left open.
Result ReadPixelColour(const CVideoProperties& properties, PixelColour& colour);

/// Adds 'vfc ' to the inventory of video converters.
void RegisterPixelConverter();

}  // namespace Quillon::Orb
