#pragma once

#include <string>

class zRecord;

// XML that people write, as records. Where something is wrong, `error` says in one line what, where
// and what to do.

/// Reads a file whole.
bool ReadXmlFile(const std::string& path, std::string& text, std::string& error);

/// Reads one document; `where` names it in errors. Unlike the library's reader, which is made for
/// files that a crash has cut, it takes nothing that ends too early.
bool ParseXmlText(const std::string& text, const std::string& where, zRecord& record,
                  std::string& error);

/// The name of a record's element.
std::string XmlTagOf(const zRecord& record);
