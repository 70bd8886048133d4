#pragma once

#include "tarn/export.h"

class tnMediaRecord;
class tnOutputStream;

/// Plans which output streams share an encoder, for add-ons and hosts whose outputs may.
///
/// The filter manager itself decides by shape and rate alone, and gives every request whose codec
/// has a factory an encoder of its own, even one that joins an equal output: asked plainly, the
/// second of two like outputs would hear each frame twice, and an output of another codec could
/// hear frames of the wrong one. Here a stream that wants what another one of its source already
/// gets, codec and settings included, joins it by a codec name that no factory bears; every other
/// stream gets an encoder of its own under a request that equals no standing one. So a sink gets
/// every frame once, of its own codec, whoever joined first and whoever has left since.
///
/// One plan serves the process; any thread. Streams of one source either all come through here or
/// none: a request that goes to the manager directly may still join an output of this plan.
/// Its lock is taken before the filter manager's.
class TARN_API tnSharedEncoders {
public:
    tnSharedEncoders() = delete;

    /// Starts the stream on an encoder of its encoded format: 0; -22 if it has started already;
    /// -1041, with nothing changed, when no factory makes that codec, or the format is one that
    /// nobody can share: neither pictures nor sound, or of a frame rate that is no number.
    ///
    /// A stream that joins a running encoder gets what comes next, which need not be a key frame.
    /// The stream is kept alive until no delivery to it can be under way any more, which may be
    /// after Leave and after its maker's last release. Its filter may arrive before this returns,
    /// on this thread and under the plan's lock, and so may those of other streams that waited.
    static int Join(tnOutputStream& stream);
    /// Stops the stream; the encoder goes with its last user. One that has not joined is left
    /// alone. A delivery that is under way on another thread is not waited for.
    static void Leave(tnOutputStream& stream);

    /// How many streams share the encoder that makes this format of the source.
    static int CountUsers(int source, const tnMediaRecord& format);
};
