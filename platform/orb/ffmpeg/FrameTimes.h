#pragma once

#include <deque>

namespace Quillon::Orb {

/// The times of pictures inside an encoder that may hold pictures back and reorder them.
///
/// Pictures are numbered as they go in. They come out in decode order, and the nth one out takes
/// the time and the duration of the nth one in, however irregular those are:
///
///     in       I0   B1   B2   P3          times 0 10 20 30
///     out      I0   P3   B1   B2
///     time      0   10   20   30
///     offset    0  +20  -10  -10          time + offset is the time that the picture came with
class FrameTimes {
public:
    struct Stamp {
        long long time = 0;
        long long duration = 0;
        long long compositionOffset = 0;
    };

    /// Notes a picture that goes in and gives its number, counted from 0.
    long long Push(long long time, long long duration) {
        fPictures.push_back({time, duration, false});
        return fFirst + static_cast<long long>(fPictures.size()) - 1;
    }
    /// Takes the last Push back: the encoder refused the picture.
    void Unpush() { fPictures.pop_back(); }

    /// For the next picture out, which is number `picture`; false for one that is not inside.
    bool Pop(long long picture, Stamp& stamp) {
        const long long size = static_cast<long long>(fPictures.size());
        const long long shown = picture - fFirst;
        const long long decoded = fNextOut - fFirst;
        if (shown < 0 || shown >= size || decoded >= size || at(shown).out) return false;
        stamp.time = at(decoded).time;
        stamp.duration = at(decoded).duration;
        stamp.compositionOffset = distance(stamp.time, at(shown).time);
        at(shown).out = true;
        ++fNextOut;
        while (!fPictures.empty() && fPictures.front().out && fFirst < fNextOut) {
            fPictures.pop_front();
            ++fFirst;
        }
        return true;
    }

    /// Pictures that went in and have not come out.
    long long CountInside() const {
        return fFirst + static_cast<long long>(fPictures.size()) - fNextOut;
    }

private:
    struct Picture {
        long long time;
        long long duration;
        bool out;
    };

    /// Wraps for times from both ends of the scale, whose distance no file could tell.
    static long long distance(long long from, long long to) {
        return static_cast<long long>(static_cast<unsigned long long>(to) -
                                      static_cast<unsigned long long>(from));
    }

    Picture& at(long long index) { return fPictures[static_cast<std::size_t>(index)]; }

    std::deque<Picture> fPictures;
    long long fFirst = 0;    // number of the front of fPictures
    long long fNextOut = 0;  // how many came out
};

}  // namespace Quillon::Orb
