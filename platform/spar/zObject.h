#pragma once

#include "spar/export.h"

/// The root of counted objects and of tokens that stand for an owner's life.
class SPAR_API zObject {
public:
    zObject() = default;
    virtual ~zObject();
};
