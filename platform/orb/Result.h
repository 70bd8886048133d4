#pragma once

#include <cstddef>

#include "orb/export.h"

namespace Quillon::Orb {

/// The outcome of an operation: a code, and for a failure perhaps a text that says why.
///
/// Negative codes are failures, zero and above are not. A success carries no text and costs
/// what its integer costs. Any thread may hold one; one object belongs to one thread at a time.
class ORB_API Result {
public:
    Result(int code = 0) noexcept : fCode(code) {}
    Result(const Result& other) : fCode(other.fCode) {
        if (other.fMessage) copy_message(other);
    }
    Result(Result&& other) noexcept : fCode(other.fCode), fMessage(other.fMessage) {
        other.fMessage = nullptr;
    }
    Result& operator=(Result&& other) noexcept {
        if (this != &other) {
            drop_message();
            fCode = other.fCode;
            fMessage = other.fMessage;
            other.fMessage = nullptr;
        }
        return *this;
    }
    Result& operator=(const Result& other) {
        if (this != &other) {
            drop_message();
            fCode = other.fCode;
            if (other.fMessage) copy_message(other);
        }
        return *this;
    }
    ~Result() { drop_message(); }

    operator int() const noexcept { return fCode; }
    bool Failed() const noexcept { return fCode < 0; }
    bool Succeeded() const noexcept { return fCode >= 0; }

    /// Why it failed, without an end of line; an empty text when nobody said. Never null.
    const char* GetMessage() const noexcept { return fMessage ? fMessage : ""; }

protected:
    /// Formats the text as printf does. A null format leaves none.
    void SetMessage(const char* format, __builtin_va_list arguments) noexcept;

private:
    void copy_message(const Result& other) noexcept;
    void drop_message() noexcept {
        if (fMessage) free_message();
    }
    void free_message() noexcept;

    int fCode;
    char* fMessage = nullptr;
};

/// A kind of result: its code, and constructors that take a printf-style format or nothing.
#define ORB_RESULT_KIND(Name, Code)                                                            \
    class ORB_API Name : public Result {                                                       \
    public:                                                                                    \
        static constexpr int kCode = Code;                                                     \
        Name() noexcept : Result(Code) {}                                                      \
        Name(std::nullptr_t) noexcept : Result(Code) {}                                        \
        explicit Name(const char* format, ...) noexcept __attribute__((format(printf, 2, 3))); \
    }

ORB_RESULT_KIND(ResultOK, 0);
ORB_RESULT_KIND(ResultFalse, 1);  ///< nothing failed, and there was nothing to do
ORB_RESULT_KIND(ResultError, -1);
ORB_RESULT_KIND(ResultNullPointer, -2);
ORB_RESULT_KIND(ResultOutOfMemory, -3);
ORB_RESULT_KIND(ResultNotSupported, -4);
ORB_RESULT_KIND(ResultInvalidArgument, -5);
ORB_RESULT_KIND(ResultArgumentOutOfRange, -6);

#undef ORB_RESULT_KIND

}  // namespace Quillon::Orb
