#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "orb/CAudioCompressor.h"
#include "orb/CByteArray.h"
#include "orb/CComponentInventory.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoConverter.h"
#include "orb/CodeBookProperty.h"
#include "orb/MovieFileInventory.h"
#include "orb/container/MovieFile.h"

// Media components that do as a test tells them, and a movie file that only keeps what it is given.

namespace orbDoubles {

using namespace Quillon::Orb;

/// What the components of one code are to do, and what was done to them.
struct Script {
    std::vector<unsigned int> inputFormats = {'UYVY', 'I420'};
    std::vector<unsigned int> outputFormats;
    bool noInputFormats = false;  ///< GetInputFormats gives null
    bool inHardware = false;
    bool failInput = false;
    bool failBegin = false;
    bool failSample = false;
    bool giveNothing = false;
    bool takesOutput = false;          ///< of a converter: SetOutputProperties succeeds
    std::atomic<bool> stuck{false};    ///< ProcessSample does not come back while this is set
    std::atomic<bool> entered{false};  ///< ProcessSample was called
    /// Sees every picture as it enters, on the component's thread.
    std::function<void(const CVideoSample&)> look;
    std::set<std::string> refused;  ///< property names

    std::map<std::string, long long> numbers;  ///< properties that were set
    std::map<std::string, std::string> texts;
    std::vector<std::string> order;
    RObject<CVideoProperties> input;
    RObject<CVideoProperties> output;
    int begun = 0;
    int ended = 0;
};

/// Declares every property that writers set, and notes what is set.
template <class Base>
class Noting : public Base {
protected:
    Noting(unsigned int type, Script& script) : Base(type), fScript(script) {
        using namespace CodeBookProperty;
        constexpr int kAny = 0x7FFFFFFF;
        for (const PropertyName& name :
             {JpegCompressor::Quality, H264Compressor::Threads, H264Compressor::BitRate,
              H264Compressor::NumBFrames, H264Compressor::BFramePyramid,
              H264Compressor::MaxKeyFrameInterval, CodeBookProperty::VideoCompressor::BitRate,
              VideoToolboxCompressor::Profile, VideoToolboxCompressor::KeyFrameInterval,
              VideoToolboxCompressor::MaximumBitrate, MainConceptMpeg2Compressor::Profile,
              MainConceptMpeg2Compressor::Level, MainConceptMpeg2Compressor::M,
              MainConceptMpeg2Compressor::N, MainConceptMpeg2Compressor::ClosedGopInterval,
              CodeBookProperty::AudioCompressor::BitRate, CoreAudioCompressor::RateControlMethod}) {
            this->DeclareInt(name, 0, -kAny, kAny);
        }
        this->DeclareString(H264Compressor::Profile, "");
        this->DeclareString(H264Compressor::Preset, "");
        this->DeclareFour(MediaFilter::OutputFormat, 0);
    }

    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (fScript.refused.count(name.GetText())) return ResultNotSupported("told to refuse");
        fScript.order.push_back(name.GetText());
        if (value.kind == PropertyValue::Kind::String) {
            fScript.texts[name.GetText()] = value.text->GetText();
        } else {
            fScript.numbers[name.GetText()] = value.kind == PropertyValue::Kind::Four
                                                  ? static_cast<long long>(value.four)
                                                  : value.integer;
        }
        return 0;
    }

    Script& fScript;
};

inline CValueList<unsigned int>* list_of(const std::vector<unsigned int>& values) {
    auto* list = new CValueList<unsigned int>();
    for (const unsigned int value : values) list->AddValue(value);
    return list;
}

/// Shares its one way from sample to sample between compressor and converter.
template <class Base>
class VideoDouble : public Noting<Base> {
public:
    VideoDouble(unsigned int type, Script& script) : Noting<Base>(type, script) {}

    CValueList<unsigned int>* GetInputFormats() override {
        if (this->fScript.noInputFormats) return nullptr;
        return list_of(this->fScript.inputFormats);
    }
    CValueList<unsigned int>* GetOutputFormats() override {
        return list_of(this->fScript.outputFormats);
    }
    Result SetInputProperties(const CVideoProperties* properties) override {
        if (this->fScript.failInput) return ResultError("told to fail");
        Base::SetInputProperties(properties);
        this->fScript.input = RObject<CVideoProperties>(new CVideoProperties(properties));
        return 0;
    }
    Result Begin() override {
        ++this->fScript.begun;
        if (this->fScript.failBegin) return ResultError("told to fail");
        return 0;
    }
    Result End() override {
        ++this->fScript.ended;
        return 0;
    }
    Result ProcessSample(CVideoSample* sample) override {
        if (!sample) return 0;
        this->fScript.entered = true;
        if (this->fScript.look) this->fScript.look(*sample);
        while (this->fScript.stuck) std::this_thread::yield();
        if (this->fScript.failSample) return ResultError("told to fail");
        fSamples.push_back(RObject<CVideoSample>(made_from(sample)));
        return 0;
    }
    Result ReceiveSample(RObject<CVideoSample>& sample) override {
        sample.Clear();
        if (fSamples.empty() || this->fScript.giveNothing) return 0;
        sample = fSamples.front();
        fSamples.erase(fSamples.begin());
        return 0;
    }

private:
    virtual CVideoSample* made_from(CVideoSample* sample) = 0;

    std::vector<RObject<CVideoSample>> fSamples;
};

/// Gives ten bytes for every frame.
class Compressor final : public VideoDouble<CVideoCompressor> {
public:
    Compressor(unsigned int type, Script& script) : VideoDouble(type, script) {
        UpdateFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, script.inHardware);
    }

