#include "tarn/movies/tnDestination.h"

namespace {

constexpr int kDestinationChanged = 'mdDC';
constexpr const char* kMessage = "tnDestinationMsg";

}  // namespace

std::string tnDestination::GetDefaultEncoderName() const {
    return {};
}

void tnDestination::SendChangeNotification() {
    Notify(kDestinationChanged, kMessage, 'mdSC', nullptr);
}

void tnDestination::SendNonInvalidatingChangeNotification() {
    Notify(kDestinationChanged, kMessage, 'mdNC', nullptr);
}

void tnDestination::SendKeepPresetsChangeNotification() {
    Notify(kDestinationChanged, kMessage, 'mdKP', nullptr);
}
