#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "spar/zRecord.h"

// How names and values of records look as XML names and attribute values. Both ways are exact for
// any bytes; what was not written by this code is taken as it stands.

/// The tag of an element whose record has no text under 'xTag'.
inline constexpr std::string_view kUntagged = "_xrecord";

/// Appends `name` as an XML name. Bytes that a name cannot hold become _xHH_, and so does an
/// underscore that begins what would be taken for such a form.
void append_xml_name(std::string& out, std::string_view name);
std::string name_from_xml(std::string_view name);
/// The key of an attribute's name. No key holds a zero byte: a name that spells one is the key as
/// it stands.
std::string key_from_xml(std::string_view name);

/// Appends the attribute name of the variable `id`: its key, or _xid_ and the digits of the id.
void append_xml_key(std::string& out, unsigned long long id);
/// The id that an attribute name gives in digits.
std::optional<unsigned long long> id_from_xml(std::string_view name);

/// Appends the value as text fit to stand between double quotes.
void append_xml_value(std::string& out, const zVariable& variable);
/// Sets the variable `id` of `record` to what the attribute value says.
void set_from_xml(zRecord& record, unsigned long long id, std::string_view value);
