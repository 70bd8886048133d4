#pragma once

#include <initializer_list>
#include <string>

class zRecord;

// What people wrote into the attributes of an element. A word that is no such value must not pass
// as the default that stands for an attribute which is not there: each reader leaves `value` alone
// for a missing key, and says false, with one line in `error`, for a word that it does not take.
// `where` begins that line.

/// The attribute as it was written; empty without one.
std::string ElementText(const zRecord& element, const char* key);

/// "true" or "1", "false" or "0".
bool ReadTruth(const zRecord& element, const char* key, bool& value, const std::string& where,
               std::string& error);
/// A whole number of the range, which is every number for those of `int`.
bool ReadWhole(const zRecord& element, const char* key, int least, int most, int& value,
               const std::string& where, std::string& error);
/// A number of the range, with a decimal point or without.
bool ReadNumber(const zRecord& element, const char* key, double least, double most, double& value,
                const std::string& where, std::string& error);

/// False, with one line that names an attribute that is none of `known` and lists those.
bool KnowsAttributes(const zRecord& element, std::initializer_list<const char*> known,
                     const std::string& where, std::string& error);
