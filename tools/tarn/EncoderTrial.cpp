#include "EncoderTrial.h"

#include <chrono>
#include <fmt/format.h>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

#include "orb/CAudioCompressor.h"
#include "orb/CAudioProperties.h"
#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "spar/zTraceManager.h"
#include "tarn/filters/tnCodecFilters.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kSampleRate = 48'000;

/// What the library says meanwhile. Never destroyed: a trial that was left behind may still speak.
class Listener : public zTraceManager {
public:
    static Listener& Only() {
        static auto* only = new Listener;
        return *only;
    }

    void TraceMessage(int, const std::string& text) override {
        const std::lock_guard<std::mutex> lock(fLock);
        if (fHeard.empty()) fHeard = text;
    }

    /// The first message since the last call, without the speaker's name and the end of line.
    std::string Take() {
        const std::lock_guard<std::mutex> lock(fLock);
        std::string heard = std::move(fHeard);
        fHeard.clear();
        constexpr std::size_t kSpeaker = 8;  // 'code': and a blank
        if (heard.size() > kSpeaker && heard[0] == '\'' && heard.compare(5, 3, "': ") == 0) {
            heard.erase(0, kSpeaker);
        }
        while (!heard.empty() && heard.back() == '\n') heard.pop_back();
        return heard;
    }

private:
    std::mutex fLock;
    std::string fHeard;
};

std::string text_of(unsigned int code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code >> shift);
    return text;
}

EncoderAnswer refusal(const Result& result, const char* step) {
    EncoderAnswer answer;
    answer.why = *result.GetMessage() ? result.GetMessage() : fmt::format("it fails to {}", step);
    return answer;
}

RObject<CVideoProperties> frame_shape(unsigned int format) {
    RObject<CVideoProperties> shape(new CVideoProperties(nullptr));
    shape->SetFormat(format);
    shape->SetWidth(kWidth);
    shape->SetHeight(kHeight);
    shape->SetTimescale(30000);
    shape->SetFrameDuration(1001);
    shape->SetFieldOrder(1);
    return shape;
}

EncoderAnswer encode_frame(CVideoCompressor& encoder, const CVideoProperties* shape) {
    CVideoSample* made = nullptr;
    Result result = CVideoFilter::CreateSample(shape, made);
    if (result.Failed()) return refusal(result, "make a frame");
    const RObject<CVideoSample> frame(made);
    frame->SetTime(0);
    result = encoder.ProcessSample(frame.Get());
    if (result.Succeeded()) result = encoder.ProcessSample(nullptr);
    if (result.Failed()) return refusal(result, "encode a frame");
    RObject<CVideoSample> encoded;
    result = encoder.ReceiveSample(encoded);
    if (result.Failed()) return refusal(result, "give its frame");
    EncoderAnswer answer;
    answer.works = static_cast<bool>(encoded);
    if (!answer.works) answer.why = "it gives nothing for a frame";
    encoder.GetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration,
                        answer.inHardware);
    return answer;
}

EncoderAnswer try_video(const EncoderKind& kind) {
    using Inventory = CComponentInventory<CComponentFactory<CVideoCompressor>>;
    const RObject<CVideoCompressor> encoder(Inventory::CreateInstance(kind.component));
    if (!encoder) return {false, false, "this build has no such component"};
    Result result = encoder->SetOutputFormat(kind.output);
    if (result.Failed()) return refusal(result, "take its output format");
    const RObject<CValueList<unsigned int>> formats(encoder->GetInputFormats());
    unsigned int input = 0;
    if (!formats || formats->GetValue(0, input).Failed()) {
        return {false, false, "it takes no pictures"};
    }
    const RObject<CVideoProperties> shape = frame_shape(input);
    result = encoder->SetInputProperties(shape.Get());
    if (result.Succeeded()) result = encoder->SetOutputFormat(kind.output);
    if (result.Failed()) return refusal(result, "take pictures");
    result = encoder->Begin();
    if (result.Failed()) return refusal(result, "begin");
    EncoderAnswer answer = encode_frame(*encoder, shape.Get());
    encoder->End();
    if (kind.onlyInHardware && !answer.inHardware) answer.works = false;
    return answer;
}

EncoderAnswer try_audio(const EncoderKind& kind) {
    using Inventory = CComponentInventory<CComponentFactory<CAudioCompressor>>;
    const RObject<CAudioCompressor> encoder(Inventory::CreateInstance(kind.component));
    if (!encoder) return {false, false, "this build has no such component"};
    const RObject<CValueList<unsigned int>> formats(encoder->GetInputFormats());
    unsigned int input = 0;
    if (!formats || formats->GetValue(0, input).Failed()) {
        return {false, false, "it takes no sound"};
    }
    const RObject<CAudioProperties> shape(new CAudioProperties(nullptr));
    shape->SetFormat(input);
    shape->SetSampleRate(kSampleRate);
    shape->SetTimescale(kSampleRate);
    shape->SetChannels(2);
    shape->SetBitsPerSample(16);
    shape->SetBytesPerPacket(4);
    shape->SetFramesPerPacket(1);
    Result result = encoder->SetInputProperties(shape.Get());
    if (result.Succeeded()) result = encoder->SetOutputFormat(kind.output);
    if (result.Failed()) return refusal(result, "take sound");
    result = encoder->Begin();
    if (result.Failed()) return refusal(result, "begin");
    encoder->End();
    return {true, false, {}};
}

EncoderAnswer try_now(const EncoderKind& kind) {
    return kind.isAudio ? try_audio(kind) : try_video(kind);
}

}  // namespace

const std::vector<EncoderKind>& AllEncoderKinds() {
    static const std::vector<EncoderKind> kinds = {
        {tnCodecFilters::kX264, 'h264', 'h264', false, false},
        {tnCodecFilters::kPlatformH264, 'vtbx', 'h264', false, true},
        {tnCodecFilters::kNvencH264, 'nven', 'h264', false, true},
        {tnCodecFilters::kProRes, 'vtbx', 'apch', false, false},
        {tnCodecFilters::kMotionJpeg, 'mjpg', 'jpeg', false, false},
        {"Mpeg2", 'mcm2', 'mp2v', false, false},
        {tnCodecFilters::kAac, 'caac', 'mp4a', true, false},
    };
    return kinds;
}

EncoderAnswer TryEncoder(const EncoderKind& kind, long long limitUs) {
    Listener& listener = Listener::Only();
    zTraceManager* const before = zTraceManager::SetDefault(&listener);
    listener.Take();
    auto promise = std::make_shared<std::promise<EncoderAnswer>>();
    std::future<EncoderAnswer> outcome = promise->get_future();
    std::thread([promise, kind] { promise->set_value(try_now(kind)); }).detach();

    EncoderAnswer answer;
    if (outcome.wait_for(std::chrono::microseconds(limitUs)) == std::future_status::ready) {
        answer = outcome.get();
    } else {
        answer.why = fmt::format("its driver has not answered within {:g} s",
                                 static_cast<double>(limitUs) / 1e6);
    }
    zTraceManager::SetDefault(before);
    const std::string heard = listener.Take();
    if (!answer.works && answer.why.empty()) {
        answer.why = heard.empty() ? fmt::format("'{}' does not run in hardware here",
                                                 text_of(kind.component))
                                   : heard;
    }
    if (answer.works) answer.why.clear();
    return answer;
}
