#pragma once

#include <string>
#include <string_view>

#include "spar/export.h"

/// An owning character string, counted in bytes and always terminated. No lock: the owner
/// serialises access.
class SPAR_API zString {
public:
    zString() = default;
    /// A null text is the empty one. A length of 0xFFFFFFFF means up to the terminator.
    zString(const char* text, unsigned int length = 0xFFFFFFFFu);
    zString(const std::string& text);
    zString(const zString& source);
    zString(zString&& source) noexcept = default;
    ~zString() = default;

    zString& operator=(const char* text);
    zString& operator=(const std::string& text);
    zString& operator=(const zString& source);
    zString& operator=(zString&& source) noexcept = default;
    zString& operator+=(const char* text);
    zString& operator+=(const zString& text);
    zString& operator+=(const std::string& text);

    /// In bytes.
    unsigned int Length() const { return static_cast<unsigned int>(View().size()); }
    bool IsEmpty() const { return View().empty(); }

    /// Good until the string changes. Never null.
    const char* CString() const { return fText.c_str(); }
    operator const char*() const { return CString(); }
    std::string_view View() const {
        return fOpen ? std::string_view(fText.c_str()) : std::string_view(fText);
    }
    std::string AsString() const { return std::string(View()); }

    /// Appends; a length of 0xFFFFFFFF means up to the terminator. `text` may lie in this string.
    void AddToEnd(const char* text, unsigned int length);

    /// Makes room for `size` bytes and a terminator and gives a pointer to the text, which stays as
    /// it is. Whoever writes there ends with a terminator, which is where the string then ends.
    /// Null, with nothing changed, if `size` is negative or memory is short. The pointer is good
    /// until the string changes by other means.
    char* Preallocate(int size);

    /// Becomes what printf would print; arguments may point into this string.
    void sprintf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The four characters of a code, first character from the high byte.
    void Set4CCCC(unsigned int code);

    /// Byte for byte. Two nulls are equal; null equals nothing else.
    static bool string_equal(const char* left, const char* right);
    /// The same, of the first `maximum` characters at most.
    static bool string_equal(const char* left, const char* right, int maximum);

private:
    void close();  // fixes the length after somebody wrote through Preallocate's pointer

    std::string fText;
    bool fOpen = false;  // the text ends at its first terminator
};

inline bool operator==(const zString& left, const zString& right) {
    return left.View() == right.View();
}
inline bool operator==(const zString& left, const char* right) {
    return zString::string_equal(left.CString(), right);
}
inline bool operator==(const zString& left, const std::string& right) {
    return left.View() == right;
}
inline bool operator<(const zString& left, const zString& right) {
    return left.View() < right.View();
}

/// A total order of strings for zMap: by unsigned bytes, a prefix before what it begins.
class SPAR_API zStringCmp {
public:
    /// Below 0, 0 or above 0 as `left` comes before, with or after `right`.
    static int compare(const zString& left, const zString& right);
};
