#pragma once

#include <memory>
#include <vector>

#include "spar/xCUnknown.h"
#include "tarn/export.h"

class tnMediaRecord;

/// An encoder, or what stands in for one: a record says what it is to make of the raw frames or
/// blocks that it is handed.
class TARN_API tnFilter : public xCUnknown {
public:
    /// The records that the filter holds; they live as long as it.
    virtual const tnMediaRecord& InputFormat() const = 0;
    virtual const tnMediaRecord& OutputFormat() const = 0;
    virtual void SetOutputFormat(const tnMediaRecord& format) = 0;
    /// Builds the real encoder for that input and the held output format; true on success.
    virtual bool CreateFilter(const tnMediaRecord& input) = 0;
    /// What decoders are to be told before the first buffer; null for nothing, or nothing yet. Kept
    /// once it is there.
    /// From an initialisation function or the sample path, also at once.
    virtual std::shared_ptr<const std::vector<unsigned char>> DecoderInfo() = 0;
};
