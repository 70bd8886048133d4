#pragma once

#include "spar/xCUnknown.h"

/// The interface that the add-ons of the tests offer.
class TestFormat : public xCUnknown {
public:
    virtual const char* FormatName() = 0;
};
