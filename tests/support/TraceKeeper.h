#pragma once

#include <string>

#include "spar/zTraceManager.h"

namespace tests {

/// Keeps what is traced while it lives. One thread.
class TraceKeeper final : public zTraceManager {
public:
    TraceKeeper() : fBefore(SetDefault(this)) {}
    ~TraceKeeper() override { SetDefault(fBefore); }
    void TraceMessage(int, const std::string& text) override { fText += text; }

    std::string fText;

private:
    zTraceManager* const fBefore;
};

}  // namespace tests
