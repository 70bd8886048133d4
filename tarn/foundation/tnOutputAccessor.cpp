#include "tarn/foundation/tnOutputAccessor.h"

#include <memory>

#include "spar/zRecord.h"
#include "spar/zString.h"
#include "spar/zStringID.h"
#include "spar/zURLString.h"

namespace {

constexpr int kNoSuchOutput = -1023;
constexpr int kRTSPPort = 554;

/// The port that a location without a scheme and a port gets from the scheme put before it.
constexpr int kAssumedSchemePort = 21;

struct Name {
    unsigned int fId;
    const char* fKey;
};

constexpr Name kNames[] = {
    {'musr', "output_username"},
    {'mpas', "output_password"},
    {'mloc', "output_location"},
    {'mloB', "output_location_with_bitrate"},
    {'mtmO', "output_nettimeout"},
    {'mtra', "output_transport"},
    {'mURL', "output_url"},
    {'mOyp', "output_type"},
    {'mObr', "output_branding"},
    {'mOen', "output_enabled"},
    {'mSSa', "output_streamingaction"},
    {'mVdP', "output_videodataport"},
    {'mAdP', "output_audiodataport"},
    {'mMTi', "output_title"},
    {'mMIn', "output_info"},
    {'mMCo', "output_copyright"},
    {'mMAu', "output_author"},
    {'mPRS', "output_presetname"},
    {'mWMp', "output_wm_pull_port"},
    {'mWpC', "output_wm_pull_connections"},
    {'mWaR', "output_wm_push_auto_remove"},
    {'mAiF', "output_autoinfilename"},
    {'tnHf', "output_hintfile"},
    {'mWIf', "output_index_asf"},
    {'tnGN', "output_display_group_name"},
    {'tnDN', "output_display_name"},
    {'aDCr', "avc_decoder_config_record"},
};

/// Splits a location that may lack its scheme: the second try puts one before it.
bool parse_url(const std::string& url, zString* host, int* port) {
    if (zURLString::Get(url.c_str(), nullptr, host, nullptr, port, nullptr, nullptr) == 0) {
        return true;
    }
    const std::string withScheme = "ftp://" + url;
    return zURLString::Get(withScheme.c_str(), nullptr, host, nullptr, port, nullptr, nullptr) == 0;
}

}  // namespace

tnOutputAccessor::tnOutputAccessor(zRecord& record) : fRecord(&record) {}

// A view is made of what the caller may only read as well; the caller then leaves the setters
// alone.
tnOutputAccessor::tnOutputAccessor(const zRecord& record)
    : fRecord(const_cast<zRecord*>(&record)) {}

tnOutputAccessor& tnOutputAccessor::operator=(const zRecord& source) {
    if (fRecord != nullptr && fRecord != &source) {
        fRecord->Copy(source, true, true, {});
    }
    return *this;
}

tnOutputAccessor& tnOutputAccessor::operator=(const tnOutputAccessor& source) {
    return source.fRecord != nullptr ? *this = *source.fRecord : *this;
}

void tnOutputAccessor::set(zRecord& record) {
    fRecord = &record;
}

void tnOutputAccessor::Print() {
    if (fRecord != nullptr) {
        fRecord->Print(0, 0);
    }
}

void tnOutputAccessor::RegisterVariableNames() {
    for (const Name& name : kNames) {
        zStringID::Default().Add(name.fId, name.fKey, false);
    }
}

int tnOutputAccessor::FindOutputForType(zRecord& outputs, tnOutputAccessor& out, tn_output type,
                                        bool create) {
    for (zRecord* child : outputs.Children()) {
        tnOutputAccessor output;
        output.fRecord = child;
        if (output.OutputType() == type) {
            out.fRecord = output.fRecord;
            return 0;
        }
    }
    if (!create) {
        return kNoSuchOutput;
    }
    auto made = std::make_unique<zRecord>();
    made->SetInt32('mOyp', type, 0);
    zRecord* const output = made.get();
    outputs.AddChild(made.release(), 0x7FFFFFFF);  // which deletes it where the list cannot grow
    out.fRecord = output;
    return 0;
}

bool tnOutputAccessor::HasOutputWithGroupName(zRecord& outputs, const char* name) {
    for (zRecord* child : outputs.Children()) {
        tnOutputAccessor output;
        output.fRecord = child;
        if (zString::string_equal(output.OutputDisplayGroupName().c_str(), name)) {
            return true;
        }
    }
    return false;
}

bool tnOutputAccessor::GetHostname(zString& host) const {
    const std::string url = URL();
    return !url.empty() && parse_url(url, &host, nullptr);
}

int tnOutputAccessor::GetRTSPPort() const {
    const std::string url = URL();
    int port = 0;
    if (url.empty() || !parse_url(url, nullptr, &port)) {
        return kRTSPPort;
    }
    return port < 1 || port == kAssumedSchemePort ? kRTSPPort : port;
}

