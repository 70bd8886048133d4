#include "codeText.h"

#include <fmt/format.h>

#include "tarn/writers/writerErrors.h"

namespace {

struct CodeText {
    int code;
    const char* text;     // {} is the encoder
    bool traced = false;  // a line of the trace says more
};

constexpr CodeText kTexts[] = {
    {-1, "it could not be started; check that its folder can be written to"},
    {kWriterTimeout, "it could not keep up; its disk or its receiver is too slow"},
    {-22, "one of its settings is empty; fill it in"},
    {-28, "this kind of movie cannot do that"},
    {kWriterNoFile,
     "it cannot be written; check that its folder or its address is there and can be written to"},
    {-1009, "this kind of movie takes one <video> and one <audio> at most, and needs one"},
    {-1011, "it runs already; switch it off first"},
    {-1023, "there is no such output; check its name"},
    {-1024, "there is no memory for it; stop other outputs"},
    {kWriterNoVideoTrack,
     "it takes no track of such pictures; use another codec or another kind of file"},
    {kWriterQuickSyncInSoftware, "{} needs hardware that is not here; use x264"},
    {kWriterToolboxInSoftware, "{} needs hardware that is not here; use x264"},
    {-1037, "{} does not take pictures of that pixel format; use another codec"},
    {kWriterConverterInput,
     "the pictures cannot be converted for {}; use another size or another codec"},
    {kWriterConverterOutput,
     "the pictures cannot be converted for {}; use another size or another codec"},
    {kWriterConverterBegin,
     "the conversion of the pictures for {} does not begin; use another size or another codec"},
    {kWriterFormat,
     "{} is not known here, or does not take the pictures' format or one of its settings; "
     "check them",
     true},
    {kWriterTrackRefused,
     "this kind of file takes no track of {}; use another codec or another kind of file"},
    {kWriterVideoBegin, "{} does not start with these settings; check them", true},
    {-1044, "{} is not here; use another codec"},
    {kWriterConversion, "a picture could not be converted for {}; use another size", true},
    {kWriterCopy, "there is no memory for a copy of a picture; stop other outputs"},
    {kWriterVideoSample,
     "it took no more pictures; look whether its disk is full or its receiver is gone", true},
    {kWriterAudioConverter, "the sound cannot be converted to what it takes; use another codec"},
    {kWriterNoAudioTrack, "there is no encoder or no memory for its sound; use another codec"},
    {kWriterAudioBegin,
     "the sound encoder does not start with this rate and these channels; use another codec"},
    {kWriterAudioTrack, "this kind of file does not take that sound; use another codec"},
    {kWriterAudioConversion, "a block of sound could not be converted; use another codec", true},
    {kWriterAudioSample,
     "it took no more sound; look whether its disk is full or its receiver is gone", true},
    {kOutputLeavesOut,
     "its disk or its encoder is too slow, and a part is left out; use a faster disk or another "
     "codec"},
    {kOutputGetsNothing,
     "nothing comes for one of its tracks; look whether its source gives any, and in which format"},
};

const CodeText* find(int code) {
    for (const CodeText& row : kTexts) {
        if (row.code == code) return &row;
    }
    return nullptr;
}

std::string text_of(const CodeText& row, const std::string& encoder) {
    return fmt::format(fmt::runtime(row.text), encoder);
}

}  // namespace

std::string WriterText(int code, const std::string& encoder) {
    const CodeText* const row = find(code);
    if (!row) return fmt::format("failed with code {}; docs/errors.md tells what it means", code);
    return fmt::format("{}{} (code {})", text_of(*row, "'" + encoder + "'"),
                       row->traced ? "; the line above says more" : "", code);
}

std::string MovieErrorText(int code, const std::string& location) {
    const CodeText* const row = find(code);
    if (!row) {
        return fmt::format("'{}': failed with code {}; docs/errors.md tells what it means",
                           location, code);
    }
    return fmt::format("'{}': {} (code {})", location, text_of(*row, "its encoder"), code);
}
