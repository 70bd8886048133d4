#include <string_view>

#include "SampleDescription.h"

namespace Quillon::Orb {
namespace {

constexpr std::size_t kNameField = 32;
constexpr unsigned int kDotsPerInch72 = 0x00480000;
constexpr unsigned int kVisualStream = 4;
constexpr unsigned int kObjectMpeg2Main = 0x61;
constexpr unsigned int kObjectJpeg = 0x6c;

std::string_view compressor_name(unsigned int format) {
    switch (format) {
        case 'avc1':
            return "H.264";
        case 'apco':
            return "Apple ProRes 422 (Proxy)";
        case 'apcs':
            return "Apple ProRes 422 (LT)";
        case 'apcn':
            return "Apple ProRes 422";
        case 'apch':
            return "Apple ProRes 422 (HQ)";
        case 'ap4h':
            return "Apple ProRes 4444";
        case 'jpeg':
            return "Photo - JPEG";
        default:
            return "MPEG-2 Video";
    }
}

/// ISO files name the two families without a code of their own by an MPEG-4 stream descriptor.
unsigned int stream_object(unsigned int format, bool quickTime) {
    if (quickTime) return 0;
    if (format == 'mp2v') return kObjectMpeg2Main;
    return format == 'jpeg' ? kObjectJpeg : 0;
}

void write_colour(BoxWriter& writer, const MovieColour& colour, bool quickTime) {
    if (colour.primaries == 0 && colour.transfer == 0 && colour.matrix == 0) return;
    constexpr int kUnspecified = 2;
    const auto put = [&writer](int code) {
        writer.U16(static_cast<unsigned int>(code == 0 ? kUnspecified : code));
    };
    BoxWriter::Box colr(writer, 'colr');
    writer.U32(quickTime ? 'nclc' : 'nclx');
    put(colour.primaries);
    put(colour.transfer);
    put(colour.matrix);
    if (!quickTime) writer.U8(colour.fullRange ? 0x80 : 0);
}

void write_fields(BoxWriter& writer, int fieldOrder) {
    // Both fields are woven into one picture, and these numbers say which is displayed first. 1 and
    // 6 are for fields that are stored one behind the other.
    constexpr unsigned int kDetail[] = {0, 0, 9, 14};
    BoxWriter::Box fiel(writer, 'fiel');
    writer.U8(fieldOrder == 1 ? 1 : 2);
    writer.U8(kDetail[fieldOrder]);
}

void write_clean_aperture(BoxWriter& writer, const MovieTrack& track) {
    if (track.cleanWidth == 0 || track.cleanHeight == 0) return;
    BoxWriter::Box clap(writer, 'clap');
    const auto ratio = [&writer](int numerator) {
        writer.U32(static_cast<unsigned int>(numerator));
        writer.U32(1);
    };
    ratio(track.cleanWidth);
    ratio(track.cleanHeight);
    ratio(0);  // in the middle
    ratio(0);
}

}  // namespace

void WriteVideoDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime) {
    const unsigned int object = stream_object(track.format, quickTime);
    BoxWriter::Box entry(writer, object == 0 ? track.format : 'mp4v');
    writer.Zeros(6);
    writer.U16(1);  // data reference
    writer.U32(0);  // version and revision
    if (quickTime) {
        writer.Zeros(4);  // no vendor
        writer.U32(track.format == 'avc1' || track.format == 'mp2v' ? 512 : 0);
        writer.U32(512);  // spatial quality: normal
    } else {
        writer.Zeros(12);
    }
    writer.U16(static_cast<unsigned int>(track.width));
    writer.U16(static_cast<unsigned int>(track.height));
    writer.U32(kDotsPerInch72);
    writer.U32(kDotsPerInch72);
    writer.U32(0);
    writer.U16(1);  // frames per sample
    const std::string_view name = compressor_name(track.format);
    writer.U8(static_cast<unsigned int>(name.size()));
    writer.Text(name);
    writer.Zeros(kNameField - 1 - name.size());
    writer.U16(track.format == 'ap4h' ? 32 : 24);
    writer.U16(0xffff);  // no colour table
    if (track.format == 'avc1') {
        BoxWriter::Box avcC(writer, 'avcC');
        writer.Bytes(track.decoderConfiguration.data(), track.decoderConfiguration.size());
    }
    if (object != 0)
        WriteStreamDescriptor(writer, {object, kVisualStream, 0, &track.decoderConfiguration});
    write_colour(writer, track.colour, quickTime);
    write_fields(writer, track.fieldOrder);
    write_clean_aperture(writer, track);
    BoxWriter::Box pasp(writer, 'pasp');
    writer.U32(static_cast<unsigned int>(track.pixelAspectNumerator));
    writer.U32(static_cast<unsigned int>(track.pixelAspectDenominator));
}

}  // namespace Quillon::Orb
