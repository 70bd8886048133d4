#pragma once

#include "spar/export.h"

/// The body of a thread.
class SPAR_API zThreadMain {
public:
    zThreadMain();
    virtual ~zThreadMain();
    zThreadMain(const zThreadMain&) = delete;
    zThreadMain& operator=(const zThreadMain&) = delete;

    /// Runs on the new thread, with 0 and null. The thread does not touch the body again after Main
    /// has returned, so that a body that nobody waits for may delete itself at its end. The result
    /// is not looked at; an exception that leaves Main ends the process.
    virtual int Main(int argumentCount, const char** arguments) = 0;
};
