#pragma once

#include <string_view>

#include "spar/export.h"

class zRecord;

/// Takes elements out of a document on their way to the parser.
///
/// For long lists of elements that this program writes itself, all in one form: who knows that form
/// to the byte reads them off the text far faster than a parser could, and needs no record of each.
/// Whatever stands there in another form goes to the parser, so that a shortcut decides how fast a
/// document is read and not what it says.
class SPAR_API zXMLShortcut {
public:
    virtual ~zXMLShortcut() = default;

    /// The text that the elements begin with; always the same, not empty. Elements are looked for
    /// where it stands.
    virtual std::string_view Opening() const = 0;

    /// What was taken: whole elements from the front of the text, with the blanks between them. The
    /// counts are held against the bounds of a document.
    struct Taken {
        unsigned long bytes = 0;
        unsigned int elements = 0;   ///< 0 is nothing
        unsigned int variables = 0;  ///< attributes of all of them
    };

    /// `text` begins with Opening, in ASCII or what extends it, and would come next as content of
    /// `parent`, the innermost element that is open. `parent` holds its attributes and those of its
    /// children, all complete, that were not taken; `root` may be `parent`, and holds all that was
    /// read so far. Both stay where they are until the document is read, but for the root, whose
    /// content moves then. The text may end anywhere: what is cut is left.
    virtual Taken Take(const zRecord& root, const zRecord& parent, std::string_view text) = 0;
};
