#pragma once

/// Spots of a source's road where delay can be tried on a running show.
enum class LivePoint {
    kDecompressor,  ///< before a clip's picture is decoded
    kRenderer,      ///< before a picture is handed to the outputs
};

/// Called by the sources' threads at each point, once a frame.
void LiveAtPoint(LivePoint point);
