#include <algorithm>
#include <benchmark/benchmark.h>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "spar/zRecord.h"
#include "spar/zStringID.h"

// A record beside what one would write by hand: two maps and a sorted vector of the same values.
// Two of the values are strings, the rest numbers of all kinds, as formats have them.

namespace {

using Value = std::variant<bool, int, unsigned int, long long, unsigned long long, float, double,
                           std::string>;

struct Item {
    unsigned long long id;
    std::string key;
    Value value;
};

/// Four-character codes of letters, with keys of usual length, all entered in the table.
std::vector<Item> make_items(int count) {
    std::mt19937 random(20);
    std::vector<Item> items;
    for (int i = 0; i < count; ++i) {
        unsigned long long id = 'm';
        for (int letter = 0; letter < 3; ++letter) id = id << 8 | ('a' + random() % 26);
        const bool taken = std::any_of(items.begin(), items.end(),
                                       [&](const Item& item) { return item.id == id; });
        if (taken) {
            --i;
            continue;
        }
        const int number = static_cast<int>(random() % 10000);
        const Value kinds[] = {number, 1u * number, 1ll * number, 1.0f * number, number % 2 == 0};
        items.push_back({id, "bench_key_" + std::to_string(id % 9973) + std::to_string(i),
                         kinds[random() % std::size(kinds)]});
    }
    items[count / 2].value = std::string("x264");
    items[count - 1].value = std::string("/media/replay/camera_1/17.mov");
    for (const Item& item : items) {
        zStringID::Default().Add(item.id, item.key.c_str(), false);
    }
    return items;
}

/// What finds are asked for: every item, in no order that a branch predictor could learn.
std::vector<Item> shuffled(std::vector<Item> items) {
    std::vector<Item> asked;
    std::mt19937 random(21);
    while (asked.size() < 4096) {
        std::shuffle(items.begin(), items.end(), random);
        asked.insert(asked.end(), items.begin(), items.end());
    }
    return asked;
}

// One shape for all: Put by id and key, Find gives an int.

template <class Kind>
class RecordOf {
public:
    void Put(const Item& item) {
        std::visit([&](const auto& value) { Set(item.id, value); }, item.value);
    }
    int ByID(const Item& item) const { return fRecord.AsInt32(item.id, 0); }
    int ByKey(const Item& item) const { return fRecord.AsInt32(item.key.c_str(), 0); }

private:
    void Set(unsigned long long id, bool value) { fRecord.SetBool(id, value); }
    void Set(unsigned long long id, int value) { fRecord.SetInt32(id, value); }
    void Set(unsigned long long id, unsigned int value) { fRecord.SetUInt32(id, value); }
    void Set(unsigned long long id, long long value) { fRecord.SetInt64(id, value); }
    void Set(unsigned long long id, unsigned long long value) { fRecord.SetUInt64(id, value); }
    void Set(unsigned long long id, float value) { fRecord.SetFloat(id, value); }
    void Set(unsigned long long id, double value) { fRecord.SetDouble(id, value); }
    void Set(unsigned long long id, const std::string& value) { fRecord.SetString(id, value); }

    Kind fRecord;
};

using Record = RecordOf<zRecord>;

const std::vector<Item> gItems = make_items(30);

/// A record whose first thirteen variables are registered members, as formats have them.
class Members : public zRecord {
public:
    Members() : Members(std::make_index_sequence<kCount>()) {}
    Members(const Members& source) : Members() { Copy(source, true, true, {}); }
    Members& operator=(const Members& source) {
        Copy(source, true, true, {});
        return *this;
    }

private:
    static constexpr std::size_t kCount = 13;

    template <std::size_t... Index>
    explicit Members(std::index_sequence<Index...>) : fMembers{zVariable(gItems[Index].id)...} {
        zVariable* pointers[] = {&fMembers[Index]...};
        RegisterVariables('bnMb', pointers, kCount);
    }
    zVariable fMembers[kCount];
};

using Format = RecordOf<Members>;

/// The number of a value that the rivals find: of an int as it is, of another number converted.
int number_of(const Value& value) {
    return std::visit(
        [](const auto& held) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
                return static_cast<int>(held);
            } else {
                return 0;
            }
        },
        value);
}

