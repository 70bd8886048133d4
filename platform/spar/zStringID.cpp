#include "spar/zStringID.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr std::size_t kFirstTableSize = 1024;  // slots; a power of two
constexpr std::uint64_t kMix = 0x9e3779b97f4a7c15ull;

std::uint64_t mixed(std::uint64_t value) {
    value *= kMix;
    return value ^ (value >> 32);
}

template <class Word>
std::uint64_t word_at(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

/// Eight bytes at a time, the last eight again if need be: keys are short, and this runs for every
/// access by key.
std::size_t hash_of(std::string_view key) {
    const char* text = key.data();
    const std::size_t size = key.size();
    std::uint64_t hash = size;
    if (size >= 8) {
        for (std::size_t at = 0; at + 8 < size; at += 8) {
            hash = mixed(hash ^ word_at<std::uint64_t>(text + at));
        }
        return mixed(hash ^ word_at<std::uint64_t>(text + size - 8));
    }
    std::uint64_t tail = 0;
    if (size >= 4) {
        tail = word_at<std::uint32_t>(text) | word_at<std::uint32_t>(text + size - 4) << 32;
    } else {
        for (const char c : key) tail = tail << 8 | static_cast<unsigned char>(c);
    }
    return mixed(hash ^ tail);
}

std::size_t hash_of(unsigned long long id) {
    return mixed(id);
}

}  // namespace

struct zStringID::Entry {
    std::size_t hash;
    std::string key;
    // The one that new variables take: the key's own once there is one.
    std::atomic<unsigned long long> id;
    // The made one, when the key's own came later; else 0.
    std::atomic<unsigned long long> madeID{0};
};

/// Open addressing over slots that are filled once and never cleared, so that readers need no lock.
/// A table that grows leaves the old one to the readers who are still in it: the sizes double, so
/// all old ones together are smaller than the one in use.
struct zStringID::Table {
    struct Slot {
        std::atomic<Entry*> entry{nullptr};
        std::atomic<unsigned long long> id{0};  // in the table by id: the id that leads here
    };

    explicit Table(std::size_t slotCount, Table* former)
        : size(slotCount), slots(new Slot[slotCount]), old(former) {}

    const std::size_t size;
    const std::unique_ptr<Slot[]> slots;
    Table* const old;
    std::size_t used = 0;  // writers only
};

zStringID& zStringID::Default() {
    static zStringID* const kDefault = new zStringID;
    return *kDefault;
}

zStringID::Entry* zStringID::find_entry(std::string_view key, std::size_t hash) const {
    const Table* table = fByKey.load(std::memory_order_acquire);
    if (table == nullptr) return nullptr;
    for (std::size_t at = hash;; ++at) {
        Entry* entry = table->slots[at & (table->size - 1)].entry.load(std::memory_order_acquire);
        if (entry == nullptr || (entry->hash == hash && entry->key == key)) return entry;
    }
}

zStringID::Entry* zStringID::find_entry(unsigned long long id) const {
    const Table* table = fByID.load(std::memory_order_acquire);
    if (table == nullptr) return nullptr;
    for (std::size_t at = hash_of(id);; ++at) {
        const Table::Slot& slot = table->slots[at & (table->size - 1)];
        Entry* entry = slot.entry.load(std::memory_order_acquire);
        if (entry == nullptr || slot.id.load(std::memory_order_relaxed) == id) return entry;
    }
}

/// A table with a free slot for one entry more. Taken before anything changes: memory may be short.
zStringID::Table& zStringID::room_in(std::atomic<Table*>& table) {
    Table* current = table.load(std::memory_order_relaxed);
    if (current != nullptr && current->used * 2 < current->size) return *current;
    const std::size_t size = current == nullptr ? kFirstTableSize : current->size * 2;
    Table* grown = new Table(size, current);
    for (std::size_t i = 0; current != nullptr && i < current->size; ++i) {
        Entry* moved = current->slots[i].entry.load(std::memory_order_relaxed);
        const unsigned long long id = current->slots[i].id.load(std::memory_order_relaxed);
        if (moved != nullptr) place(*grown, moved, id == 0 ? moved->hash : hash_of(id), id);
    }
    table.store(grown, std::memory_order_release);
    return *grown;
}

void zStringID::place(Table& table, Entry* entry, std::size_t hash, unsigned long long id) {
    std::size_t at = hash;
    while (table.slots[at & (table.size - 1)].entry.load(std::memory_order_relaxed)) ++at;
    Table::Slot& slot = table.slots[at & (table.size - 1)];
    slot.id.store(id, std::memory_order_relaxed);
    slot.entry.store(entry, std::memory_order_release);
    ++table.used;
}

int zStringID::Add(unsigned long long id, const char* key, bool /*reserved*/) {
    if (key == nullptr) return -22;
    if (id == 0) return -1;
    const std::size_t hash = hash_of(std::string_view(key));
    zMutexLock lock(fLock);
    const Entry* holder = find_entry(id);
    Entry* entry = find_entry(key, hash);
    if (holder != nullptr) return holder == entry ? 0 : -1;
    if (entry == nullptr) {
        make_entry(key, hash, id);
        return 0;
    }
    const unsigned long long made = entry->id.load(std::memory_order_relaxed);
    if (!IsMade(made)) return -1;
    Table& byID = room_in(fByID);
    entry->madeID.store(made, std::memory_order_relaxed);
    entry->id.store(id, std::memory_order_release);
    place(byID, entry, hash_of(id), id);
    fTwins.fetch_add(1, std::memory_order_release);
    return 0;
}

void zStringID::make_entry(std::string_view key, std::size_t hash, unsigned long long id) {
    Table& byID = room_in(fByID);
    Table& byKey = room_in(fByKey);
    Entry* entry = new Entry{hash, std::string(key), id};
    place(byID, entry, hash_of(id), id);
    place(byKey, entry, hash, 0);
}

unsigned long long zStringID::Find(std::string_view key) const {
    const Entry* entry = find_entry(key, hash_of(key));
    return entry == nullptr ? 0 : entry->id.load(std::memory_order_acquire);
}

unsigned long long zStringID::FindOrMake(std::string_view key) {
    const std::size_t hash = hash_of(key);
    const Entry* entry = find_entry(key, hash);
    if (entry != nullptr) return entry->id.load(std::memory_order_acquire);
    zMutexLock lock(fLock);
    entry = find_entry(key, hash);  // another thread may have made it meanwhile
    if (entry != nullptr) return entry->id.load(std::memory_order_relaxed);
    const unsigned long long id = kMadeBit | ++fMade;
    make_entry(key, hash, id);
    return id;
}

const char* zStringID::Key(unsigned long long id) const {
    const Entry* entry = find_entry(id);
    return entry == nullptr ? nullptr : entry->key.c_str();
}

unsigned long long zStringID::find_other(unsigned long long id) const {
    const Entry* entry = find_entry(id);
    if (entry == nullptr) return 0;
    const unsigned long long made = entry->madeID.load(std::memory_order_acquire);
    return made == id ? entry->id.load(std::memory_order_acquire) : made;
}
