#include "XmlInput.h"

#include <cstdio>
#include <filesystem>
#include <fmt/format.h>

#include "spar/zRecord.h"
#include "spar/zXML.h"

namespace {

std::string xml_trouble(int code) {
    switch (code) {
        case zXML::kNoElement:
            return "holds no whole XML element";
        case zXML::kDoctype:
            return "has a document type, which is not read; take the DOCTYPE out";
        case zXML::kTooDeep:
        case zXML::kTooBig:
            return "is too deep or too big";
        default:
            return "is not well-formed XML; check its tags and quotes (xmllint shows the line)";
    }
}

bool is_closed(const std::string& text, const zRecord& record) {
    if (text.rfind("</" + XmlTagOf(record)) != std::string::npos) return true;
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return !record.HasChildren() && last > 0 && text.compare(last - 1, 2, "/>") == 0;
}

}  // namespace

std::string XmlTagOf(const zRecord& record) {
    return record.AsString('xTag', "");
}

bool ReadXmlFile(const std::string& path, std::string& text, std::string& error) {
    std::error_code failed;
    if (!std::filesystem::is_regular_file(path, failed)) {
        error = fmt::format("'{}': there is no such file", path);
        return false;
    }
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (!file) {
        error = fmt::format("'{}': cannot be read; check its permissions", path);
        return false;
    }
    text.clear();
    char block[4096];
    std::size_t got = 0;
    while (text.size() <= zXML::kMaxTagBytes &&
           (got = std::fread(block, 1, sizeof block, file)) > 0) {
        text.append(block, got);
    }
    std::fclose(file);
    return true;
}

bool ParseXmlText(const std::string& text, const std::string& where, zRecord& record,
                  std::string& error) {
    const int code = zXML::ParseMemory(zXML::kAttributes, &record, text.data(), text.size());
    if (code != 0) {
        error = fmt::format("{}: {}", where, xml_trouble(code));
        return false;
    }
    if (!is_closed(text, record)) {
        error = fmt::format("{}: ends before </{}>; close its tags", where, XmlTagOf(record));
        return false;
    }
    return true;
}
