#pragma once

#include "spar/export.h"

class zRecord;

/// A thing that writes itself to a record and reads itself back.
class SPAR_API zRecordable {
public:
    virtual ~zRecordable();

    /// Takes its values from `record`: 0, or negative when the record does not describe it.
    virtual int Read(const zRecord& record, unsigned int options) = 0;
    /// Puts its values into `record`.
    virtual int Write(zRecord& record, bool full) = 0;
};
