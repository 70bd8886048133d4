#pragma once

#include "tarn/export.h"

class jigIterator;

/// Walks the kinds of movie that add-ons offer, in the manager's order. One thread.
class TARN_API tnFormatsIterator {
public:
    struct tn_format {
        unsigned int id = 0;
        const char* name = nullptr;  ///< owned by the add-on
        bool flag = false;
    };

    /// Takes ownership of `iterator`.
    explicit tnFormatsIterator(jigIterator* iterator);
    ~tnFormatsIterator();
    tnFormatsIterator(const tnFormatsIterator&) = delete;
    tnFormatsIterator& operator=(const tnFormatsIterator&) = delete;

    /// Ends an iterator that tnFiles::CreateFormatIterator has made; null is tolerated.
    static void Delete(tnFormatsIterator* iterator);
    void Delete() { Delete(this); }

    void Init();
    bool Done();
    void Next();
    /// Fills `format` from the current add-on. An add-on that gives no interface leaves it as it
    /// was, and the result is why; else the result is what releasing the interface gave.
    int Current(tn_format& format);

private:
    jigIterator* fIterator;
};
