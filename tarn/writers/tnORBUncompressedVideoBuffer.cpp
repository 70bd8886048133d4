#include "tarn/writers/tnORBUncompressedVideoBuffer.h"

// Here, so that the type has one place: the writer tells such buffers from others at run time.
tnORBUncompressedVideoBuffer::~tnORBUncompressedVideoBuffer() = default;
