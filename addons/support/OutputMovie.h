#pragma once

#include <map>
#include <memory>
#include <string>

#include "tarn/movies/tnBaseWriteMovie.h"
#include "tarn/movies/tnOutputStream.h"
#include "tarn/movies/tnOutputStreamSync.h"

#include "addons/support/MovieOutput.h"
#include "addons/support/OutputFan.h"

/// A stream of one of these movies: it shows what the output carries, and asks the filter manager
/// for what `request` says, which may be something else.
class OutputMovieStream final : public tnOutputStream {
public:
    OutputMovieStream(int source, const tnMediaRecord& request, const tnMediaRecord& track,
                      std::shared_ptr<tnOutputStreamSync> sync, std::shared_ptr<OutputFan> fan);
    const tnMediaRecord& EncodedFormat() const override { return fTrack; }
    bool HasPictures() const { return fTrack.fType.AsInt32(0) == TN_MEDIA_VIDEO; }
    /// While outputs run: the failure of one; or, as long as it lasts, an encoder that cannot be
    /// set up for the source, is not there or can take none of the frames, or what an output that
    /// goes on is without. What is kept of the last output, before that.
    int GetOutputStatistics(tn_output_statistics& statistics) override;
    /// Forgets what is kept, and a filter that may have come behind the last output.
    void Begin();
    /// Once the stream has left its encoder: lets that go, and keeps what it could not do.
    void LetEncoderGo();
    /// Keeps what the last output failed with, or was without.
    void Keep(MovieOutput& output);

private:
    const tnMediaRecord fTrack;
    const std::shared_ptr<OutputFan> fFan;
};

/// What the movies of this folder share: one picture track and one sound track at most, one output
/// of each type, streams that observe while an output runs.
///
/// The host calls from one thread at a time. Its last release ends every output.
class OutputMovie : public tnBaseWriteMovie {
public:
    ~OutputMovie() override;

    /// 0; -22 for a null `stream`; -1009 for a second track of a kind, or one that is neither
    /// pictures nor sound.
    int CreateWriteStream(tnMediaRecord& format, tnStream** stream, int flags) override;
    /// Beside what the base does: an output that is switched off ends, and begins anew, beside what
    /// it wrote before, when it is switched on.
    int UpdateOutput(const tnOutputAccessor& output, const zRecord* settings, zRecord& result,
                     tn_output_update update) override;
    /// Starts an output unless it is switched off: 0; -1006 there is no place to write to; -1009
    /// the movie has no tracks; -1011 one of that type runs already; -1041 nobody makes a track's
    /// codec. `settings` may say "expected_seconds", "moov_rate" and "stop_seconds". `result` gets
    /// "path".
    int BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                    zRecord& result) override;
    /// Completes the output: 0, also if it had failed before or never ran.
    int EndOutput(const tnOutputAccessor& output, const tnOutputAccessor& active,
                  zRecord& result) override;

    /// Fills `answer` with "frames" and "bytes" of the outputs that run, together, or of the one
    /// that ended last: 0. `request` is not read.
    int StatisticsControl(zRecord& request, zRecord& answer) override;
    unsigned int TrackCount() override;
    int GetTrackFormat(unsigned int index, tnMediaRecord* format) override;
    unsigned int FormatID() override { return fID; }
    const char* FormatName() override { return fName; }
    int GetMovieSetting(const char* name, zRecord& value) override;
    int SetMovieSetting(const char* name, const zRecord& value) override;

protected:
    OutputMovie(unsigned int id, const char* name);

    /// What a track's stream asks the filter manager for.
    virtual tnMediaRecord request_for(const tnMediaRecord& track) = 0;
    /// Before the first stream observes: what requests need may be registered here.
    virtual void prepare() {}
    virtual std::shared_ptr<MovieOutput> make_output(const MovieOutput::Settings& settings) = 0;

    /// The format of the track of that kind; an empty record if there is none.
    tnMediaRecord track_of(tnMediaType type) const;

private:
    OutputMovieStream* stream_of(tnMediaType type) const;
    int join_encoders();
    void leave_encoders();
    void end_output(tn_output type);
    std::string place_for(const tnOutputAccessor& output);

    const unsigned int fID;
    const char* const fName;
    const std::shared_ptr<tnOutputStreamSync> fSync;
    const std::shared_ptr<OutputFan> fFan = std::make_shared<OutputFan>();
    std::map<tn_output, std::shared_ptr<MovieOutput>> fRunning;
    std::map<std::string, int> fStarts;  // how often an output began at that place
    std::shared_ptr<MovieOutput> fLast;  // to have ended
};
