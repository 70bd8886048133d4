#include "spar/zVariable.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace {

/// A value as the widest number of its sort.
struct Number {
    /// BEYOND is a whole number that 64 bits do not hold, as the real next to it, which they might.
    enum Sort { NONE, SIGNED, UNSIGNED, REAL, BEYOND };
    Sort sort = NONE;
    long long whole = 0;
    unsigned long long natural = 0;
    double real = 0;
};

Number signed_number(long long value) {
    return {Number::SIGNED, value, 0, 0};
}

Number unsigned_number(unsigned long long value) {
    return {Number::UNSIGNED, 0, value, 0};
}

Number real_number(double value) {
    return {Number::REAL, 0, 0, value};
}

Number beyond_number(double value) {
    return {Number::BEYOND, 0, 0, value};
}

bool begins_like_number(std::string_view text) {
    if (!text.empty() && text.front() == '-') text.remove_prefix(1);
    return !text.empty() && ((text.front() >= '0' && text.front() <= '9') || text.front() == '.');
}

bool is_whole(std::string_view text) {
    return text.find_first_not_of("0123456789", text.starts_with('-') ? 1 : 0) == text.npos;
}

template <class T>
bool spells(std::string_view text, T& value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

/// The number that the whole text spells. The words "inf" and "nan" spell none.
Number number_of(std::string_view text) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    if (!begins_like_number(text)) return {};
    long long whole = 0;
    if (spells(text, whole)) return signed_number(whole);
    unsigned long long natural = 0;
    if (spells(text, natural)) return unsigned_number(natural);
    double real = 0;
    if (!spells(text, real)) return {};
    return is_whole(text) ? beyond_number(real) : real_number(real);
}

/// The limit of T above which no real fits: a power of two, and so exact as a double.
template <class T>
constexpr double beyond() {
    return 2.0 * static_cast<double>(std::numeric_limits<T>::max() / 2 + 1);
}

template <class T>
T integer_of(const Number& number, T defaultValue) {
    using Limits = std::numeric_limits<T>;
    switch (number.sort) {
        case Number::SIGNED:
            if constexpr (std::is_signed_v<T>) {
                if (number.whole < Limits::min() || number.whole > Limits::max()) break;
            } else {
                if (number.whole < 0) break;
                if (static_cast<unsigned long long>(number.whole) > Limits::max()) break;
            }
            return static_cast<T>(number.whole);
        case Number::UNSIGNED:
            if (number.natural > static_cast<unsigned long long>(Limits::max())) break;
            return static_cast<T>(number.natural);
        case Number::REAL: {
            const double whole = std::trunc(number.real);
            // Written so that a NaN, which compares false, falls out.
            if (!(whole >= static_cast<double>(Limits::min()) && whole < beyond<T>())) break;
            return static_cast<T>(whole);
        }
        case Number::BEYOND:
        case Number::NONE:
            break;
    }
    return defaultValue;
}

double real_of(const Number& number, double defaultValue) {
    switch (number.sort) {
        case Number::SIGNED:
            return static_cast<double>(number.whole);
        case Number::UNSIGNED:
            return static_cast<double>(number.natural);
        case Number::REAL:
        case Number::BEYOND:
            return number.real;
        case Number::NONE:
            break;
    }
    return defaultValue;
}

char* copied_text(std::string_view text) {
    char* copy = new char[text.size() + 1];
    if (!text.empty()) std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return copy;
}

}  // namespace

/// Spells the value of a number kind; false for any other.
static bool spell(const zVariable& variable, char (&text)[64]) {
    char* end = text + sizeof(text) - 1;
    std::to_chars_result result{text, std::errc()};
    switch (variable.Kind()) {
        case ZV_BOOL:
        case ZV_INT32:
        case ZV_INT64:
            result = std::to_chars(text, end, variable.AsInt64(0));
            break;
        case ZV_UINT32:
        case ZV_UINT64:
            result = std::to_chars(text, end, variable.AsUInt64(0));
            break;
        case ZV_FLOAT:
            result = std::to_chars(text, end, variable.AsFloat(0));
            break;
        case ZV_DOUBLE:
            result = std::to_chars(text, end, variable.AsDouble(0));
            break;
        case ZV_UNSET:
        case ZV_STRING:
            return false;
    }
    *result.ptr = 0;
    return true;
}

