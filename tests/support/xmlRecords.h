#pragma once

#include <gtest/gtest.h>
#include <string>

#include "spar/zMemoryStream.h"
#include "spar/zRecord.h"
#include "spar/zXML.h"

// Records there and back through XML, for tests.

namespace records {

inline constexpr unsigned int kWrite = 5;
inline constexpr unsigned int kRead = 1;

inline std::string written(const zRecord& record, const char* separator = "\n", int depth = 0) {
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, &stream, separator, depth), 0);
    return std::string(stream.Content());
}

inline int parse(const std::string& text, zRecord& record) {
    return zXML::ParseMemory(kRead, &record, text.data(), text.size());
}

/// What XML looks like that describes the record, for comparing trees by eye.
inline std::string parsed_as(const std::string& text) {
    zRecord record;
    const int result = parse(text, record);
    return result != 0 ? std::to_string(result) : written(record, nullptr);
}

inline zRecord tagged(const char* tag) {
    zRecord record;
    record.SetCString('xTag', tag);
    return record;
}

inline zRecord& add_child(zRecord& parent, const char* tag) {
    auto* child = new zRecord(tagged(tag));
    parent.AddChild(child, 0x7FFFFFFF);
    return *child;
}

}  // namespace records