bool tnOutputAccessor::IsRTSPAnnounceTransport() const {
    if (fRecord == nullptr || OutputType() != TN_OUTPUT_STREAMING) {
        return false;
    }
    switch (StreamingTransport()) {
        case TN_TRANSPORT_ANNOUNCED_1:
        case TN_TRANSPORT_ANNOUNCED_2:
        case TN_TRANSPORT_ANNOUNCED_6:
            return true;
        default:
            return false;
    }
}

bool tnOutputAccessor::IsOutputBranding(const char* name) const {
    const std::string branding = OutputBranding();
    return name != nullptr && !branding.empty() && branding == name;
}

tn_output tnOutputAccessor::OutputType() const {
    return static_cast<tn_output>(int_at('mOyp', 0, TN_OUTPUT_DEFAULT));
}

void tnOutputAccessor::SetOutputType(tn_output type) {
    set_int('mOyp', type);
}

bool tnOutputAccessor::OutputEnabled() const {
    return bool_at('mOen', false, false);
}

void tnOutputAccessor::SetOutputEnabled(bool enabled) {
    if (fRecord != nullptr) {
        fRecord->SetCString('xTag', "output", 0);
        fRecord->SetBool('mOen', enabled, 0);
    }
}

std::string tnOutputAccessor::PresetName() const {
    return string_at('mPRS');
}

void tnOutputAccessor::SetPresetName(const std::string& name) {
    set_string('mPRS', name);
}

std::string tnOutputAccessor::URL() const {
    return string_at('mURL');
}

void tnOutputAccessor::SetURL(const std::string& url) {
    set_string('mURL', url);
}

std::string tnOutputAccessor::OutputBranding() const {
    return string_at('mObr');
}

void tnOutputAccessor::SetOutputBranding(const std::string& branding) {
    set_string('mObr', branding);
}

std::string tnOutputAccessor::OutputDisplayGroupName() const {
    return string_at('tnGN');
}

void tnOutputAccessor::SetOutputDisplayGroupName(const std::string& name) {
    set_string('tnGN', name);
}

std::string tnOutputAccessor::OutputDisplayName() const {
    return string_at('tnDN');
}

void tnOutputAccessor::SetOutputDisplayName(const std::string& name) {
    set_string('tnDN', name);
}

int tnOutputAccessor::StreamingAction() const {
    return int_at('mSSa', 0, 0);
}

void tnOutputAccessor::SetStreamingAction(int action) {
    set_int('mSSa', action);
}

bool tnOutputAccessor::AutoIncrementFileName() const {
    return bool_at('mAiF', false, false);
}

void tnOutputAccessor::SetAutoIncrementFileName(bool on) {
    set_bool('mAiF', on);
}

bool tnOutputAccessor::TimestampFileName() const {
    return bool_at('mTFn', false, false);
}

void tnOutputAccessor::SetTimestampFileName(bool on) {
    set_bool('mTFn', on);
}

tn_transport tnOutputAccessor::StreamingTransport() const {
    return static_cast<tn_transport>(int_at('mtra', 0, 2));
}

void tnOutputAccessor::SetStreamingTransport(tn_transport transport) {
    set_int('mtra', transport);
}

bool tnOutputAccessor::HintFile() const {
    return bool_at('tnHf', false, false);
}

void tnOutputAccessor::SetHintFile(bool on) {
    set_bool('tnHf', on);
}

const char* tnOutputAccessor::Username() const {
    return text_at('musr');
}

void tnOutputAccessor::SetUsername(const char* name) {
    set_text('musr', name);
}

const char* tnOutputAccessor::Password() const {
    return text_at('mpas');
}

void tnOutputAccessor::SetPassword(const char* password) {
    set_text('mpas', password);
}

std::string tnOutputAccessor::LocationOnServer() const {
    return string_at('mloc');
}

void tnOutputAccessor::SetLocationOnServer(const std::string& location) {
    set_string('mloc', location);
}

std::string tnOutputAccessor::LocationOnServerWithBitrate() const {
    std::string location = string_at('mloB');
    return location.empty() ? LocationOnServer() : location;
}

void tnOutputAccessor::SetLocationOnServerWithBitrate(const std::string& location) {
    set_string('mloB', location);
}

int tnOutputAccessor::MilliTimeout() const {
    return int_at('mtmO', 0, 0);
}

void tnOutputAccessor::SetMilliTimeout(int milliseconds) {
    set_int('mtmO', milliseconds);
}

int tnOutputAccessor::VideoDataPort() const {
    return int_at('mVdP', DefaultVideoDataPort(), DefaultVideoDataPort());
}

void tnOutputAccessor::SetVideoDataPort(int port) {
    set_int('mVdP', port);
}

int tnOutputAccessor::AudioDataPort() const {
    return int_at('mAdP', DefaultAudioDataPort(), DefaultAudioDataPort());
}

void tnOutputAccessor::SetAudioDataPort(int port) {
    set_int('mAdP', port);
}

const char* tnOutputAccessor::MulticastVideoAddress() const {
    return fRecord->AsCString('mVMA', nullptr, nullptr);
}

void tnOutputAccessor::SetMulticastVideoAddress(const char* address) {
    set_text('mVMA', address);
}

