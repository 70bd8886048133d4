#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Show.h"

// How a kind of output joins `tarn live`. The extension point of the host, in three steps:
//
//  1. Derive from LiveOutput. All its operations run on the show's control thread, one at a time;
//     what the source's thread delivers (encoded buffers) comes to observers of your own.
//  2. Write a `make` (and, where an output can be wrong in ways of its own, a `check`) and enter
//     them under a name: LiveOutputKinds::Add({"replay", make_replay, check_replay}), from the list
//     in LiveOutputKinds.cpp.
//  3. A show asks for it by <output kind="replay" ...>. "movie" is the kind of those without one.
//
// A kind that is a movie with something around it calls MakeMovieOutput (MovieOutput.h) itself. A
// kind that takes the shared encoders' buffers sets up observers of its own for the tracks that
// LiveSource::VideoTrack and AudioTrack describe, between BeginUse and EndUse (LiveSource.h).

class LiveSource;

/// What an output says of itself.
struct LiveFigures {
    long long frames = 0;  ///< pictures that stand in the output
    long long bytes = 0;
    int status = 0;             ///< not 0: it has failed, and is stopped
    long long statusValue = 0;  ///< a number that goes with the status
    std::string text;           ///< why, in words, as far as known; no line end
};

/// One output that can run. Start and Stop come in turns; destruction only when stopped.
class LiveOutput {
public:
    virtual ~LiveOutput() = default;

    /// Begins with what the source gives next. False, with nothing left running and one line in
    /// `error` that says what, where and what to do.
    virtual bool Start(std::string& error) = 0;
    /// Ends it and closes what it wrote; blocks until that is done.
    virtual void Stop() = 0;
    /// Now, or at the end once stopped.
    virtual LiveFigures Figures() = 0;
    /// The file, folder or address that it writes to this time.
    virtual std::string Location() const = 0;
};

/// Makes an output that has not started. Null with one line in `error` when it never can.
using LiveOutputMaker = std::unique_ptr<LiveOutput> (*)(const ShowOutput& output,
                                                        LiveSource& source, std::string& error);

/// Looks at an output before it starts: false with one line in `error` keeps it from starting, and
/// the show too when it is to start with it. `show` holds its sources and outputs, itself among
/// them.
using LiveOutputCheck = bool (*)(const ShowOutput& output, const Show& show, std::string& error);

struct LiveOutputKind {
    std::string name;
    LiveOutputMaker make = nullptr;
    LiveOutputCheck check = nullptr;  ///< may be null
    /// What it reads beside the keys of the library; empty where nobody can tell.
    std::vector<std::string> attributes = {};
};

/// The kinds of output that this program knows. Control thread.
class LiveOutputKinds {
public:
    LiveOutputKinds() = delete;

    /// A later kind of a name takes the place of an earlier one.
    static void Add(const LiveOutputKind& kind);
    /// Null for an unknown name.
    static const LiveOutputKind* Find(const std::string& name);
    static std::vector<std::string> Names();
    /// The attributes of an output and of its tracks that its kind does not read: add-ons from
    /// elsewhere may, but as a rule they are misspelt. None where nobody can tell.
    static std::vector<std::string> UnreadAttributes(const ShowOutput& output);
};
