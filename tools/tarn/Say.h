#pragma once

#include <cstdio>
#include <fmt/core.h>
#include <string>

/// Writes `text` to `stream`, at once. Whoever reads it may have gone: that ends nothing and throws
/// nothing. Any thread.
void SayText(std::FILE* stream, const std::string& text);

/// The same, with words put together as fmt does.
template <typename... Values>
void Say(std::FILE* stream, fmt::format_string<Values...> words, Values&&... values) {
    SayText(stream, fmt::vformat(words, fmt::make_format_args(values...)));
}

template <typename... Values>
void Say(fmt::format_string<Values...> words, Values&&... values) {
    SayText(stdout, fmt::vformat(words, fmt::make_format_args(values...)));
}

/// Tells a person, and with `json` a machine, that `command` ("tarn record") failed: the one way to
/// do so. Returns EXIT_FAILURE.
int Complain(bool json, const std::string& command, const std::string& line);

/// False once a text for standard output met a pipe that nobody reads any more. A command that does
/// nothing but tell ends then; one that records goes on.
bool HasReader();

/// What took texts for standard output away, such as a full disk; empty if none is lost, or nobody
/// was there to miss them.
std::string LostOutput();
