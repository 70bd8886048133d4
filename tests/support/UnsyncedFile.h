#pragma once

#include <memory>

#include "orb/container/FileLayer.h"

namespace tests {

/// A real file whose syncs do not wait for the disk: a simulated recording makes hours of them.
class UnsyncedFile : public Quillon::Orb::FileLayer {
public:
    int Create(const char* path) override { return fFile->Create(path); }
    int WriteAt(long long offset, const Quillon::Orb::FileSpan* spans, int count) override {
        return fFile->WriteAt(offset, spans, count);
    }
    int Publish() override { return fFile->Publish(); }
    int Sync() override { return 0; }
    int Truncate(long long size) override { return fFile->Truncate(size); }
    int Reserve(long long offset, long long size) override { return fFile->Reserve(offset, size); }
    int Release(long long offset, long long size) override { return fFile->Release(offset, size); }
    int Close() override { return fFile->Close(); }

private:
    const std::unique_ptr<Quillon::Orb::FileLayer> fFile = Quillon::Orb::MakePosixFile();
};

}  // namespace tests
