#pragma once

#include <string>
#include <string_view>

#include "spar/export.h"

/// What a zVariable holds. The values are private to a process: files and XML name kinds by word.
enum zVariableType : unsigned int {
    ZV_UNSET = 0,
    ZV_BOOL,
    ZV_INT32,
    ZV_UINT32,
    ZV_INT64,
    ZV_UINT64,
    ZV_FLOAT,
    ZV_DOUBLE,
    ZV_STRING  ///< the heap-backed kind: the text lives in storage that the variable owns
};

/// One typed value, bound to an id.
///
/// Getters convert: a number gives another numeric kind when its value fits there (a float is
/// truncated toward zero, any number but 0 is true), a string that spells a number from its first
/// to its last character counts as that number. Everything else, an unset variable included, gives
/// the caller's default.
///
/// The pointer that AsCString gives stays good until this variable is set, unset or destroyed, also
/// while other variables of the same record come and go. No lock: the owner serialises access.
class SPAR_API zVariable {
public:
    explicit zVariable(unsigned long long id) noexcept : fID(id) {}
    zVariable(const zVariable& source) : fID(source.fID) { *this = source; }
    ~zVariable() {
        if (owns_text()) delete[] fValue.text;
    }

    /// Takes id, kind and value; the flag of this variable's place stays as it is.
    zVariable& operator=(const zVariable& source) {
        if (IsHeapBacked() || source.IsHeapBacked()) {
            full_copy(source.Kind(), source);
        } else {
            fID = source.fID;
            fKind = (fKind & kPlaceFlag) | source.Kind();
            fValue = source.fValue;
        }
        return *this;
    }
    zVariable& operator=(int value) {
        SetInt32(value);
        return *this;
    }

    unsigned long long ID() const { return fID; }
    zVariableType Kind() const { return static_cast<zVariableType>(fKind & kKindMask); }
    bool IsSet() const { return Kind() != ZV_UNSET; }
    bool IsHeapBacked() const { return Kind() == ZV_STRING; }

    /// Whether this variable is a registered member of a record.
    bool IsPlaced() const { return (fKind & kPlaceFlag) != 0; }

    int AsInt32(int defaultValue) const {
        return Kind() == ZV_INT32 ? fValue.int32 : AsInt32_full(defaultValue);
    }
    /// AsInt32 of a variable of any kind.
    int AsInt32_full(int defaultValue) const;
    bool AsBool(bool defaultValue) const;
    unsigned short AsUInt16(unsigned short defaultValue) const;
    unsigned int AsUInt32(unsigned int defaultValue) const;
    long long AsInt64(long long defaultValue) const;
    unsigned long long AsUInt64(unsigned long long defaultValue) const;
    float AsFloat(float defaultValue) const;
    double AsDouble(double defaultValue) const;

    /// The text held. A number is spelled into `scratch`; without one it gives `defaultValue`.
    const char* AsCString(const char* defaultValue, char (*scratch)[64] = nullptr) const;
    std::string AsString(const std::string& defaultValue) const;

    /// The text held, with any zero bytes in it; empty for every other kind.
    std::string_view Text() const {
        return IsHeapBacked() ? std::string_view(fValue.text, fLength) : std::string_view();
    }

    void Unset() { replace(ZV_UNSET).uint64 = 0; }
    void SetBool(bool value) { replace(ZV_BOOL).boolean = value; }
    void SetInt32(int value) { replace(ZV_INT32).int32 = value; }
    void SetUInt32(unsigned int value) { replace(ZV_UINT32).uint32 = value; }
    void SetInt64(long long value) { replace(ZV_INT64).int64 = value; }
    void SetUInt64(unsigned long long value) { replace(ZV_UINT64).uint64 = value; }
    void SetFloat(float value) { replace(ZV_FLOAT).float32 = value; }
    void SetDouble(double value) { replace(ZV_DOUBLE).float64 = value; }
    /// Null unsets the variable. `value` may be the text that this variable holds.
    void SetCString(const char* value);
    /// Any bytes, zero bytes too.
    void SetText(std::string_view value);

    /// Takes id, kind and value of `source`, with storage of its own; `kind` is the source's.
    void full_copy(zVariableType kind, const zVariable& source);

private:
    friend class zRecord;

    union Value {
        bool boolean;
        int int32;
        unsigned int uint32;
        long long int64;
        unsigned long long uint64;
        float float32;
        double float64;
        char* text;  // fLength bytes and a terminator, from new[] unless lent
    };
    static constexpr unsigned int kPlaceFlag = 0x80000000u;
    static constexpr unsigned int kLentFlag = 0x40000000u;  // the text's storage is the record's
    static constexpr unsigned int kKindMask = ~(kPlaceFlag | kLentFlag);

    bool owns_text() const { return (fKind & ~kPlaceFlag) == ZV_STRING; }

    /// Frees what is held and takes on `kind`; the caller stores the value.
    Value& replace(zVariableType kind) {
        if (owns_text()) delete[] fValue.text;
        fKind = (fKind & kPlaceFlag) | kind;
        fValue.uint64 = 0;
        return fValue;
    }

    /// Takes the value out of `source`, which ends unset. Both ids and flags stay.
    void take(zVariable& source) {
        replace(source.Kind()) = source.fValue;
        fLength = source.fLength;
        source.fKind &= kPlaceFlag;
    }
    /// Moves on to a copy of the text at `storage`, which is lent; the old one is not freed.
    void copy_text_to(char* storage);

    unsigned long long fID;
    unsigned int fKind = ZV_UNSET;  // and the two flags
    unsigned int fLength = 0;       // of a string, in bytes
    Value fValue{.uint64 = 0};
};
