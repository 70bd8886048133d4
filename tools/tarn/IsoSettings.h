#pragma once

#include <string>
#include <vector>

#include "spar/zRecord.h"

// The settings of ISO outputs as a file holds them. docs/iso.md tells its keys to people.
//
//     <iso>
//       <source source_id="cam1" video="true" audio="true"/>
//       <iso_output source_id="cam1" output_filename="cam1.mov" output_folder="/media/iso"
//                   video_format="PRORES-MOV"/>
//     </iso>

/// A source or a shot that outputs may record.
struct IsoSource {
    std::string id;
    bool isShot = false;
    bool hasVideo = true;
    bool hasAudio = true;
};

struct IsoSettings {
    zRecord outputs;                 ///< its children are the outputs, each with an identity
    std::vector<IsoSource> sources;  ///< empty: nothing is known, and none counts as missing
};

/// Reads settings: a list of outputs, or one alone. False with one line in `error`.
bool ReadIsoSettings(const std::string& path, IsoSettings& settings, std::string& error);

/// The same from text; `where` names it in errors.
bool ReadIsoSettingsText(const std::string& text, const std::string& where, IsoSettings& settings,
                         std::string& error);

/// Turns what the element of one output says into values: words that are to be true or false,
/// numbers that are to be numbers; units are to be known ones. False with one line in `error` for
/// any that is not.
bool ReadIsoValues(zRecord& output, const std::string& where, std::string& error);

/// What people call the output: "output_display_name", else its file's name, else its identity.
std::string IsoOutputName(const zRecord& output);
