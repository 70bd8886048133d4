#pragma once

#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include "spar/zRecord.h"

// Records for tests: what two of them differ in, and random ones with every kind in them.

namespace records {

using Random = std::mt19937_64;

inline ::testing::AssertionResult SameValue(const zVariable& a, const zVariable& b) {
    if (a.Kind() != b.Kind()) {
        return ::testing::AssertionFailure() << "kinds " << a.Kind() << " and " << b.Kind();
    }
    bool same = true;
    switch (a.Kind()) {
        case ZV_FLOAT:
            same = std::bit_cast<std::uint32_t>(a.AsFloat(0)) ==
                   std::bit_cast<std::uint32_t>(b.AsFloat(0));
            break;
        case ZV_DOUBLE:
            same = std::bit_cast<std::uint64_t>(a.AsDouble(0)) ==
                   std::bit_cast<std::uint64_t>(b.AsDouble(0));
            break;
        case ZV_UINT32:
        case ZV_UINT64:
            same = a.AsUInt64(0) == b.AsUInt64(0);
            break;
        case ZV_STRING:
            same = a.Text() == b.Text();
            break;
        default:
            same = a.AsInt64(0) == b.AsInt64(0);
    }
    if (same) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "values '" << a.AsString("") << "' and '" << b.AsString("") << "'";
}

/// Same variables of the same kinds and values, bit for bit, in whatever order, and same children
/// in the same order.
inline ::testing::AssertionResult Same(const zRecord& a, const zRecord& b) {
    auto result = ::testing::AssertionSuccess();
    if (a.VariableCount() != b.VariableCount()) {
        return ::testing::AssertionFailure()
               << a.VariableCount() << " and " << b.VariableCount() << " variables:\n"
               << a.Description() << b.Description();
    }
    a.ForEachVariable([&](const zVariable& variable) {
        const zVariable* other = b.FindVariable(variable.ID());
        if (other == nullptr) {
            result = ::testing::AssertionFailure() << "no variable " << variable.ID();
        } else if (auto same = SameValue(variable, *other); !same) {
            result = ::testing::AssertionFailure()
                     << "id " << variable.ID() << ": " << same.message();
        }
        return static_cast<bool>(result);
    });
    if (!result) return result;
    if (a.ChildCount() != b.ChildCount()) {
        return ::testing::AssertionFailure()
               << a.ChildCount() << " and " << b.ChildCount() << " children";
    }
    for (unsigned int i = 0; i < a.ChildCount() && result; ++i) {
        const zRecord* left = a.Child(i);
        const zRecord* right = b.Child(i);
        if ((left == nullptr) != (right == nullptr)) {
            return ::testing::AssertionFailure() << "one child " << i << " is null";
        }
        if (left != nullptr) result = Same(*left, *right);
    }
    return result;
}

/// Texts of all sorts: words, any bytes, markup, what looks like another kind's value.
inline std::string RandomText(Random& random) {
    static const std::string kAwkward[] = {"",
                                           " ",
                                           "a&b<c>\"d\"'e'",
                                           "\t\r\n \r\n",
                                           "int32:5",
                                           "text:%41",
                                           "100%",
                                           "%zz",
                                           "bool:true",
                                           "uint64:",
                                           "ключ и значение",
                                           "\xF0\x9F\x8E\xAC",
                                           "\xEF\xBF\xBE",
                                           "\xED\xA0\x80",
                                           "\xC0\x80",
                                           "\xFF\xFE",
                                           "cut \xE2\x82",
                                           std::string("zero\0byte", 9),
                                           "]]>",
                                           "<!-- -->",
                                           "&#0;",
                                           "nan"};
    const auto kind = random() % 3;
    if (kind == 0) return kAwkward[random() % std::size(kAwkward)];
    std::string text;
    for (auto left = random() % 40; left > 0; --left) {
        text += static_cast<char>(kind == 1 ? 'a' + random() % 26 : random() % 256);
    }
    return text;
}

inline long long RandomWhole(Random& random) {
    using Limits = std::numeric_limits<long long>;
    switch (random() % 5) {
        case 0:
            return static_cast<long long>(random() % 200) - 100;
        case 1:
            return random() % 2 ? Limits::min() : Limits::max();
        case 2:
            return static_cast<long long>(random() % 3) - 1 + std::numeric_limits<int>::max();
        default:
            return static_cast<long long>(random());
    }
}

/// Any bits: infinities, NaNs with their payloads, denormals and both zeros among them.
inline double RandomReal(Random& random) {
    static const double kAwkward[] = {0.0,
                                      -0.0,
                                      0.1,
                                      1e308,
                                      5e-324,
                                      std::numeric_limits<double>::infinity(),
                                      -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN()};
    if (random() % 2) return kAwkward[random() % std::size(kAwkward)];
    return std::bit_cast<double>(random());
}

inline void SetRandom(zRecord& record, unsigned long long id, Random& random) {
    switch (random() % 8) {
        case 0:
            return record.SetBool(id, random() % 2);
        case 1:
            return record.SetInt32(id, static_cast<int>(RandomWhole(random)));
        case 2:
            return record.SetUInt32(id, static_cast<unsigned int>(RandomWhole(random)));
        case 3:
            return record.SetInt64(id, RandomWhole(random));
        case 4:
            return record.SetUInt64(id, static_cast<unsigned long long>(RandomWhole(random)));
        case 5:
            return record.SetFloat(id, std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        case 6:
            return record.SetDouble(id, RandomReal(random));
        default:
            return record.SetString(id, RandomText(random));
    }
}

/// A tree of at most `depth` levels below the root; variables by id, by key and by awkward keys.
inline void FillRandom(zRecord& record, Random& random, int depth) {
    static const char* const kKeys[] = {"id",    "start",    "tn:width", "x",   "_x41_",   "xmlns",
                                        "",      "1st",      "a b",      "a=b", "größe",   "-dash",
                                        "_xid_", "_xrecord", "Xml",      "_x",  "\xFF\x01"};
    for (auto left = random() % 8; left > 0; --left) {
        switch (random() % 3) {
            case 0:
                SetRandom(record, random() % 4 ? random() % 50 : random(), random);
                break;
            case 1: {
                const char* key = kKeys[random() % std::size(kKeys)];
                record.SetInt32(key, 0);
                SetRandom(record, record.FindVariable(key)->ID(), random);
                break;
            }
            default:
                record.SetString('xTag', RandomText(random));
        }
    }
    if (depth == 0) return;
    for (auto left = random() % 4; left > 0; --left) {
        auto child = std::make_unique<zRecord>();
        FillRandom(*child, random, depth - 1);
        record.AddChild(child.release(), 0x7FFFFFFF);
    }
}

}  // namespace records
