#pragma once

#include "tarn/export.h"

class zRecord;

/// A typed view of an output's four texts, made and used like tnOutputAccessor.
///
/// Getters give null where the record or the key is missing; what they point at belongs to the
/// record.
class TARN_API tnOutputAnnotations {
public:
    tnOutputAnnotations() = default;
    tnOutputAnnotations(zRecord& record);
    tnOutputAnnotations(const zRecord& record);
    tnOutputAnnotations(const tnOutputAnnotations&) = default;

    /// Copies what `source` holds into the record held here. Assignment never repoints, see `set`.
    tnOutputAnnotations& operator=(const zRecord& source);
    tnOutputAnnotations& operator=(const tnOutputAnnotations& source);

    /// Repoints the accessor.
    void set(zRecord& record);
    zRecord* Record() const { return fRecord; }
    void Print();

    /// Enters the four keys into the process-wide table of keys, where the output's own are
    /// already.
    static void RegisterVariableNames();

    const char* Title() const;
    void SetTitle(const char* text);
    const char* Author() const;
    void SetAuthor(const char* text);
    const char* Info() const;
    void SetInfo(const char* text);
    const char* Copyright() const;
    void SetCopyright(const char* text);

private:
    const char* text_at(unsigned long long id) const;
    void set_text(unsigned long long id, const char* text);

    zRecord* fRecord = nullptr;
};
