#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "orb/container/FileLayer.h"

/// What a file in memory has been asked to do, and how it is to misbehave.
struct FileRecord {
    struct Operation {
        enum class Kind { Write, Sync, Publish, Truncate, Reserve, Release, Close };
        Kind kind;
        long long offset = 0;
        long long size = 0;                // of Truncate, Reserve and Release
        std::vector<unsigned char> bytes;  // of Write
    };

    /// The call, counted from 1, that fails with `error`, and all after it when `stays`.
    int failAt = 0;
    int error = 0;
    bool stays = false;
    /// What of a failing write reaches the file nevertheless: half of its blocks.
    bool half = false;
    bool keepLog = true;

    std::mutex lock;
    int calls = 0;
    bool published = false;
    bool closed = false;
    bool failedSync = false;  // one of the failures was a sync's
    std::vector<Operation> log;
    std::vector<unsigned char> image;

    static void Apply(const Operation& operation, std::vector<unsigned char>& image);
};

/// A file layer in memory that records what it is asked.
std::unique_ptr<Quillon::Orb::FileLayer> MakeRecordedFile(std::shared_ptr<FileRecord> record);
