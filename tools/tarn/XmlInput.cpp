#include "XmlInput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>

#include "spar/zRecord.h"
#include "spar/zXML.h"

namespace {

std::string xml_trouble(int code) {
    switch (code) {
        case zXML::kNoElement:
            return "holds no whole XML element; give it one, with its end";
        case zXML::kDoctype:
            return "has a document type, which is not read; take the DOCTYPE out";
        case zXML::kTooDeep:
            return fmt::format("has more than {} elements within each other; take some out",
                               zXML::kMaxDepth);
        case zXML::kTooBig:
            return "is larger than what is read; is it the right file?";
        default:
            return "is not well-formed XML; check its tags and quotes (xmllint shows the line)";
    }
}

bool is_closed(const std::string& text, const zRecord& record) {
    if (text.rfind("</" + XmlTagOf(record)) != std::string::npos) return true;
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return !record.HasChildren() && last > 0 && text.compare(last - 1, 2, "/>") == 0;
}

/// Why a file is not read, as far as its name shows; empty when it may be.
std::string path_trouble(const std::string& path) {
    std::error_code failed;
    switch (std::filesystem::status(path, failed).type()) {
        case std::filesystem::file_type::regular:
            return "";
        case std::filesystem::file_type::not_found:
            return "there is no such file; check its path";
        case std::filesystem::file_type::none:
            return fmt::format("cannot be read: {}; check its path", failed.message());
        case std::filesystem::file_type::directory:
            return "is a folder; name a file in it";
        default:
            return "is a pipe or a device, which may never end; write its text into a file";
    }
}

}  // namespace

std::string XmlTagOf(const zRecord& record) {
    return record.AsString('xTag', "");
}

bool ReadXmlFile(const std::string& path, std::string& text, std::string& error) {
    const std::string trouble = path_trouble(path);
    if (!trouble.empty()) {
        error = fmt::format("'{}': {}", path, trouble);
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
    const bool isWhole = std::ferror(file) == 0;
    if (!isWhole) {
        error = fmt::format("'{}': cannot be read to its end: {}; check its disk", path,
                            std::strerror(errno));
    }
    std::fclose(file);
    if (isWhole && text.size() > zXML::kMaxTagBytes) {
        error = fmt::format("'{}': is larger than {} bytes; is it the right file?", path,
                            zXML::kMaxTagBytes);
        return false;
    }
    return isWhole;
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