template <class Value>
static Number number_in(zVariableType kind, const Value& value, std::string_view text) {
    switch (kind) {
        case ZV_BOOL:
            return signed_number(value.boolean ? 1 : 0);
        case ZV_INT32:
            return signed_number(value.int32);
        case ZV_UINT32:
            return unsigned_number(value.uint32);
        case ZV_INT64:
            return signed_number(value.int64);
        case ZV_UINT64:
            return unsigned_number(value.uint64);
        case ZV_FLOAT:
            return real_number(value.float32);
        case ZV_DOUBLE:
            return real_number(value.float64);
        case ZV_STRING:
            return number_of(text);
        case ZV_UNSET:
            break;
    }
    return {};
}

int zVariable::AsInt32_full(int defaultValue) const {
    return integer_of<int>(number_in(Kind(), fValue, Text()), defaultValue);
}

bool zVariable::AsBool(bool defaultValue) const {
    if (Kind() == ZV_BOOL) return fValue.boolean;
    const Number number = number_in(Kind(), fValue, Text());
    switch (number.sort) {
        case Number::SIGNED:
            return number.whole != 0;
        case Number::UNSIGNED:
            return number.natural != 0;
        case Number::REAL:
        case Number::BEYOND:
            return std::isnan(number.real) ? defaultValue : number.real != 0;
        case Number::NONE:
            break;
    }
    return defaultValue;
}

unsigned short zVariable::AsUInt16(unsigned short defaultValue) const {
    return integer_of<unsigned short>(number_in(Kind(), fValue, Text()), defaultValue);
}

unsigned int zVariable::AsUInt32(unsigned int defaultValue) const {
    if (Kind() == ZV_UINT32) return fValue.uint32;
    return integer_of<unsigned int>(number_in(Kind(), fValue, Text()), defaultValue);
}

long long zVariable::AsInt64(long long defaultValue) const {
    if (Kind() == ZV_INT64) return fValue.int64;
    return integer_of<long long>(number_in(Kind(), fValue, Text()), defaultValue);
}

unsigned long long zVariable::AsUInt64(unsigned long long defaultValue) const {
    if (Kind() == ZV_UINT64) return fValue.uint64;
    return integer_of<unsigned long long>(number_in(Kind(), fValue, Text()), defaultValue);
}

float zVariable::AsFloat(float defaultValue) const {
    if (Kind() == ZV_FLOAT) return fValue.float32;
    const Number number = number_in(Kind(), fValue, Text());
    if (number.sort == Number::NONE) return defaultValue;
    const double real = real_of(number, 0);
    const float narrow = static_cast<float>(real);
    // A finite number past the largest float has no float that stands for it.
    return std::isinf(narrow) && !std::isinf(real) ? defaultValue : narrow;
}

double zVariable::AsDouble(double defaultValue) const {
    if (Kind() == ZV_DOUBLE) return fValue.float64;
    return real_of(number_in(Kind(), fValue, Text()), defaultValue);
}

const char* zVariable::AsCString(const char* defaultValue, char (*scratch)[64]) const {
    if (IsHeapBacked()) return fValue.text;
    return scratch != nullptr && spell(*this, *scratch) ? *scratch : defaultValue;
}

std::string zVariable::AsString(const std::string& defaultValue) const {
    if (IsHeapBacked()) return std::string(Text());
    char text[64];
    return spell(*this, text) ? std::string(text) : defaultValue;
}

void zVariable::SetCString(const char* value) {
    if (value == nullptr) {
        Unset();
    } else {
        SetText(value);
    }
}

void zVariable::SetText(std::string_view value) {
    // Copied before the old text goes: `value` may be that text.
    char* copy = copied_text(value);
    replace(ZV_STRING).text = copy;
    fLength = static_cast<unsigned int>(value.size());
}

void zVariable::full_copy(zVariableType kind, const zVariable& source) {
    if (this == &source) return;
    fID = source.fID;
    if (kind == ZV_STRING) {
        SetText(source.Text());
    } else {
        replace(kind) = source.fValue;
    }
}

void zVariable::copy_text_to(char* storage) {
    std::memcpy(storage, fValue.text, std::size_t{fLength} + 1);
    fValue.text = storage;
    fKind |= kLentFlag;
}
