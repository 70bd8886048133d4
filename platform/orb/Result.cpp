#include "orb/Result.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Quillon::Orb {

void Result::SetMessage(const char* format, va_list arguments) noexcept {
    drop_message();
    if (!format) return;
    // Where memory is short the code still stands; the text is only a help.
    if (vasprintf(&fMessage, format, arguments) < 0) fMessage = nullptr;
}

void Result::copy_message(const Result& other) noexcept {
    fMessage = strdup(other.fMessage);
}

void Result::free_message() noexcept {
    std::free(fMessage);
    fMessage = nullptr;
}

// A success has nothing to explain: its text is not even formatted.
ResultOK::ResultOK(const char*, ...) noexcept : Result(kCode) {}
ResultFalse::ResultFalse(const char*, ...) noexcept : Result(kCode) {}

#define ORB_RESULT_CONSTRUCTOR(Name)                               \
    Name::Name(const char* format, ...) noexcept : Result(kCode) { \
        va_list arguments;                                         \
        va_start(arguments, format);                               \
        SetMessage(format, arguments);                             \
        va_end(arguments);                                         \
    }

ORB_RESULT_CONSTRUCTOR(ResultError)
ORB_RESULT_CONSTRUCTOR(ResultNullPointer)
ORB_RESULT_CONSTRUCTOR(ResultOutOfMemory)
ORB_RESULT_CONSTRUCTOR(ResultNotSupported)
ORB_RESULT_CONSTRUCTOR(ResultInvalidArgument)
ORB_RESULT_CONSTRUCTOR(ResultArgumentOutOfRange)

#undef ORB_RESULT_CONSTRUCTOR

}  // namespace Quillon::Orb
