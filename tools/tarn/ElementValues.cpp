#include "ElementValues.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>

#include "spar/zRecord.h"
#include "spar/zStringID.h"

namespace {

/// The whole text as a number: no blanks, nothing behind it.
template <typename Number>
bool parse(const std::string& text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto [stopped, failure] = std::from_chars(text.data(), end, value);
    return failure == std::errc() && stopped == end;
}

}  // namespace

std::string ElementText(const zRecord& element, const char* key) {
    char scratch[64] = {};
    return element.AsCString(key, "", &scratch);
}

bool ReadTruth(const zRecord& element, const char* key, bool& value, const std::string& where,
               std::string& error) {
    if (!element.ExistsKey(key)) return true;
    const std::string text = ElementText(element, key);
    const bool yes = text == "true" || text == "1";
    if (!yes && text != "false" && text != "0") {
        error = fmt::format("{}: {}=\"{}\" is neither true nor false; write one of the two", where,
                            key, text);
        return false;
    }
    value = yes;
    return true;
}

bool ReadWhole(const zRecord& element, const char* key, int least, int most, int& value,
               const std::string& where, std::string& error) {
    if (!element.ExistsKey(key)) return true;
    const std::string text = ElementText(element, key);
    int read = 0;
    if (!parse(text, read) || read < least || read > most) {
        const bool hasRange = least != std::numeric_limits<int>::min();
        error = fmt::format("{}: {}=\"{}\" is no whole number{}; write one in plain digits", where,
                            key, text, hasRange ? fmt::format(" from {} to {}", least, most) : "");
        return false;
    }
    value = read;
    return true;
}

bool ReadNumber(const zRecord& element, const char* key, double least, double most, double& value,
                const std::string& where, std::string& error) {
    if (!element.ExistsKey(key)) return true;
    const std::string text = ElementText(element, key);
    double read = 0;
    if (!parse(text, read) || !std::isfinite(read) || read < least || read > most) {
        error =
            fmt::format("{}: {}=\"{}\" is no number from {:g} to {:g}; write one in plain digits",
                        where, key, text, least, most);
        return false;
    }
    value = read;
    return true;
}

bool KnowsAttributes(const zRecord& element, std::initializer_list<const char*> known,
                     const std::string& where, std::string& error) {
    bool knows = true;
    element.ForEachVariable([&](const zVariable& variable) {
        const char* const key = zStringID::Default().Key(variable.ID());
        const std::string name = key ? key : "";
        knows =
            variable.ID() == 'xTag' || std::find(known.begin(), known.end(), name) != known.end();
        if (!knows) {
            error = fmt::format("{}: {}=\"{}\" is unknown; there are: {}", where, name,
                                ElementText(element, name.c_str()), fmt::join(known, ", "));
        }
        return knows;
    });
    return knows;
}
