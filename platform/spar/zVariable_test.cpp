#include "spar/zVariable.h"

#include <climits>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <utility>

#include "spar/zRecord.h"

namespace {

/// A record whose one variable is a member of it.
class Member : public zRecord {
public:
    Member() {
        zVariable* variables[] = {&fValue};
        RegisterVariables('memb', variables, 1);
    }
    zVariable fValue{'test'};
};

using Setter = std::function<void(zVariable&)>;

zVariable made(const Setter& set) {
    zVariable variable('test');
    set(variable);
    return variable;
}

Setter Bool(bool value) {
    return [=](zVariable& v) { v.SetBool(value); };
}
Setter Int32(int value) {
    return [=](zVariable& v) { v.SetInt32(value); };
}
Setter UInt32(unsigned int value) {
    return [=](zVariable& v) { v.SetUInt32(value); };
}
Setter Int64(long long value) {
    return [=](zVariable& v) { v.SetInt64(value); };
}
Setter UInt64(unsigned long long value) {
    return [=](zVariable& v) { v.SetUInt64(value); };
}
Setter Float(float value) {
    return [=](zVariable& v) { v.SetFloat(value); };
}
Setter Double(double value) {
    return [=](zVariable& v) { v.SetDouble(value); };
}
Setter Text(const char* value) {
    return [=](zVariable& v) { v.SetCString(value); };
}
Setter Nothing() {
    return [](zVariable& v) { v.Unset(); };
}

// A default that no case converts to.
constexpr int kNo = 77;

TEST(zVariable, ConvertsToInt32WhatFitsThere) {
    const std::pair<Setter, int> kCases[] = {
        {Bool(true), 1},
        {Bool(false), 0},
        {Int32(INT_MIN), INT_MIN},
        {UInt32(5), 5},
        {UInt32(0x80000000u), kNo},
        {Int64(INT_MAX), INT_MAX},
        {Int64(INT_MAX + 1ll), kNo},
        {Int64(INT_MIN - 1ll), kNo},
        {UInt64(INT_MAX), INT_MAX},
        {UInt64(ULLONG_MAX), kNo},
        {Float(3.99f), 3},
        {Float(-3.99f), -3},
        {Float(2147483648.0f), kNo},
        {Double(2147483647.9), INT_MAX},
        {Double(2147483648.0), kNo},
        {Double(-2147483648.9), INT_MIN},
        {Double(-2147483649.0), kNo},
        {Double(std::nan("")), kNo},
        {Double(INFINITY), kNo},
        {Text("42"), 42},
        {Text("-42"), -42},
        {Text("+42"), 42},
        {Text("3.99"), 3},
        {Text("1e3"), 1000},
        {Text("2147483648"), kNo},
        {Text(""), kNo},
        {Text(" 42"), kNo},
        {Text("42 "), kNo},
        {Text("42x"), kNo},
        {Text("0x10"), kNo},
        {Text("+-4"), kNo},
        {Text("--4"), kNo},
        {Text("inf"), kNo},
        {Text("nan"), kNo},
        {Text("true"), kNo},
        {Text("-"), kNo},
        {Text("."), kNo},
        {Nothing(), kNo},
    };
    for (std::size_t i = 0; i < std::size(kCases); ++i) {
        const zVariable variable = made(kCases[i].first);
        EXPECT_EQ(variable.AsInt32(kNo), kCases[i].second) << "case " << i;
        EXPECT_EQ(variable.AsInt32_full(kNo), kCases[i].second) << "case " << i;
    }
}

TEST(zVariable, ConvertsToUnsignedNeverFromBelowZero) {
    EXPECT_EQ(made(Int32(-1)).AsUInt32(kNo), 77u);
    EXPECT_EQ(made(Int32(-1)).AsUInt64(kNo), 77u);
    EXPECT_EQ(made(Int64(0x100000000ll)).AsUInt32(kNo), 77u);
    EXPECT_EQ(made(Int64(0xFFFFFFFFll)).AsUInt32(kNo), 0xFFFFFFFFu);
    EXPECT_EQ(made(Double(-0.9)).AsUInt32(kNo), 0u);
    EXPECT_EQ(made(Double(-1.0)).AsUInt32(kNo), 77u);
    EXPECT_EQ(made(Double(18446744073709551616.0)).AsUInt64(kNo), 77u);
    EXPECT_EQ(made(Double(9223372036854775808.0)).AsUInt64(kNo), 9223372036854775808ull);
    EXPECT_EQ(made(Double(9223372036854775808.0)).AsInt64(kNo), 77);
    EXPECT_EQ(made(Double(-9223372036854775808.0)).AsInt64(kNo), LLONG_MIN);
    EXPECT_EQ(made(Text("18446744073709551615")).AsUInt64(kNo), ULLONG_MAX);
    EXPECT_EQ(made(Text("18446744073709551615")).AsInt64(kNo), 77);
    EXPECT_EQ(made(Text("18446744073709551616")).AsUInt64(kNo), 77u);
    EXPECT_EQ(made(Text("-9223372036854775808")).AsInt64(kNo), LLONG_MIN);
    // Whole numbers that round to the least of 64 bits are still below it.
    for (const char* below : {"-9223372036854775809", "-9223372036854776832"})
        EXPECT_EQ(made(Text(below)).AsInt64(kNo), 77) << below;
    EXPECT_EQ(made(UInt64(LLONG_MAX)).AsInt64(kNo), LLONG_MAX);
    EXPECT_EQ(made(UInt64(LLONG_MAX + 1ull)).AsInt64(kNo), 77);
    EXPECT_EQ(made(Int32(65535)).AsUInt16(kNo), 65535);
    EXPECT_EQ(made(Int32(65536)).AsUInt16(kNo), 77);
    EXPECT_EQ(made(Int32(-1)).AsUInt16(kNo), 77);
    EXPECT_EQ(made(Double(65535.5)).AsUInt16(kNo), 65535);
    EXPECT_EQ(made(Nothing()).AsUInt16(kNo), 77);
}

TEST(zVariable, AnyNumberButZeroIsTrue) {
    const std::pair<Setter, bool> kCases[] = {
        {Int32(2), true},     {Int32(0), false},     {Int64(-1), true},  {UInt64(0), false},
        {Float(0.5f), true},  {Double(-0.0), false}, {Text("0"), false}, {Text("1"), true},
        {Text("0.25"), true}, {UInt32(7u), true},    {Bool(true), true}, {Bool(false), false},
    };
    for (std::size_t i = 0; i < std::size(kCases); ++i) {
        EXPECT_EQ(made(kCases[i].first).AsBool(!kCases[i].second), kCases[i].second)
            << "case " << i;
    }
    for (const Setter& none :
         {Text("yes"), Text("true"), Text(""), Double(std::nan("")), Nothing()}) {
        EXPECT_TRUE(made(none).AsBool(true));
        EXPECT_FALSE(made(none).AsBool(false));
    }
}

TEST(zVariable, ConvertsToReals) {
    EXPECT_EQ(made(Int64(LLONG_MAX)).AsDouble(0), 9223372036854775807.0);
    EXPECT_EQ(made(UInt64(ULLONG_MAX)).AsFloat(0), 18446744073709551615.0f);
    EXPECT_EQ(made(Float(0.1f)).AsDouble(0), static_cast<double>(0.1f));
    EXPECT_EQ(made(Double(0.1)).AsFloat(0), 0.1f);
    EXPECT_EQ(made(Text("29.97")).AsDouble(0), 29.97);
    EXPECT_EQ(made(Text("-.5")).AsFloat(0), -0.5f);
    EXPECT_EQ(made(Bool(true)).AsDouble(0), 1.0);
    EXPECT_EQ(made(Double(1e300)).AsFloat(kNo), 77.0f) << "past the largest float";
    EXPECT_TRUE(std::isinf(made(Double(INFINITY)).AsFloat(kNo)));
    EXPECT_TRUE(std::isnan(made(Double(std::nan(""))).AsFloat(kNo)));
    EXPECT_EQ(made(Text("1e999")).AsDouble(kNo), 77.0);
    EXPECT_EQ(made(Nothing()).AsDouble(kNo), 77.0);
    EXPECT_EQ(made(Nothing()).AsFloat(kNo), 77.0f);
}

TEST(zVariable, SpellsNumbersIntoTheScratch) {
    const std::pair<Setter, const char*> kCases[] = {
        {Bool(true), "1"},
        {Bool(false), "0"},
        {Int32(INT_MIN), "-2147483648"},
        {UInt32(UINT_MAX), "4294967295"},
        {Int64(LLONG_MIN), "-9223372036854775808"},
        {UInt64(ULLONG_MAX), "18446744073709551615"},
        {Float(29.97f), "29.97"},
        {Double(0.1), "0.1"},
        {Double(-1.7976931348623157e308), "-1.7976931348623157e+308"},
        {Text("as it is"), "as it is"},
        {Text(""), ""},
    };
    for (const auto& [set, expected] : kCases) {
        const zVariable variable = made(set);
        char scratch[64];
        EXPECT_STREQ(variable.AsCString("default", &scratch), expected);
        EXPECT_EQ(variable.AsString("default"), expected);
    }
    EXPECT_STREQ(made(Int32(5)).AsCString("default"), "default") << "nowhere to spell it";
    EXPECT_EQ(made(Int32(5)).AsCString(nullptr), nullptr);
    char scratch[64];
    EXPECT_STREQ(made(Nothing()).AsCString("default", &scratch), "default");
    EXPECT_EQ(made(Nothing()).AsString("default"), "default");
}

TEST(zVariable, HoldsTextWithZeroBytes) {
    zVariable variable('test');
    variable.SetText(std::string_view("a\0b", 3));
    EXPECT_EQ(variable.Text(), std::string_view("a\0b", 3));
    EXPECT_EQ(variable.AsString(""), std::string("a\0b", 3));
    EXPECT_STREQ(variable.AsCString(""), "a");
}

TEST(zVariable, TakesItsOwnTextAgain) {
    zVariable variable('test');
    variable.SetCString("camera one");
    variable.SetCString(variable.AsCString(nullptr) + 7);
    EXPECT_EQ(variable.Text(), "one");
    variable = *&variable;
    EXPECT_EQ(variable.Text(), "one");
    variable.full_copy(ZV_STRING, variable);
    EXPECT_EQ(variable.Text(), "one");
}

TEST(zVariable, SetToAnIntegerIsOfTheInt32Kind) {
    zVariable variable('test');
    variable.SetCString("x264");
    EXPECT_TRUE(variable.IsHeapBacked());
    variable = 1920;
    EXPECT_EQ(variable.Kind(), ZV_INT32);
    EXPECT_EQ(variable.AsInt32(0), 1920);
    EXPECT_EQ(variable.ID(), static_cast<unsigned long long>('test'));
    variable.SetCString(nullptr);
    EXPECT_FALSE(variable.IsSet());
}

TEST(zVariable, CopiesDeeply) {
    zVariable source('srce');
    source.SetCString("deep");
    zVariable target('targ');
    target = source;
    EXPECT_EQ(target.ID(), static_cast<unsigned long long>('srce')) << "the id comes along";
    EXPECT_NE(static_cast<const void*>(target.Text().data()), source.Text().data());
    source.SetCString("changed");
    EXPECT_EQ(target.Text(), "deep");

    zVariable number('numb');
    number.SetDouble(2.5);
    target = number;  // from heap-backed to a plain kind
    EXPECT_EQ(target.Kind(), ZV_DOUBLE);
    EXPECT_EQ(target.AsDouble(0), 2.5);
    const zVariable copy(source);
    EXPECT_EQ(copy.Text(), "changed");
    target.full_copy(ZV_STRING, copy);
    EXPECT_EQ(target.Text(), "changed");
    target.full_copy(ZV_DOUBLE, number);
    EXPECT_EQ(target.AsDouble(0), 2.5);
}

TEST(zVariable, ThatAVariableIsAMemberIsNotCopiedWithItsValue) {
    const std::function<void(zVariable&)> kSetters[] = {
        [](zVariable& variable) { variable.SetInt32(1080); },
        [](zVariable& variable) {
            variable.SetCString("a text long enough for a heap of its own");
        },
    };
    const std::function<void(zVariable&, const zVariable&)> kCopiers[] = {
        [](zVariable& target, const zVariable& source) { target = source; },
        [](zVariable& target, const zVariable& source) { target.full_copy(source.Kind(), source); },
    };
    for (const auto& set : kSetters) {
        for (const auto& copy : kCopiers) {
            zVariable plain('test');
            set(plain);
            Member member;
            copy(member.fValue, plain);
            EXPECT_TRUE(member.fValue.IsPlaced());
            EXPECT_EQ(member.fValue.AsString(""), plain.AsString(""));

            zVariable other('test');
            copy(other, member.fValue);
            EXPECT_FALSE(other.IsPlaced());
            EXPECT_EQ(other.AsString(""), plain.AsString(""));

            const zVariable made(member.fValue);
            EXPECT_FALSE(made.IsPlaced());
            EXPECT_EQ(made.AsString(""), plain.AsString(""));
        }
    }
}

}  // namespace
