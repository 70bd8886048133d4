#pragma once

#include "orb/BlockPool.h"
#include "orb/CByteArray.h"
#include "orb/RObject.h"
#include "orb/Result.h"

#include "PixelFormat.h"
#include "VideoShape.h"

namespace Quillon::Orb {

/// Encodes pictures as JPEG straight from their planes. One object serves one thread.
///
/// The planes go in as they are, but that luma of odd sizes is completed in a copy. JPEG by itself
/// means full range; pictures of limited range get the comment "CS=ITU601", by which decoders of
/// moving JPEG know them. The pixel aspect stands in the JFIF header. The matrix has no place in a
/// JPEG and is for the container to tell.
class JpegPicture {
public:
    static constexpr unsigned int kFormats[] = {'I422', 'I420', 'YV16', 'YV12', 'GREY'};
    static constexpr int kFormatCount = 5;

    JpegPicture();
    JpegPicture(const JpegPicture&) = delete;
    JpegPicture& operator=(const JpegPicture&) = delete;
    ~JpegPicture();

    /// `quality` 1 to 100 is libjpeg's scale. Any thread, but one at a time.
    Result Encode(const PixelImage& image, const VideoShape& shape, int quality,
                  RObject<CByteArray>& jpeg);

private:
    Result complete_luma(const VideoShape& shape, int subsampling, PixelImage& image);
    Result compress(const PixelImage& image, const VideoShape& shape, int quality,
                    unsigned long& size);

    void* fCompressor;  // tjhandle
    Block fScratch;     // room for the worst case; finished pictures are copied out
    unsigned long fScratchSize = 0;
    Block fLuma;  // of odd sizes, with what libjpeg wants behind the last column and row
    unsigned long fLumaSize = 0;
};

}  // namespace Quillon::Orb
