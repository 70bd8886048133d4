#pragma once

#include <string>
#include <string_view>

#include "spar/zStream.h"

/// A stream in memory: what is written goes to the end, reading goes on from where it was.
class SPAR_API zMemoryStream : public zStream {
public:
    zMemoryStream() = default;
    explicit zMemoryStream(std::string content) : fContent(std::move(content)) {}

    int Read(void* data, unsigned long size, unsigned long* got) override;
    int Write(const void* data, unsigned long size) override;
    int Flush() override { return 0; }

    /// Everything, read or not. Good until the next write.
    std::string_view Content() const { return fContent; }
    void Rewind() { fPosition = 0; }

private:
    std::string fContent;
    unsigned long fPosition = 0;
};
