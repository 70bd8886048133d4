#include "spar/zString.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

static constexpr unsigned int kToTerminator = 0xFFFFFFFFu;

static std::string_view text_of(const char* text, unsigned int length = kToTerminator) {
    if (text == nullptr) return {};
    return length == kToTerminator ? std::string_view(text) : std::string_view(text, length);
}

zString::zString(const char* text, unsigned int length) : fText(text_of(text, length)) {}

zString::zString(const std::string& text) : fText(text) {}

zString::zString(const zString& source) : fText(source.View()) {}

zString& zString::operator=(const char* text) {
    fText = std::string(text_of(text));  // `text` may lie in this string
    fOpen = false;
    return *this;
}

zString& zString::operator=(const std::string& text) {
    fText = text;
    fOpen = false;
    return *this;
}

zString& zString::operator=(const zString& source) {
    if (this == &source) return *this;
    fText = source.View();
    fOpen = false;
    return *this;
}

zString& zString::operator+=(const char* text) {
    AddToEnd(text, kToTerminator);
    return *this;
}

zString& zString::operator+=(const zString& text) {
    const std::string_view added = text.View();
    close();
    fText.append(added);
    return *this;
}

zString& zString::operator+=(const std::string& text) {
    close();
    fText += text;
    return *this;
}

void zString::AddToEnd(const char* text, unsigned int length) {
    const std::string_view added = text_of(text, length);
    close();
    fText.append(added);
}

char* zString::Preallocate(int size) {
    if (size < 0) return nullptr;
    close();
    try {
        fText.resize(std::max(fText.size(), static_cast<std::size_t>(size)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    fOpen = true;
    return fText.data();
}

void zString::close() {
    if (!fOpen) return;
    fText.resize(std::strlen(fText.c_str()));
    fOpen = false;
}

void zString::sprintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    fText = std::move(text);
    fOpen = false;
}

void zString::Set4CCCC(unsigned int code) {
    fText = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
             static_cast<char>(code >> 8), static_cast<char>(code)};
    fOpen = false;
}

bool zString::string_equal(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return left == right;
    return std::strcmp(left, right) == 0;
}

bool zString::string_equal(const char* left, const char* right, int maximum) {
    if (left == nullptr || right == nullptr) return left == right;
    return maximum <= 0 || std::strncmp(left, right, static_cast<std::size_t>(maximum)) == 0;
}

int zStringCmp::compare(const zString& left, const zString& right) {
    return left.View().compare(right.View());
}