private:
    CVideoSample* made_from(CVideoSample* sample) override {
        auto* made = new CVideoSample(sample);
        const RObject<CByteArray> bytes(new CByteArray(10, 1));
        std::fill_n(bytes->GetData(), 10, static_cast<unsigned char>(7));
        const RObject<CMemoryDataReference> data(new CMemoryDataReference(bytes.Get()));
        made->SetDataReference(data.Get());
        return made;
    }
};

/// Hands every picture on as it is.
class Converter final : public VideoDouble<CVideoConverter> {
public:
    Converter(unsigned int type, Script& script) : VideoDouble(type, script) {}

    Result SetOutputProperties(const CVideoProperties* properties) override {
        return fScript.takesOutput ? Result(0) : CVideoConverter::SetOutputProperties(properties);
    }

private:
    CVideoSample* made_from(CVideoSample* sample) override { return new CVideoSample(sample); }
};

/// Takes sound and gives none.
class AudioDouble final : public Noting<CAudioCompressor> {
public:
    AudioDouble(unsigned int type, Script& script) : Noting(type, script) {}

    CValueList<unsigned int>* GetInputFormats() override { return list_of(fScript.inputFormats); }
    CValueList<unsigned int>* GetOutputFormats() override { return list_of(fScript.outputFormats); }
    Result Begin() override {
        return fScript.failBegin ? Result(ResultError("told to fail")) : Result(0);
    }
    Result End() override { return 0; }
    Result PutSample(int, CMediaSample* sample) override {
        return sample && fScript.failSample ? Result(ResultError("told to fail")) : Result(0);
    }
    Result GetSample(int, RObject<CMediaSample>& sample) override {
        sample.Clear();
        return 0;
    }
};

/// Puts components of a script in front of the inventory for as long as it lives.
template <class Kind, class Double>
class Registered {
public:
    Registered(unsigned int code, Script& script) : fFactory(new Factory(code, script)) {
        Inventory::GetSingleton().AddFirst(fFactory.Get());
    }
    ~Registered() { Inventory::GetSingleton().Remove(fFactory.Get()); }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

    int Made() const { return fFactory->made; }
    void GiveNull() { fFactory->giveNull = true; }

private:
    using Inventory = CComponentInventory<CComponentFactory<Kind>>;

    class Factory final : public CComponentFactory<Kind> {
    public:
        Factory(unsigned int code, Script& script)
            : CComponentFactory<Kind>(code), fScript(script) {}
        Kind* CreateInstance() override {
            if (giveNull) return nullptr;
            ++made;
            return new Double(this->GetType(), fScript);
        }
        int made = 0;
        bool giveNull = false;

    private:
        Script& fScript;
    };

    const RObject<Factory> fFactory;
};

/// What a movie file was given.
struct FileScript {
    struct Sample {
        int track;
        long long time;
        long long duration;
        long long packets;
        std::size_t size;
        std::vector<unsigned char> bytes;
    };

    // set by the test before the file begins
    bool failBegin = false;
    int failAtSample = -1;             ///< the first sample that is refused
    std::atomic<bool> stuck{false};    ///< WriteSample does not come back while this is set
    std::atomic<bool> entered{false};  ///< WriteSample was called

    // read by the test after the file has finished
    std::mutex lock;
    std::vector<MovieTrack> tracks;
    std::vector<Sample> samples;
    MovieFileOptions options;
    bool finished = false;
};

inline FileScript*& CurrentFileScript() {
    static FileScript* script = nullptr;
    return script;
}

class FileDouble final : public MovieFile {
public:
    explicit FileDouble(FileScript& script) : fScript(script) {}

    int AddTrack(const MovieTrack& track) override {
        fScript.tracks.push_back(track);
        return static_cast<int>(fScript.tracks.size()) - 1;
    }
    Result Begin() override {
        return fScript.failBegin ? Result(ResultError("told to fail")) : Result(0);
    }
    Result WriteSample(int track, const MovieSample& sample) override {
        fScript.entered = true;
        while (fScript.stuck) std::this_thread::yield();
        const std::lock_guard<std::mutex> lock(fScript.lock);
        if (static_cast<int>(fScript.samples.size()) == fScript.failAtSample)
            return ResultError("told to fail");
        fScript.samples.push_back(
            {track, sample.decodeTime, sample.duration, sample.packets, sample.size,
             std::vector<unsigned char>(sample.data, sample.data + sample.size)});
        return 0;
    }
    Result Finish() override {
        fScript.finished = true;
        return 0;
    }

private:
    FileScript& fScript;
};

/// Puts the double in place of the files of these container types for as long as it lives.
class RegisteredFile {
public:
    explicit RegisteredFile(FileScript& script,
                            const std::vector<unsigned int>& types = {'mov ', 'mp4 '})
        : fTypes(types) {
        CurrentFileScript() = &script;
        for (const unsigned int type : fTypes) {
            MovieFileInventory::Add(type, [](const char*, const MovieFileOptions& options) {
                CurrentFileScript()->options = options;
                return std::unique_ptr<MovieFile>(new FileDouble(*CurrentFileScript()));
            });
        }
    }
    ~RegisteredFile() {
        for (const unsigned int type : fTypes) MovieFileInventory::Add(type, nullptr);
    }
    RegisteredFile(const RegisteredFile&) = delete;
    RegisteredFile& operator=(const RegisteredFile&) = delete;

private:
    const std::vector<unsigned int> fTypes;
};

}  // namespace orbDoubles
