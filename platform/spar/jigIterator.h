#pragma once

#include <cstddef>
#include <string>

#include "spar/export.h"

class jigManager;

/// Walks the add-ons that offer one interface, in the manager's order:
///
///     jigIterator walk(manager, "tnXIMovieFile");
///     for (walk.Init(); !walk.Done(); walk.Next()) ...
///
/// Belongs to one thread. Add-ons that are loaded during the walk are met too, unless its end has
/// been reached.
class SPAR_API jigIterator {
public:
    jigIterator(jigManager& manager, const char* interfaceName);
    ~jigIterator();
    jigIterator(const jigIterator&) = delete;
    jigIterator& operator=(const jigIterator&) = delete;

    /// Goes to the first add-on; a new iterator stands there already.
    void Init();
    bool Done() const;
    void Next();

    /// The current add-on's interface in `*out`, with a reference that the caller releases: 0; -22
    /// for a null `out`; -31 and null at the end of the walk or when the add-on does not give it.
    int GetInterface(void** out);

private:
    jigManager& fManager;
    const std::string fInterface;
    std::size_t fIndex = 0;
};