const char* tnOutputAccessor::MulticastAudioAddress() const {
    return fRecord->AsCString('mAMA', nullptr, nullptr);
}

void tnOutputAccessor::SetMulticastAudioAddress(const char* address) {
    set_text('mAMA', address);
}

int tnOutputAccessor::MulticastTTL() const {
    return int_at('mAMT', DefaultMulticastTTL(), DefaultMulticastTTL());
}

void tnOutputAccessor::SetMulticastTTL(int hops) {
    set_int('mAMT', hops);
}

int tnOutputAccessor::GetWindowsMediaPullPort() const {
    return int_at('mWMp', 0, 0);
}

void tnOutputAccessor::SetWindowsMediaPullPort(int port) {
    set_int('mWMp', port);
}

bool tnOutputAccessor::IndexASFFile() const {
    return bool_at('mWIf', true, true);
}

void tnOutputAccessor::SetIndexASFFile(bool on) {
    set_bool('mWIf', on);
}

bool tnOutputAccessor::GetAutoRemovePushConnection() const {
    return bool_at('mWaR', true, false);
}

void tnOutputAccessor::SetAutoRemovePushConnection(bool on) {
    set_bool('mWaR', on);
}

int tnOutputAccessor::GetMaxWMPullConnections() const {
    return int_at('mWpC', 0, 0);
}

void tnOutputAccessor::SetMaxWMPullConnections(int count) {
    set_int('mWpC', count);
}

int tnOutputAccessor::OutputUniqueID() const {
    return int_at("unique_id", 0, 0);
}

void tnOutputAccessor::SetOutputUniqueID(int id) {
    fRecord->SetInt32("unique_id", id, 0);
}

const char* tnOutputAccessor::OutputGUID() const {
    return text_at("output_guid");
}

void tnOutputAccessor::SetOutputGUID(const char* guid) {
    set_text("output_guid", guid);
}

const char* tnOutputAccessor::OutputSDKDescription() const {
    return text_at("output_sdk_description");
}

void tnOutputAccessor::SetOutputSDKDescription(const char* description) {
    set_text("output_sdk_description", description);
}

int tnOutputAccessor::FlashStreamingDelay() const {
    return int_at("flash_streaming_delay", 0, 0);
}

void tnOutputAccessor::SetFlashStreamingDelay(int delay) {
    set_int("flash_streaming_delay", delay);
}

unsigned int tnOutputAccessor::AudioOutputTrackMask() const {
    return fRecord != nullptr ? fRecord->AsUInt32("audio_output_track_mask", 1) : 1;
}

void tnOutputAccessor::SetAudioOutputTrackMask(unsigned int mask) {
    if (fRecord != nullptr) {
        fRecord->SetUInt32("audio_output_track_mask", mask, 0);
    }
}

bool tnOutputAccessor::IsRestreamingEnabled() const {
    return bool_at('mReS', false, false);
}

void tnOutputAccessor::SetRestreamingEnabled(bool on) {
    set_bool('mReS', on);
}

bool tnOutputAccessor::bool_at(unsigned long long id, bool ifMissing, bool ifNull) const {
    return fRecord != nullptr ? fRecord->AsBool(id, ifMissing) : ifNull;
}

int tnOutputAccessor::int_at(unsigned long long id, int ifMissing, int ifNull) const {
    return fRecord != nullptr ? fRecord->AsInt32(id, ifMissing) : ifNull;
}

int tnOutputAccessor::int_at(const char* key, int ifMissing, int ifNull) const {
    return fRecord != nullptr ? fRecord->AsInt32(key, ifMissing) : ifNull;
}

std::string tnOutputAccessor::string_at(unsigned long long id) const {
    return fRecord != nullptr ? fRecord->AsString(id, {}) : std::string();
}

const char* tnOutputAccessor::text_at(unsigned long long id) const {
    return fRecord != nullptr ? fRecord->AsCString(id, nullptr, nullptr) : nullptr;
}

const char* tnOutputAccessor::text_at(const char* key) const {
    return fRecord != nullptr ? fRecord->AsCString(key, nullptr, nullptr) : nullptr;
}

void tnOutputAccessor::set_bool(unsigned long long id, bool value) {
    if (fRecord != nullptr) {
        fRecord->SetBool(id, value, 0);
    }
}

void tnOutputAccessor::set_int(unsigned long long id, int value) {
    if (fRecord != nullptr) {
        fRecord->SetInt32(id, value, 0);
    }
}

void tnOutputAccessor::set_int(const char* key, int value) {
    if (fRecord != nullptr) {
        fRecord->SetInt32(key, value, 0);
    }
}

void tnOutputAccessor::set_string(unsigned long long id, const std::string& text) {
    if (fRecord != nullptr) {
        fRecord->SetString(id, text, 0);
    }
}

void tnOutputAccessor::set_text(unsigned long long id, const char* text) {
    if (fRecord != nullptr) {
        fRecord->SetCString(id, text, 0);
    }
}

void tnOutputAccessor::set_text(const char* key, const char* text) {
    if (fRecord != nullptr) {
        fRecord->SetCString(key, text, 0);
    }
}
