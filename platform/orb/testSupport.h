#pragma once

// For the tests of this folder and of those below it.

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "orb/CBufferDataReference.h"
#include "orb/CByteArray.h"
#include "orb/CComponentInventory.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CVideoFilter.h"
#include "orb/CVideoProperties.h"
#include "orb/RObject.h"
#include "spar/zTraceManager.h"

namespace Quillon::Orb {

/// Keeps what is traced while it lives.
class TraceCatcher : public zTraceManager {
public:
    TraceCatcher() : fBefore(zTraceManager::SetDefault(this)) {}
    ~TraceCatcher() override { zTraceManager::SetDefault(fBefore); }

    void TraceMessage(int, const std::string& text) override {
        std::lock_guard held(fLock);
        fLines.push_back(text);
    }
    std::vector<std::string> Lines() {
        std::lock_guard held(fLock);
        return fLines;
    }
    int Count() { return static_cast<int>(Lines().size()); }
    /// True when one line holds all of these.
    bool HasLineWith(std::initializer_list<const char*> parts) {
        for (const std::string& line : Lines()) {
            bool all = true;
            for (const char* part : parts) all &= line.find(part) != std::string::npos;
            if (all) return true;
        }
        return false;
    }

private:
    zTraceManager* fBefore;
    std::mutex fLock;
    std::vector<std::string> fLines;
};

/// Counts how many of it live.
class Counted : public CObject {
public:
    explicit Counted(int number = 0) : fNumber(number) { ++gLiving; }
    ~Counted() override { --gLiving; }
    int GetNumber() const { return fNumber; }

    static inline std::atomic<int> gLiving{0};

private:
    int fNumber;
};

inline RObject<CByteArray> bytes_of(const std::vector<unsigned char>& bytes) {
    return RObject<CByteArray>(new CByteArray(bytes.data(), static_cast<int>(bytes.size())));
}

inline std::vector<unsigned char> vector_of(const CByteArray& bytes) {
    return {bytes.GetData(), bytes.GetData() + bytes.GetLength()};
}

/// Puts a factory before all others for as long as it lives.
template <class T>
class FactoryInFront {
public:
    using Inventory = CComponentInventory<CComponentFactory<T>>;
    explicit FactoryInFront(CComponentFactory<T>* factory) : fFactory(factory) {
        Inventory::GetSingleton().AddFirst(factory);
    }
    ~FactoryInFront() { Inventory::GetSingleton().Remove(fFactory.Get()); }

private:
    RObject<CComponentFactory<T>> fFactory;
};

}  // namespace Quillon::Orb
