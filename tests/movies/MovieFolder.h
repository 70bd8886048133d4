#pragma once

#include <string>

/// A folder of this process's own, gone when the process ends.
const std::string& MovieFolder();

/// What a program printed on its standard output and standard error, and how it ended.
struct ProgramRun {
    int status = -1;  // exit code; -1 when it did not end by itself
    std::string output;
};
ProgramRun RunProgram(const std::string& commandLine);
