#pragma once

#include <string>
#include <vector>

/// A mov or mp4 file as its boxes, read without any library: the tests' own opinion of a file.
struct Box {
    unsigned int type = 0;
    long long position = 0;  // of its head
    long long size = 0;      // as it says, or to the end of the file for 0
    int headSize = 8;
    std::vector<Box> children;

    /// The first box of that path below this one, such as "mdia/minf/stbl"; null if there is none.
    const Box* Find(const char* path) const;
    std::vector<const Box*> FindAll(const char* name) const;
};

/// One track as its tables say.
struct BoxTrack {
    std::string handler;  // "vide" or "soun"
    std::string format;
    long long timescale = 0;
    long long duration = 0;       // mdhd
    long long movieDuration = 0;  // tkhd
    struct Edit {
        long long duration;  // of the movie
        long long mediaTime;
    };
    std::vector<Edit> edits;
    struct Sample {
        long long position;
        long long size;
        long long time;
        long long duration;
        long long offset;
        bool key;
    };
    std::vector<Sample> samples;  // a packet each
    long long chunks = 0;
};

struct BoxFile {
    std::vector<Box> boxes;
    long long movieTimescale = 0;
    long long movieDuration = 0;
    std::vector<BoxTrack> tracks;
    long long size = 0;
    /// What is wrong with it: sizes, order, tables that contradict each other. Empty when all is
    /// well.
    std::vector<std::string> complaints;

    const Box* Find(const char* path) const;
    /// The tree as text, a box a line: name and size, indented. Positions and times are left out.
    std::string Text() const;
    std::string Complaints() const;
};

/// Reads `bytes` of a file; what lies beyond them is absent.
BoxFile ParseBoxes(const std::vector<unsigned char>& bytes);
/// Reads a file of any length: boxes but not media data.
BoxFile ParseBoxFile(const std::string& path);
