#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

#include "spar/export.h"
#include "spar/zMutex.h"

/// The process-wide table that ties ids to key strings.
///
/// Pairs are entered at boot. A key that has no id of its own gets one made for it when it is first
/// used to write (its top bit is set, which no four-character code has); when the key's own id is
/// entered later, both stand for the same variable.
///
/// Any thread may read at any time, without a lock and without blocking. Entries are never removed.
class SPAR_API zStringID {
public:
    static zStringID& Default();

    /// Enters one pair. 0, also for a pair that stands already; -22 for a null key; -1, with
    /// nothing changed, for the id 0 or if the id or the key belongs to another pair. The last
    /// argument is reserved.
    int Add(unsigned long long id, const char* key, bool reserved);

    /// The id of the key, 0 if it has none.
    unsigned long long Find(std::string_view key) const;

    /// The id of the key, which is made if it has none. Never 0. `key` holds no zero byte: nobody
    /// could ask for it under that name.
    unsigned long long FindOrMake(std::string_view key);

    /// The key of the id, null if it has none. Lives as long as the process.
    const char* Key(unsigned long long id) const;

    /// Whether the id was made for a key that had none of its own.
    static bool IsMade(unsigned long long id) { return (id & kMadeBit) != 0; }

    /// The other id of the variable that `id` stands for: a key that was used before its own id was
    /// entered has two. 0 if there is none.
    unsigned long long OtherID(unsigned long long id) const {
        return fTwins.load(std::memory_order_acquire) == 0 ? 0 : find_other(id);
    }

private:
    struct Entry;
    struct Table;

    static constexpr unsigned long long kMadeBit = 1ull << 63;

    zStringID() = default;
    ~zStringID() = delete;  // lives as long as the process
    zStringID(const zStringID&) = delete;
    zStringID& operator=(const zStringID&) = delete;

    unsigned long long find_other(unsigned long long id) const;
    Entry* find_entry(std::string_view key, std::size_t hash) const;
    Entry* find_entry(unsigned long long id) const;
    void make_entry(std::string_view key, std::size_t hash, unsigned long long id)
        SPAR_REQUIRES(fLock);
    static Table& room_in(std::atomic<Table*>& table);
    // `id` is 0 in the table by key.
    static void place(Table& table, Entry* entry, std::size_t hash, unsigned long long id);

    // any thread
    std::atomic<Table*> fByKey{nullptr};
    std::atomic<Table*> fByID{nullptr};
    std::atomic<unsigned int> fTwins{0};  // entries that have two ids

    // guarded by fLock
    zMutex fLock;
    unsigned long long fMade SPAR_GUARDED_BY(fLock) = 0;
};
