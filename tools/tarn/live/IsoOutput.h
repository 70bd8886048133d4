#pragma once

#include <memory>
#include <string>

#include "LiveOutput.h"

/// An output of the kind "iso": one source into a movie file of its own, set up by the keys of ISO
/// settings, followed by a further file whenever one is as long as they say. See LiveOutputMaker.
std::unique_ptr<LiveOutput> MakeIsoOutput(const ShowOutput& output, LiveSource& source,
                                          std::string& error);

/// Whether the settings have no problem beside those of the show's other ISO outputs; blocks up to
/// kIsoFolderPatienceUs. See LiveOutputCheck.
bool CheckIsoShowOutput(const ShowOutput& output, const Show& show, std::string& error);
