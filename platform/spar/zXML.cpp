#include "spar/zXML.h"

#include <string>

#include "spar/zRecord.h"
#include "spar/zStream.h"
#include "spar/zXMLText.h"

static constexpr unsigned long long kTagID = 'xTag';
static constexpr std::size_t kPieceBytes = 64 * 1024;

namespace {

/// Writes a tree of records, a piece at a time.
class Writer {
public:
    Writer(zStream& stream, const char* separator)
        : fStream(stream), fSeparator(separator == nullptr ? "" : separator) {}

    int WriteDeclaration();
    int WriteElement(const zRecord& record, int depth);
    int Finish() { return hand_on(); }

private:
    void append_margin(int depth);
    int append_tag(const zRecord& record, bool isEmpty);
    void end_line() { fText += fSeparator; }
    int hand_on();

    zStream& fStream;
    const std::string fSeparator;
    std::string fText;         // not handed to the stream yet
    unsigned long fBytes = 0;  // handed to the stream
    unsigned int fElements = 0;
    unsigned int fVariables = 0;
};

int Writer::WriteDeclaration() {
    fText += R"(<?xml version="1.0" encoding="UTF-8"?>)";
    end_line();
    return 0;
}

void Writer::append_margin(int depth) {
    if (!fSeparator.empty() && depth > 0) fText.append(static_cast<std::size_t>(depth), '\t');
}

int Writer::hand_on() {
    fBytes += fText.size();
    if (fBytes > zXML::kMaxDocumentBytes) return zXML::kTooBig;
    const int result = fStream.WriteString(fText);
    fText.clear();
    return result;
}

std::string_view tag_of(const zRecord& record) {
    const zVariable* tag = record.FindVariable(kTagID);
    return tag == nullptr ? std::string_view() : tag->Text();
}

bool has_tag(const zRecord& record) {
    const zVariable* tag = record.FindVariable(kTagID);
    return tag != nullptr && tag->IsHeapBacked();
}

void append_element_name(std::string& out, const zRecord& record) {
    if (has_tag(record)) {
        append_xml_name(out, tag_of(record));
    } else {
        out += kUntagged;
    }
}

int Writer::append_tag(const zRecord& record, bool isEmpty) {
    const std::size_t start = fText.size();
    const zVariable* tag = has_tag(record) ? record.FindVariable(kTagID) : nullptr;
    const unsigned int attributes = record.VariableCount() - (tag == nullptr ? 0 : 1);
    if (attributes > zXML::kMaxAttributes) return zXML::kTooBig;
    fVariables += attributes;
    if (fVariables > zXML::kMaxVariables || ++fElements > zXML::kMaxElements) return zXML::kTooBig;
    fText += '<';
    append_element_name(fText, record);
    record.ForEachVariable([&](const zVariable& variable) {
        if (&variable == tag) return true;
        fText += ' ';
        append_xml_key(fText, variable.ID());
        fText += "=\"";
        append_xml_value(fText, variable);
        fText += '"';
        return true;
    });
    fText += isEmpty ? "/>" : ">";
    if (fText.size() - start <= zXML::kMaxTagBytes) return 0;
    fText.resize(start);
    return zXML::kTooBig;
}

int Writer::WriteElement(const zRecord& record, int depth) {
    append_margin(depth);
    const int tagged = append_tag(record, !record.HasChildren());
    if (tagged != 0) return tagged;
    end_line();
    if (fText.size() >= kPieceBytes) {
        const int handed = hand_on();
        if (handed != 0) return handed;
    }
    if (!record.HasChildren()) return 0;
    for (const zRecord* child : record.Children()) {
        const int written = child == nullptr ? 0 : WriteElement(*child, depth + 1);
        if (written != 0) return written;
    }
    append_margin(depth);
    fText += "</";
    append_element_name(fText, record);
    fText += '>';
    end_line();
    return 0;
}

bool is_too_deep(const zRecord& record, int levels) {
    if (levels == 0) return true;
    for (const zRecord* child : record.Children()) {
        if (child != nullptr && is_too_deep(*child, levels - 1)) return true;
    }
    return false;
}

}  // namespace

int zXML::WriteStream(unsigned int format, const zRecord* record, zStream* stream,
                      const char* separator, int depth) {
    const unsigned int known = kAttributes | kNoDeclaration;
    if (record == nullptr || stream == nullptr) return -22;
    if ((format & kAttributes) == 0 || (format & ~known) != 0) return -22;
    if (is_too_deep(*record, kMaxDepth)) return kTooDeep;
    Writer writer(*stream, separator);
    if ((format & kNoDeclaration) == 0) writer.WriteDeclaration();
    const int written = writer.WriteElement(*record, depth);
    const int finished = writer.Finish();
    return written != 0 ? written : finished;
}
