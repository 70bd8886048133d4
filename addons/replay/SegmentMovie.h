#pragma once

#include "addons/mux/MuxOutput.h"

/// The movie file of one segment, written on the thread of whoever makes the segments.
class SegmentMovie final : public MuxOutput {
public:
    SegmentMovie(const std::string& path, bool hasSound, double expectedSeconds)
        : MuxOutput('mov ', settings_for(path, hasSound, expectedSeconds)) {}

    int Begin(const MovieStart& start) { return begin_file(start); }
    int WritePicture(const MediaItem& item) { return write_picture(item); }
    int WriteSound(const MediaItem& item) { return write_sound(item); }
    /// The movie is on the disk when it succeeds.
    int Finish() { return finish_file(); }

private:
    static Settings settings_for(const std::string& path, bool hasSound, double expectedSeconds) {
        Settings settings;
        settings.where = path;
        settings.hasPictures = true;
        settings.hasSound = hasSound;
        settings.expectedSeconds = expectedSeconds;
        return settings;
    }
};
