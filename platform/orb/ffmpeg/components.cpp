#include "orb/CComponentInventory.h"
#include "orb/MovieFileInventory.h"
#include "orb/container/MovieFile.h"
#include "orb/ffmpeg/AvMovieFile.h"

namespace Quillon::Orb {

// One line a component: a declaration here and its call below. Each function stands beside its
// component and adds the factory to the inventory of its kind.
void RegisterAacCompressor();
void RegisterAudioFormatConverter();
void RegisterAudioRateConverter();
void RegisterPixelConverter();

void RegisterX264();
void RegisterPlatformCompressor();
void RegisterNvenc();
void RegisterMotionJpeg();
void RegisterMpeg2();

void RegisterBuiltInComponents() {
    MovieFileInventory::AddBehind('mov ', MakeMovieFile);
    MovieFileInventory::AddBehind('mp4 ', MakeMovieFile);
    MovieFileInventory::AddBehind('ts  ', MakeAvMovieFile);
    RegisterAacCompressor();
    RegisterAudioFormatConverter();
    RegisterAudioRateConverter();
    RegisterPixelConverter();
    RegisterX264();
    RegisterPlatformCompressor();
    RegisterNvenc();
    RegisterMotionJpeg();
    RegisterMpeg2();
}

}  // namespace Quillon::Orb
