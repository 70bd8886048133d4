#include "tests/support/RecordedFile.h"

#include <algorithm>
#include <cstring>

using Quillon::Orb::FileLayer;
using Quillon::Orb::FileSpan;
using Operation = FileRecord::Operation;

void FileRecord::Apply(const Operation& operation, std::vector<unsigned char>& image) {
    const auto offset = static_cast<std::size_t>(operation.offset);
    switch (operation.kind) {
        case Operation::Kind::Write:
            if (operation.bytes.empty()) break;
            image.resize(std::max(image.size(), offset + operation.bytes.size()));
            std::memcpy(&image[offset], operation.bytes.data(), operation.bytes.size());
            break;
        case Operation::Kind::Truncate:
            image.resize(static_cast<std::size_t>(operation.size));
            break;
        case Operation::Kind::Release: {
            const auto end =
                std::min(image.size(), offset + static_cast<std::size_t>(operation.size));
            if (offset < end)
                std::fill(image.begin() + operation.offset,
                          image.begin() + static_cast<long long>(end), 0);
            break;
        }
        default:
            break;
    }
}

namespace {

constexpr long long kBlock = 512;

class RecordedFile final : public FileLayer {
public:
    explicit RecordedFile(std::shared_ptr<FileRecord> record) : fRecord(std::move(record)) {}

    int Create(const char*) override { return count(); }
    int WriteAt(long long offset, const FileSpan* spans, int spanCount) override {
        Operation write{Operation::Kind::Write, offset, 0, {}};
        for (int i = 0; i < spanCount; i++) {
            const auto* bytes = static_cast<const unsigned char*>(spans[i].data);
            write.bytes.insert(write.bytes.end(), bytes, bytes + spans[i].size);
        }
        return run(std::move(write));
    }
    int Publish() override {
        const int error = run({Operation::Kind::Publish, 0, 0, {}});
        if (error == 0) fRecord->published = true;
        return error;
    }
    int Sync() override { return run({Operation::Kind::Sync, 0, 0, {}}); }
    int Truncate(long long size) override { return run({Operation::Kind::Truncate, 0, size, {}}); }
    int Reserve(long long offset, long long size) override {
        return run({Operation::Kind::Reserve, offset, size, {}});
    }
    int Release(long long offset, long long size) override {
        return run({Operation::Kind::Release, offset, size, {}});
    }
    int Close() override {
        fRecord->closed = true;
        return run({Operation::Kind::Close, 0, 0, {}});
    }

private:
    int count() {
        const std::lock_guard<std::mutex> held(fRecord->lock);
        return counted();
    }

    int counted() {
        const int call = ++fRecord->calls;
        const bool fails = call == fRecord->failAt ||
                           (fRecord->stays && fRecord->failAt > 0 && call > fRecord->failAt);
        return fails ? -fRecord->error : 0;
    }

    int run(Operation operation) {
        const std::lock_guard<std::mutex> held(fRecord->lock);
        const int error = counted();
        if (error != 0) {
            fRecord->failedSync |= operation.kind == Operation::Kind::Sync;
            if (!fRecord->half || operation.kind != Operation::Kind::Write) return error;
            // A system breaks a write off between blocks, not within one.
            const auto half = operation.offset + static_cast<long long>(operation.bytes.size() / 2);
            const long long kept = half / kBlock * kBlock - operation.offset;
            operation.bytes.resize(static_cast<std::size_t>(std::max(kept, 0LL)));
        }
        FileRecord::Apply(operation, fRecord->image);
        if (fRecord->keepLog) fRecord->log.push_back(std::move(operation));
        return error;
    }

    const std::shared_ptr<FileRecord> fRecord;
};

}  // namespace

std::unique_ptr<FileLayer> MakeRecordedFile(std::shared_ptr<FileRecord> record) {
    return std::make_unique<RecordedFile>(std::move(record));
}