template <class ByIDMap, class ByKeyMap>
class Maps {
public:
    void Put(const Item& item) { fByID[item.id] = item.value; }
    void PutKey(const Item& item) { fByKey[item.key] = item.value; }
    int ByID(const Item& item) const {
        const auto found = fByID.find(item.id);
        return found == fByID.end() ? 0 : number_of(found->second);
    }
    int ByKey(const Item& item) const {
        const auto found = fByKey.find(item.key);
        return found == fByKey.end() ? 0 : number_of(found->second);
    }

private:
    ByIDMap fByID;
    ByKeyMap fByKey;
};

using Map = Maps<std::map<unsigned long long, Value>, std::map<std::string, Value>>;
using HashMap =
    Maps<std::unordered_map<unsigned long long, Value>, std::unordered_map<std::string, Value>>;

template <class Key>
class FlatMap {
public:
    Value& operator[](const Key& key) { return fItems.insert(lower(key), {key, Value()})->second; }
    auto find(const Key& key) const {
        const auto at = const_cast<FlatMap*>(this)->lower(key);
        return at != fItems.end() && at->first == key ? at : end();
    }
    typename std::vector<std::pair<Key, Value>>::const_iterator end() const { return fItems.end(); }

private:
    auto lower(const Key& key) {
        return std::lower_bound(fItems.begin(), fItems.end(), key,
                                [](const auto& item, const Key& k) { return item.first < k; });
    }
    std::vector<std::pair<Key, Value>> fItems;
};

using FlatVector = Maps<FlatMap<unsigned long long>, FlatMap<std::string>>;

template <class Container>
Container filled(const std::vector<Item>& items) {
    Container container;
    for (const Item& item : items) container.Put(item);
    return container;
}

template <class Container>
void Copy(benchmark::State& state) {
    const auto source = filled<Container>(make_items(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        Container copy(source);
        benchmark::DoNotOptimize(copy);
    }
}

/// Copies over an older copy: what a writer does that keeps the last frame's format.
template <class Container>
void Assign(benchmark::State& state) {
    const auto source = filled<Container>(make_items(static_cast<int>(state.range(0))));
    Container copy(source);
    for (auto _ : state) {
        copy = source;
        benchmark::DoNotOptimize(copy);
    }
}

template <class Container>
void FindByID(benchmark::State& state) {
    const auto items = make_items(static_cast<int>(state.range(0)));
    const auto container = filled<Container>(items);
    const auto asked = shuffled(items);
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(container.ByID(asked[at]));
        at = at + 1 == asked.size() ? 0 : at + 1;
    }
}

template <class Container>
void FindByKey(benchmark::State& state) {
    const auto items = make_items(static_cast<int>(state.range(0)));
    Container container;
    for (const Item& item : items) {
        if constexpr (std::is_same_v<Container, Record>) {
            container.Put(item);
        } else {
            container.PutKey(item);
        }
    }
    const auto asked = shuffled(items);
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(container.ByKey(asked[at]));
        at = at + 1 == asked.size() ? 0 : at + 1;
    }
}

}  // namespace

#define RECORD_BENCH(function)                                           \
    BENCHMARK_TEMPLATE(function, Record)->Arg(5)->Arg(30)->Arg(100);     \
    BENCHMARK_TEMPLATE(function, FlatVector)->Arg(5)->Arg(30)->Arg(100); \
    BENCHMARK_TEMPLATE(function, HashMap)->Arg(5)->Arg(30)->Arg(100);    \
    BENCHMARK_TEMPLATE(function, Map)->Arg(5)->Arg(30)->Arg(100)

BENCHMARK_TEMPLATE(Copy, Format)->Arg(30);
BENCHMARK_TEMPLATE(Assign, Format)->Arg(30);
BENCHMARK_TEMPLATE(FindByID, Format)->Arg(30);
RECORD_BENCH(Copy);
RECORD_BENCH(Assign);
RECORD_BENCH(FindByID);
RECORD_BENCH(FindByKey);
