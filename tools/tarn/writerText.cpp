#include "writerText.h"

#include <fmt/format.h>

#include "tarn/writers/writerErrors.h"

namespace {

struct CodeText {
    int code;
    const char* text;  // {} is the subject
};

constexpr CodeText kTexts[] = {
    {kWriterNoFile,
     "the file cannot be written; check that its folder exists and can be written to"},
    {kWriterNoVideoTrack, "no memory for the picture track"},
    {kWriterQuickSyncInSoftware, "'{}' needs hardware that is not here; use x264"},
    {kWriterToolboxInSoftware, "'{}' needs hardware that is not here; use x264"},
    {kWriterConverterInput, "the picture format cannot be converted for '{}'"},
    {kWriterConverterOutput, "the picture format cannot be converted for '{}'"},
    {kWriterConverterBegin, "no pixel converter for '{}'"},
    {kWriterFormat,
     "'{}' does not take this format or one of its settings; the line above says which"},
    {kWriterTrackRefused, "the file does not take a track of '{}'"},
    {kWriterVideoBegin,
     "the encoder '{}' does not start with these settings; the line above says why"},
    {kWriterConversion, "a picture could not be converted for '{}'"},
    {kWriterCopy, "no memory for a copy of a picture"},
    {kWriterVideoSample, "'{}' stopped: the file took no more; the line above says why"},
    {kWriterAudioConverter, "the sound cannot be converted to the file's format"},
    {kWriterNoAudioTrack, "no memory for the sound track"},
    {kWriterAudioBegin, "the sound encoder does not start with this rate and these channels"},
    {kWriterAudioTrack, "the file does not take this sound"},
    {kWriterAudioConversion, "a block of sound could not be converted"},
    {kWriterAudioSample, "the {} stopped: the file took no more; the line above says why"},
};

}  // namespace

std::string WriterText(int code, const std::string& subject) {
    for (const CodeText& row : kTexts) {
        if (row.code == code)
            return fmt::format(fmt::runtime(row.text), subject) + fmt::format(" (code {})", code);
    }
    return fmt::format("failed with code {}", code);
}
