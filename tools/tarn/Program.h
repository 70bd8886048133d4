#pragma once

/// The whole program: `main` with nothing around it. Its exit code.
///
/// A command that fails has told so; what it throws instead becomes one line on standard error.
int RunProgram(int argc, const char* const* argv);
