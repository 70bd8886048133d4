#pragma once

#include <string>

/// Some lines of a terminal that are written over and over, above the line where commands are
/// typed; nothing at all when standard error is no terminal.
class LiveView {
public:
    LiveView();
    bool OnTerminal() const { return fOnTerminal; }
    /// `text` is lines with their ends.
    void Show(const std::string& text);
    /// A line that stays, above the view.
    void Say(const std::string& line);

private:
    void draw();

    bool fOnTerminal;
    int fLines = 0;  // that stand on the screen
    std::string fText;
};
