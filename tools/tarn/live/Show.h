#pragma once

#include <string>
#include <vector>

#include "spar/zRecord.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "../parseRate.h"

// What a show file says, read and checked. docs/live.md tells its keys to people.
//
//     <show>
//       <source name="cup" clip="cup.mp4"/>
//       <output source="cup" output_display_name="take" format_name="QuickTime"
//               output_url="take.mov" output_enabled="true">
//         <video codecname="ProRes"/>
//         <audio codecname="PCM"/>
//       </output>
//     </show>

/// Where pictures and sound come from: a clip, or generated bars with a tone.
struct ShowSource {
    std::string name;
    std::string clip;  ///< empty for generated pictures
    bool loop = true;  ///< a clip begins anew at its end
    int width = 0;     ///< 0 keeps the clip's
    int height = 0;
    Rate rate;           ///< of generated pictures; a clip brings its own
    double toneHz = 0;   ///< of generated sound; 0 for none
    double catchUp = 2;  ///< seconds of lost ticks that are rendered after all; the rest is skipped
};

/// One output. `record` carries the keys that tnOutputAccessor reads, `tracks` the children.
struct ShowOutput {
    std::string name;                   ///< "output_display_name", unique in the show
    std::string source;                 ///< name of its source
    std::string kind = "movie";         ///< which LiveOutputKind makes it
    std::string format;                 ///< "format_name": a kind of file that an add-on offers
    zRecord record;                     ///< the element as it stands, tracks included
    std::vector<tnMediaRecord> tracks;  ///< type, codec and what else the element says

    bool Enabled() const;
    /// "output_url".
    std::string Location() const;
    /// The first track of that type, or null.
    const tnMediaRecord* Track(tnMediaType type) const;
};

struct Show {
    std::vector<ShowSource> sources;
    std::vector<ShowOutput> outputs;

    const ShowSource* FindSource(const std::string& name) const;
};

/// Reads a show. False with one line in `error` that says what is wrong, where, and what to do.
bool ReadShow(const std::string& path, Show& show, std::string& error);

/// The same from text; `where` names it in errors.
bool ReadShowText(const std::string& text, const std::string& where, Show& show,
                  std::string& error);

/// Reads one <output> element, as the command `add` takes it, for a show with these sources.
/// False with one line in `error`.
bool ReadShowOutput(const std::string& text, const Show& show, ShowOutput& output,
                    std::string& error);

/// The same for one <source> element.
bool ReadShowSource(const std::string& text, const Show& show, ShowSource& source,
                    std::string& error);
