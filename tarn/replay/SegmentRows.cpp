#include "tarn/replay/SegmentRows.h"

#include <charconv>

#include "spar/zRecord.h"
#include "tarn/replay/tnReplaySegment.h"

// A row, as zXML writes the record of a segment. In another form a segment takes the parser's way.
static constexpr std::string_view kOpening = "<segment id=\"uint32:";
static constexpr std::string_view kBeforeStart = "\" start=\"int64:";
static constexpr std::string_view kBeforeStop = "\" stop=\"int64:";
static constexpr std::string_view kClosing = "\"/>\n";
static constexpr unsigned int kVariables = 3;

static constexpr unsigned long long kTagID = 'xTag';
static constexpr std::string_view kListName = "segments";

std::string_view SegmentRows::Opening() const {
    return kOpening;
}

static bool cut(std::string_view& text, std::string_view literal) {
    if (!text.starts_with(literal)) return false;
    text.remove_prefix(literal.size());
    return true;
}

/// A number that is followed by a quotation mark has to be whole, so that no end is looked for.
template <class Number>
static bool cut_number(std::string_view& text, Number& value) {
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(read.ptr - text.data()));
    return true;
}

static bool is_named_list(const zRecord& record) {
    const zVariable* const name = record.FindVariable(kTagID);
    return name != nullptr && name->Text() == kListName;
}

/// Whether `parent` is the list that counts: the first in the document, be it elsewhere or still
/// open. The first one that is met settles that: others can only begin behind it.
bool SegmentRows::is_list(const zRecord& root, const zRecord& parent) {
    if (fList == nullptr && &parent != &root && is_named_list(parent)) {
        fList =
            root.FindChildByStrVariable(kTagID, kListName.data(), true, 0xFFFFFFFF, Z_MATCH_EXACT);
    }
    return fList == &parent;
}

zXMLShortcut::Taken SegmentRows::Take(const zRecord& root, const zRecord& parent,
                                      std::string_view text) {
    Taken taken;
    if (!is_list(root, parent)) return taken;
    const unsigned int children = parent.ChildCount();
    std::string_view rest = text;
    for (;;) {
        Row row{0, children, 0, 0};
        const bool isRow = cut(rest, kOpening) && cut_number(rest, row.id) &&
                           cut(rest, kBeforeStart) && cut_number(rest, row.start) &&
                           cut(rest, kBeforeStop) && cut_number(rest, row.stop) &&
                           cut(rest, kClosing);
        if (!isRow) return taken;
        if (tnReplaySegment(row.id, row.start, row.stop).IsValid()) fRows.push_back(row);
        taken.bytes = text.size() - rest.size();
        ++taken.elements;
        taken.variables += kVariables;
    }
}

std::vector<tnReplaySegment*> SegmentRows::InOrder(const zRecord& segments) const {
    std::vector<tnReplaySegment*> ordered;
    ordered.reserve(fRows.size() + segments.ChildCount());
    auto row = fRows.begin();
    const auto appendRows = [&](unsigned int children) {
        for (; row != fRows.end() && row->childrenBefore <= children; ++row) {
            ordered.push_back(new tnReplaySegment(row->id, row->start, row->stop));
        }
    };
    for (unsigned int i = 0; i < segments.ChildCount(); ++i) {
        appendRows(i);
        tnReplaySegment read;
        if (read.Read(*segments.Child(i), 0) == 0) ordered.push_back(new tnReplaySegment(read));
    }
    appendRows(segments.ChildCount());
    return ordered;
}
