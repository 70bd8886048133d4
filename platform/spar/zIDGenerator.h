#pragma once

#include "spar/export.h"

/// Makes unique ids. Any thread.
class SPAR_API zIDGenerator {
public:
    /// A new id, never 0. The high byte is `kind`; the next three tell processes apart; the low 32
    /// bits alone are unique for the first four thousand million ids of a process, and never 0.
    static unsigned long long Generate(char kind);
};
