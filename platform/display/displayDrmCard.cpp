#include "display/displayDrmCard.h"

#include <fcntl.h>
#include <unistd.h>
#include <xf86drm.h>
#include <xf86drmMode.h>

namespace {

struct FreeResources {
    void operator()(drmModeRes* resources) const { drmModeFreeResources(resources); }
};
struct FreeCrtc {
    void operator()(drmModeCrtc* crtc) const { drmModeFreeCrtc(crtc); }
};

class Card final : public displayDrmCard {
public:
    explicit Card(int descriptor)
        : fDescriptor(descriptor), fResources(drmModeGetResources(descriptor)) {}
    ~Card() override {
        fResources.reset();
        close(fDescriptor);
    }
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    int PipeCount() override { return fResources ? fResources->count_crtcs : 0; }

    bool ActiveMode(int pipe, displayDrmMode& mode) override {
        if (pipe >= PipeCount()) return false;
        const std::unique_ptr<drmModeCrtc, FreeCrtc> crtc(
            drmModeGetCrtc(fDescriptor, fResources->crtcs[pipe]));
        if (!crtc || !crtc->mode_valid) return false;
        mode.pixelClockKhz = static_cast<int>(crtc->mode.clock);
        mode.horizontalTotal = crtc->mode.htotal;
        mode.verticalTotal = crtc->mode.vtotal;
        mode.verticalScan = crtc->mode.vscan > 1 ? crtc->mode.vscan : 1;
        mode.interlaced = (crtc->mode.flags & DRM_MODE_FLAG_INTERLACE) != 0;
        mode.doubleScan = (crtc->mode.flags & DRM_MODE_FLAG_DBLSCAN) != 0;
        return true;
    }

    bool WaitForVblank(int pipe, unsigned int ahead, unsigned int& sequence,
                       long long& realTime) override {
        drmVBlank blank{};
        const unsigned int which = static_cast<unsigned int>(pipe) << DRM_VBLANK_HIGH_CRTC_SHIFT;
        blank.request.type = static_cast<drmVBlankSeqType>(DRM_VBLANK_RELATIVE |
                                                           (which & DRM_VBLANK_HIGH_CRTC_MASK));
        blank.request.sequence = ahead;
        // Gives up by itself when the display has gone dark.
        if (drmWaitVBlank(fDescriptor, &blank) != 0) return false;
        sequence = blank.reply.sequence;
        realTime = static_cast<long long>(blank.reply.tval_sec) * 1'000'000 + blank.reply.tval_usec;
        return true;
    }

private:
    const int fDescriptor;
    std::unique_ptr<drmModeRes, FreeResources> fResources;
};

}  // namespace

std::unique_ptr<displayDrmCard> displayDrmCard::Open(const char* path) {
    const int descriptor = open(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    // Whoever opens an idle card first becomes its master and shuts the display server out.
    drmDropMaster(descriptor);
    return std::make_unique<Card>(descriptor);
}
