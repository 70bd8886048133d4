#pragma once

#include <exception>

/// What to do about an exception that ended something: the second half of its line.
const char* ExceptionAdvice(const std::exception& error);
