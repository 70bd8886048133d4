#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "spar/zRecord.h"
#include "spar/zStringID.h"

#include "tests/support/SweepStride.h"

// Random operations on a few records, plain ones and ones with registered members, and on a plain
// model of each; after every step each record must say what its model says.

namespace {

using Random = std::mt19937_64;
using Value = std::variant<bool, int, unsigned int, long long, unsigned long long, float, double,
                           std::string>;

/// Values by id, the order of first setting, children.
struct Model {
    std::map<unsigned long long, Value> values;
    std::vector<unsigned long long> order;
    std::vector<std::shared_ptr<Model>> children;

    void Set(unsigned long long id, Value value) {
        if (values.count(id) == 0) order.push_back(id);
        values[id] = std::move(value);
    }
    void Remove(unsigned long long id) {
        values.erase(id);
        std::erase(order, id);
    }
    std::shared_ptr<Model> Clone() const {
        auto clone = std::make_shared<Model>(*this);
        for (auto& child : clone->children) child = child->Clone();
        return clone;
    }
};

constexpr unsigned long long kMemberIDs[] = {'rmM0', 'rmM1', 'rmM2', 'rmM3'};

class Member4 : public zRecord {
public:
    Member4() {
        zVariable* members[] = {&fM0, &fM1, &fM2, &fM3};
        RegisterVariables('rmM4', members, 4);
    }

private:
    zVariable fM0{kMemberIDs[0]};
    zVariable fM1{kMemberIDs[1]};
    zVariable fM2{kMemberIDs[2]};
    zVariable fM3{kMemberIDs[3]};
};

struct Pair {
    std::unique_ptr<zRecord> record;
    std::shared_ptr<Model> model;
    bool hasMembers;
};

/// What keys name what: some ids have a key, some keys have no id of their own.
struct Name {
    unsigned long long id;
    std::string key;  // empty: reached by id alone
};

std::vector<Name> make_names() {
    std::vector<Name> names;
    for (unsigned long long i = 0; i < 40; ++i) {
        const unsigned long long id = i < 4 ? kMemberIDs[i] : 0x726d3030 + i;
        if (i % 3 != 0) {
            names.push_back({id, ""});
            continue;
        }
        names.push_back({id, "record_model_" + std::to_string(i)});
        zStringID::Default().Add(id, names.back().key.c_str(), false);
    }
    for (int i = 0; i < 10; ++i) {
        const std::string key = "record_model_free_" + std::to_string(i);
        names.push_back({zStringID::Default().FindOrMake(key), key});
    }
    return names;
}

Value random_value(Random& random) {
    switch (random() % 8) {
        case 0:
            return random() % 2 == 0;
        case 1:
            return static_cast<int>(random());
        case 2:
            return static_cast<unsigned int>(random());
        case 3:
            return static_cast<long long>(random());
        case 4:
            return static_cast<unsigned long long>(random());
        case 5:
            return static_cast<float>(random() % 1000) / 7;
        case 6:
            return static_cast<double>(random() % 1000) / 7;
        default:
            return std::string(random() % 50, static_cast<char>('a' + random() % 26));
    }
}

template <class Where>
void set(zRecord& record, Where where, const Value& value) {
    struct Visitor {
        zRecord& record;
        Where where;
        void operator()(bool v) { record.SetBool(where, v); }
        void operator()(int v) { record.SetInt32(where, v); }
        void operator()(unsigned int v) { record.SetUInt32(where, v); }
        void operator()(long long v) { record.SetInt64(where, v); }
        void operator()(unsigned long long v) { record.SetUInt64(where, v); }
        void operator()(float v) { record.SetFloat(where, v); }
        void operator()(double v) { record.SetDouble(where, v); }
        void operator()(const std::string& v) { record.SetCString(where, v.c_str()); }
    };
    std::visit(Visitor{record, where}, value);
}

template <class Where>
Value get(const zRecord& record, Where where, const Value& like) {
    struct Visitor {
        const zRecord& record;
        Where where;
        Value operator()(bool v) { return record.AsBool(where, !v); }
        Value operator()(int v) { return record.AsInt32(where, ~v); }
        Value operator()(unsigned int v) { return record.AsUInt32(where, ~v); }
        Value operator()(long long v) { return record.AsInt64(where, ~v); }
        Value operator()(unsigned long long v) { return record.AsUInt64(where, ~v); }
        Value operator()(float v) { return record.AsFloat(where, v + 1); }
        Value operator()(double v) { return record.AsDouble(where, v + 1); }
        Value operator()(const std::string&) { return record.AsString(where, "missing"); }
    };
    return std::visit(Visitor{record, where}, like);
}

/// Members first, in their order; then the rest as they were first set.
std::vector<unsigned long long> expected_order(const Model& model, bool hasMembers) {
    std::vector<unsigned long long> order;
    const auto isMember = [&](unsigned long long id) {
        return hasMembers && std::count(std::begin(kMemberIDs), std::end(kMemberIDs), id) != 0;
    };
    for (const unsigned long long id : kMemberIDs) {
        if (hasMembers && model.values.count(id) != 0) order.push_back(id);
    }
    for (const unsigned long long id : model.order) {
        if (!isMember(id)) order.push_back(id);
    }
    return order;
}

void check(const zRecord& record, const Model& model, bool hasMembers,
           const std::vector<Name>& names) {
    std::vector<unsigned long long> order;
    record.ForEachVariable([&](const zVariable& variable) {
        order.push_back(variable.ID());
        return true;
    });
    ASSERT_EQ(order, expected_order(model, hasMembers));
    ASSERT_EQ(record.VariableCount(), model.values.size());
    ASSERT_EQ(record.IsEmpty(), model.values.empty() && model.children.empty());
    for (const Name& name : names) {
        const auto held = model.values.find(name.id);
        ASSERT_EQ(record.ExistsID(name.id), held != model.values.end());
        if (held == model.values.end()) {
            ASSERT_EQ(record.AsInt64(name.id, 77), 77);
            continue;
        }
        ASSERT_EQ(get(record, name.id, held->second), held->second);
        if (name.key.empty()) continue;
        ASSERT_EQ(get(record, name.key.c_str(), held->second), held->second);
    }
    ASSERT_EQ(record.ChildCount(), model.children.size());
    for (unsigned int i = 0; i < record.ChildCount(); ++i) {
        check(*record.Child(i), *model.children[i], false, names);
    }
}

/// Models remember an order for members that records do not: a plain copy of a record with members
/// has them in front.
void reorder(Model& model, bool sourceHasMembers) {
    model.order = expected_order(model, sourceHasMembers);
}

void step(std::vector<Pair>& pairs, const std::vector<Name>& names, Random& random) {
    Pair& pair = pairs[random() % pairs.size()];
    const Name& name = names[random() % names.size()];
    const Pair& other = pairs[random() % pairs.size()];
    switch (random() % 12) {
        default: {
            const Value value = random_value(random);
            pair.model->Set(name.id, value);
            if (!name.key.empty() && random() % 2 == 0) {
                set(*pair.record, name.key.c_str(), value);
            } else {
                set(*pair.record, name.id, value);
            }
            break;
        }
        case 0:
            pair.model->Remove(name.id);
            pair.record->RemoveID(name.id);
            break;
        case 1:
            if (name.key.empty()) break;
            pair.model->Remove(name.id);
            pair.record->RemoveKey(name.key.c_str());
            break;
        case 2:
            if (&pair == &other) break;
            pair.record->Copy(*other.record, true, true, {});
            pair.model = other.model->Clone();
            reorder(*pair.model, other.hasMembers);
            break;
        case 3: {
            // A member set through the record keeps its first place among the model's ids, which
            // is why a copy to a plain record asks for the members' order.
            if (pair.model->children.size() >= 4) break;
            auto child = std::make_unique<zRecord>(*other.record);
            auto model = other.model->Clone();
            reorder(*model, other.hasMembers);
            if (child->ChildCount() > 2) break;  // trees stay small
            const int position = static_cast<int>(random() % 5);
            const auto at = std::min<std::size_t>(position, pair.model->children.size());
            pair.model->children.insert(pair.model->children.begin() + at, model);
            pair.record->AddChild(child.release(), position);
            break;
        }
        case 4: {
            if (pair.model->children.empty()) break;
            const auto at = random() % pair.model->children.size();
            zRecord* child = pair.record->Child(static_cast<unsigned int>(at));
            pair.record->RemoveChildPtr(child);
            delete child;
            pair.model->children.erase(pair.model->children.begin() + static_cast<long>(at));
            break;
        }
    }
}

TEST(zRecordModel, RandomOperationsAgreeWithAPlainModel) {
    const std::vector<Name> names = make_names();
    for (unsigned int seed = 1; seed <= 20;
         seed += static_cast<unsigned int>(tests::SweepStride())) {
        Random random(seed);
        std::vector<Pair> pairs;
        for (int i = 0; i < 4; ++i) {
            const bool hasMembers = i % 2 == 0;
            pairs.push_back({hasMembers ? std::make_unique<Member4>() : std::make_unique<zRecord>(),
                             std::make_shared<Model>(), hasMembers});
        }
        for (int i = 0; i < 1500; ++i) {
            step(pairs, names, random);
            if (i % 10 != 0) continue;
            for (const Pair& pair : pairs) {
                check(*pair.record, *pair.model, pair.hasMembers, names);
                ASSERT_FALSE(::testing::Test::HasFatalFailure())
                    << "seed " << seed << " step " << i;
            }
        }
    }
}

}  // namespace
