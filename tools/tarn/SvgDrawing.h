#pragma once

#include <string>

/// A strip of a drawing whose values run from its bottom to its top.
struct SvgPanel {
    double top, bottom;
    double At(double share) const { return bottom - share * (bottom - top); }
};

/// An SVG file in the making, in the manner that all drawings of this program share: a title, and
/// panels from kLeft to kRight. Places are pixels from the top left corner.
class SvgDrawing {
public:
    static constexpr double kWidth = 1000;
    static constexpr double kHeight = 700;
    static constexpr double kLeft = 70;
    static constexpr double kRight = 970;
    static constexpr const char* kInk = "#333";
    static constexpr const char* kGrid = "#ddd";

    explicit SvgDrawing(const std::string& title, double height = kHeight);

    /// `anchor` is "start", "middle" or "end".
    void Text(double x, double y, const char* anchor, const std::string& text, int size = 13,
              const char* colour = kInk);
    /// `more` is further attributes.
    void Line(double x1, double y1, double x2, double y2, const char* colour,
              const char* more = "");
    /// `data` is that of a path element.
    void Path(const std::string& data, const char* fill, const char* stroke, double opacity);
    /// `data` is a path of moves with lines of no length.
    void Dots(const std::string& data, const char* colour, double diameter = 2.4);
    /// Marks and labels of a time axis at `y` that runs from kLeft at 0 to kRight at `seconds`.
    void SecondsBelow(double y, double seconds);

    std::string Finish() &&;

private:
    std::string fText;
};

/// A step of 1, 2 or 5 times a power of ten that divides `whole` into four to ten.
double RoundStep(double whole);

/// Whether WriteDrawing could write there now, which leaves no file behind: to be asked before a
/// long measurement. True for no path. False with one line in `error`.
bool CanWriteDrawing(const std::string& path, std::string& error);

/// False with one line in `error` when the file cannot be written.
bool WriteDrawing(const std::string& path, const std::string& drawing, std::string& error);
