#include "SvgDrawing.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <utility>

namespace {

template <class... Arguments>
void add(std::string& text, fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(text), format, std::forward<Arguments>(arguments)...);
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case '<':
                result += "&lt;";
                break;
            case '&':
                result += "&amp;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

/// Of the call before.
std::string text_of_failure(const std::string& path) {
    return fmt::format(
        "'{}': the plot cannot be written: {}; check its folder, or choose another file", path,
        std::strerror(errno));
}

}  // namespace

SvgDrawing::SvgDrawing(const std::string& title, double height) {
    add(fText,
        R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {} {}" width="{}" height="{}" )"
        R"(font-family="sans-serif" font-size="13" fill="{}">)"
        "\n",
        kWidth, height, kWidth, height, kInk);
    add(fText, "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n");
    Text(kLeft, 30, "start", title, 17);
}

void SvgDrawing::Text(double x, double y, const char* anchor, const std::string& text, int size,
                      const char* colour) {
    // A white rim keeps it readable on bars and lines.
    add(fText,
        R"(<text x="{:.1f}" y="{:.1f}" text-anchor="{}" font-size="{}" fill="{}" )"
        R"(paint-order="stroke" stroke="white" stroke-width="3">{}</text>)"
        "\n",
        x, y, anchor, size, colour, escaped(text));
}

void SvgDrawing::Line(double x1, double y1, double x2, double y2, const char* colour,
                      const char* more) {
    add(fText,
        R"(<line x1="{:.1f}" y1="{:.1f}" x2="{:.1f}" y2="{:.1f}" stroke="{}" {}/>)"
        "\n",
        x1, y1, x2, y2, colour, more);
}

void SvgDrawing::Path(const std::string& data, const char* fill, const char* stroke,
                      double opacity) {
    add(fText,
        R"(<path d="{}" fill="{}" stroke="{}" fill-opacity="{}" stroke-width="1.5"/>)"
        "\n",
        data, fill, stroke, opacity);
}

void SvgDrawing::Dots(const std::string& data, const char* colour, double diameter) {
    add(fText,
        R"(<path d="{}" stroke="{}" stroke-width="{}" stroke-linecap="round" )"
        R"(stroke-opacity="0.75" fill="none"/>)"
        "\n",
        data, colour, diameter);
}

void SvgDrawing::SecondsBelow(double y, double seconds) {
    const double step = RoundStep(seconds);
    for (double mark = 0; mark <= seconds; mark += step) {
        const double x = kLeft + mark / seconds * (kRight - kLeft);
        Line(x, y, x, y + 5, kInk);
        Text(x, y + 20, "middle", fmt::format("{:.4g} s", mark));
    }
}

std::string SvgDrawing::Finish() && {
    return std::move(fText) + "</svg>\n";
}

double RoundStep(double whole) {
    const double power = std::pow(10.0, std::floor(std::log10(whole / 4)));
    for (const double factor : {5.0, 2.0}) {
        if (whole / (factor * power) >= 4) return factor * power;
    }
    return power;
}

bool CanWriteDrawing(const std::string& path, std::string& error) {
    std::error_code failed;
    const auto found = std::filesystem::status(path, failed).type();
    const bool isNew = found == std::filesystem::file_type::not_found;
    // Pipes and devices take what comes when it comes.
    if (path.empty() || (!isNew && found != std::filesystem::file_type::regular &&
                         found != std::filesystem::file_type::directory &&
                         found != std::filesystem::file_type::none)) {
        return true;
    }
    FILE* const file = std::fopen(path.c_str(), "ab");
    if (!file) {
        error = text_of_failure(path);
        return false;
    }
    std::fclose(file);
    if (isNew) std::filesystem::remove(path, failed);
    return true;
}

bool WriteDrawing(const std::string& path, const std::string& drawing, std::string& error) {
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file != nullptr;
    if (file) {
        written = std::fwrite(drawing.data(), 1, drawing.size(), file) == drawing.size();
        written = std::fclose(file) == 0 && written;
    }
    if (!written) error = text_of_failure(path);
    return written;
}
