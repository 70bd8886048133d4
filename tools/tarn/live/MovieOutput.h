#pragma once

#include <memory>
#include <string>

#include "LiveOutput.h"

/// An output that an add-on writes: a file, or a stream to an address. `format_name` of the output
/// says which add-on. See LiveOutputMaker.
std::unique_ptr<LiveOutput> MakeMovieOutput(const ShowOutput& output, LiveSource& source,
                                            std::string& error);

/// Whether an add-on bears the output's format name and takes its kind of address, and the folder
/// of its file is there. See LiveOutputCheck.
bool CheckMovieOutput(const ShowOutput& output, const Show& show, std::string& error);
