#pragma once

#include <cstddef>

#include "spar/export.h"

class zRecord;
class zStream;
class zXMLShortcut;

/// Records as XML. Each record is an element: the string 'xTag' is its name, its variables are
/// attributes, its children are nested elements.
///
///     <segment id="uint32:17" start="int64:0" stop="int64:40000"/>
///
/// A variable's name is its key. A string stands as it is; every other kind says its name before
/// the value. What XML cannot hold is escaped: in names by _xHH_, in values by the prefix text: and
/// %HH. Variables whose ids have no key are named _xid_ and the id in hexadecimal digits; a record
/// without a tag is the element _xrecord. So everything comes back as it was, whatever its bytes,
/// and an attribute written by hand is a string, which converts when it is read as a number. Text
/// between elements is passed over.
class SPAR_API zXML {
public:
    // bits of `format`
    static constexpr unsigned int kAttributes = 1;     ///< the form above, the only one; required
    static constexpr unsigned int kNoDeclaration = 4;  ///< writing: leave out the XML declaration

    // results beside 0, -22 for a null argument or an unknown format, and the codes of the stream
    static constexpr int kNotWellFormed = -5201;
    static constexpr int kNoElement = -5202;  ///< it ends before its first tag does
    static constexpr int kDoctype = -5203;    ///< document types and entities are refused
    static constexpr int kTooDeep = -5204;
    static constexpr int kTooBig = -5205;

    // Bounds that a reader holds. A record past one of them is not written, but for the new keys,
    // which may be known where it is written and not where it is read.
    static constexpr int kMaxDepth = 256;
    static constexpr unsigned long kMaxDocumentBytes = 64ul << 20;
    static constexpr unsigned long kMaxTagBytes = 16ul << 20;  ///< one tag with its attributes
    static constexpr unsigned int kMaxElements = 1u << 19;
    static constexpr unsigned int kMaxVariables = 1u << 21;  ///< attributes of all elements
    static constexpr unsigned int kMaxAttributes = 4096;     ///< of one element
    static constexpr unsigned int kMaxNewKeys = 1u << 14;    ///< keys that no zStringID knew before

    /// Writes `record` with each element on lines of its own: `separator` ends the lines, `depth`
    /// is the indentation to begin with. Without a separator there is no indentation. A null child
    /// is passed over. After a failure part of the text may stand in the stream.
    static int WriteStream(unsigned int format, const zRecord* record, zStream* stream,
                           const char* separator, int depth);

    /// Reads a file; the root element becomes `record` itself, whatever it held before. A document
    /// that just ends too early is no failure: it gives every element whose end tag stands, in the
    /// elements that hold them, and the root with its attributes. So does one that ends in zero
    /// bytes, as a crash of the machine can leave it. After a failure `record` is as it was.
    ///
    /// A `shortcut`, which may be null, gets the elements that it takes; they are missing in
    /// `record`, and all else is as without it. After a failure what it took counts for nothing.
    static int ParseFile(unsigned int format, zRecord* record, const char* path,
                         zXMLShortcut* shortcut = nullptr);
    /// The same from any stream, read to its end.
    static int ParseStream(unsigned int format, zRecord* record, zStream* stream,
                           zXMLShortcut* shortcut = nullptr);
    /// The same from memory.
    static int ParseMemory(unsigned int format, zRecord* record, const void* data,
                           std::size_t size);
};
