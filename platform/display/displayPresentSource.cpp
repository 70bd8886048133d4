#include "display/displayPresentSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <xcb/present.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>

#include "spar/zTime.h"

namespace {

// A dark screen is still counted once a second; a server that is silent for longer has died.
constexpr long long kSilenceUs = 3'000'000;

struct Free {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, Free>;

xcb_window_t root_of(xcb_connection_t* connection) {
    return xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
}

bool has_extension(xcb_connection_t* connection, xcb_extension_t& extension) {
    const xcb_query_extension_reply_t* reply = xcb_get_extension_data(connection, &extension);
    return reply && reply->present;
}

bool has_present(xcb_connection_t* connection) {
    if (!has_extension(connection, xcb_present_id)) return false;
    const auto cookie = xcb_present_query_version(connection, 1, 0);
    return Reply<xcb_present_query_version_reply_t>(
               xcb_present_query_version_reply(connection, cookie, nullptr)) != nullptr;
}

/// The mode of the screen's first display that is lit; 0 when none is.
xcb_randr_mode_t lit_mode(xcb_connection_t* connection,
                          const xcb_randr_get_screen_resources_current_reply_t& resources) {
    const xcb_randr_crtc_t* crtcs = xcb_randr_get_screen_resources_current_crtcs(&resources);
    const int count = xcb_randr_get_screen_resources_current_crtcs_length(&resources);
    for (int i = 0; i < count; ++i) {
        const auto cookie =
            xcb_randr_get_crtc_info(connection, crtcs[i], resources.config_timestamp);
        const Reply<xcb_randr_get_crtc_info_reply_t> info(
            xcb_randr_get_crtc_info_reply(connection, cookie, nullptr));
        if (info && info->mode != 0) return info->mode;
    }
    return 0;
}

displayRefreshRate rate_of(const xcb_randr_mode_info_t& mode) {
    long long pixels = static_cast<long long>(mode.htotal) * mode.vtotal;
    if (mode.mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN) pixels *= 2;
    long long pixelsPerSecond = mode.dot_clock;
    if (mode.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) pixelsPerSecond *= 2;
    return displayRefreshRate::OfMode(pixelsPerSecond, pixels);
}

/// The connection is ours alone, so its common queue holds these; a special queue of their own
/// would not be freed once the server has died.
const xcb_present_complete_notify_event_t* as_complete_notify(xcb_connection_t* connection,
                                                              const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7F) != XCB_GE_GENERIC) return nullptr;
    const auto& generic = reinterpret_cast<const xcb_ge_generic_event_t&>(event);
    const xcb_query_extension_reply_t* present =
        xcb_get_extension_data(connection, &xcb_present_id);
    if (!present || generic.extension != present->major_opcode) return nullptr;
    if (generic.event_type != XCB_PRESENT_COMPLETE_NOTIFY) return nullptr;
    return reinterpret_cast<const xcb_present_complete_notify_event_t*>(&event);
}

}  // namespace

std::unique_ptr<displayRefreshSource> displayPresentSource::ForDefaultScreen() {
    std::unique_ptr<displayPresentSource> source(new displayPresentSource);
    if (!source->open()) return nullptr;
    return source;
}

displayPresentSource::~displayPresentSource() {
    xcb_disconnect(fConnection);
    if (fInterrupt >= 0) close(fInterrupt);
}

bool displayPresentSource::open() {
    fConnection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(fConnection) || !has_present(fConnection)) return false;
    fInterrupt = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fInterrupt < 0) return false;
    // The root window: it is there, and lies on the display that shows the screen's origin.
    fWindow = root_of(fConnection);
    xcb_present_select_input(fConnection, xcb_generate_id(fConnection), fWindow,
                             XCB_PRESENT_EVENT_MASK_COMPLETE_NOTIFY);
    read_rate();
    // The counter as it stands tells that the server has one.
    Complete now{};
    ask(0);
    if (!next(now)) return false;
    fCount = now.count;
    return true;
}

void displayPresentSource::read_rate() {
    if (!has_extension(fConnection, xcb_randr_id)) return;
    const auto cookie = xcb_randr_get_screen_resources_current(fConnection, fWindow);
    const Reply<xcb_randr_get_screen_resources_current_reply_t> resources(
        xcb_randr_get_screen_resources_current_reply(fConnection, cookie, nullptr));
    if (!resources) return;
    const xcb_randr_mode_t lit = lit_mode(fConnection, *resources);
    auto mode = xcb_randr_get_screen_resources_current_modes_iterator(resources.get());
    for (; mode.rem > 0; xcb_randr_mode_info_next(&mode)) {
        if (mode.data->id == lit) fRate = rate_of(*mode.data);
    }
}

displayRefreshRate displayPresentSource::Rate() const {
    return fRate;
}

void displayPresentSource::Begin() {
    uint64_t interrupts = 0;
    while (read(fInterrupt, &interrupts, sizeof interrupts) > 0) {
    }
    // From the count as it stands, so that a start after a long stop is not an old refresh at once.
    Complete now{};
    ask(0);
    if (next(now)) fCount = now.count;
}

void displayPresentSource::Interrupt() {
    const uint64_t once = 1;
    // A counter that is full is set already.
    [[maybe_unused]] const ssize_t written = write(fInterrupt, &once, sizeof once);
}

bool displayPresentSource::WaitForRefresh(displayRefresh& refresh) {
    ask(fCount + 1);
    Complete complete{};
    if (!next(complete)) return false;
    fCount = complete.count;
    refresh = fRate.At(fCount, complete.realTime);
    return true;
}

void displayPresentSource::ask(long long count) {
    xcb_present_notify_msc(fConnection, fWindow, ++fSerial, static_cast<uint64_t>(count), 0, 0);
    xcb_flush(fConnection);
}

bool displayPresentSource::next(Complete& complete) {
    for (;;) {
        const Reply<xcb_generic_event_t> event(xcb_poll_for_event(fConnection));
        if (!event) {
            if (xcb_connection_has_error(fConnection) || !wait_readable()) return false;
            continue;
        }
        const auto* notify = as_complete_notify(fConnection, *event);
        // The answer to a wait that was interrupted comes late.
        if (!notify || notify->serial != fSerial) continue;
        complete.realTime = static_cast<long long>(notify->ust);
        complete.count = static_cast<long long>(notify->msc);
        return true;
    }
}

bool displayPresentSource::wait_readable() {
    pollfd watched[2] = {{xcb_get_file_descriptor(fConnection), POLLIN, 0},
                         {fInterrupt, POLLIN, 0}};
    const long long until = zTime::MicroNow() + kSilenceUs;
    int ready = 0;
    do {
        // A signal that the process handles ends it early and says nothing about the display.
        const long long leftMs = std::max(until - zTime::MicroNow(), 0LL) / 1000;
        ready = poll(watched, 2, static_cast<int>(leftMs));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && watched[1].revents == 0;
}
