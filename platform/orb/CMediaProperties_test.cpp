#include "orb/CMediaProperties.h"

#include <gtest/gtest.h>

#include "orb/CContainerReaderAudioProperties.h"
#include "orb/CContainerReaderVideoProperties.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

RObject<CVideoProperties> full_video() {
    RObject<CVideoProperties> p(new CVideoProperties(nullptr));
    p->SetFormat('apch');
    p->SetTimescale(30000);
    p->SetDuration(900000);
    p->SetWidth(1440);
    p->SetHeight(1080);
    p->SetFrameDuration(1001);
    p->SetFieldOrder(2);
    p->SetPixelAspectRatio({1920, 1440});
    p->SetColorSpace(ColorSpace::BT601P);
    p->SetVideoRange(2);
    p->SetReorderDepth(1);
    return p;
}

void expect_full(const CVideoProperties& p) {
    EXPECT_EQ(static_cast<unsigned>('apch'), p.GetFormat());
    EXPECT_EQ(30000, p.GetTimescale());
    EXPECT_EQ(900000, p.GetDuration());
    EXPECT_EQ(1440, p.GetWidth());
    EXPECT_EQ(1080, p.GetHeight());
    EXPECT_EQ(1001, p.GetFrameDuration());
    EXPECT_EQ(2, p.GetFieldOrder());
    EXPECT_EQ(Rational<int>(1920, 1440), p.GetPixelAspectRatio());
    EXPECT_TRUE(p.GetColorSpace() == ColorSpace::BT601P);
    EXPECT_EQ(2, p.GetVideoRange());
    EXPECT_EQ(1, p.GetReorderDepth());
    EXPECT_EQ(Rational<long long>(30000, 1001), p.GetFrameRate());
}

TEST(CVideoProperties, CopyIsTheSameAndItsOwn) {
    RObject<CVideoProperties> p = full_video();
    RObject<CVideoProperties> copy(new CVideoProperties(p.Get()));
    RObject<CVideoProperties> file(new CContainerReaderVideoProperties(p.Get()));
    p->SetWidth(16);
    p->SetFormat('UYVY');
    expect_full(*copy);
    expect_full(*file);
    EXPECT_TRUE(file->IsType(CVideoProperties::kType));
    EXPECT_TRUE(file->IsType(CMediaProperties::kType));
    EXPECT_FALSE(copy->IsType(CContainerReaderVideoProperties::kType));
    RObject<CVideoProperties> again(new CContainerReaderVideoProperties(
        static_cast<const CContainerReaderVideoProperties*>(file.Get())));
    expect_full(*again);
}

TEST(CVideoProperties, EmptyOnesSayNothing) {
    RObject<CVideoProperties> p(new CVideoProperties(nullptr));
    RObject<CVideoProperties> file(new CContainerReaderVideoProperties(nullptr));
    for (CVideoProperties* empty : {p.Get(), file.Get()}) {
        EXPECT_EQ(0u, empty->GetFormat());
        EXPECT_EQ(0, empty->GetTimescale());
        EXPECT_EQ(0, empty->GetWidth());
        EXPECT_EQ(0, empty->GetFrameDuration());
        EXPECT_EQ(1, empty->GetFieldOrder());
        EXPECT_EQ(1, empty->GetVideoRange());
        EXPECT_EQ(Rational<int>(1, 1), empty->GetPixelAspectRatio());
        EXPECT_TRUE(empty->GetColorSpace() == ColorSpace());
        EXPECT_EQ(Rational<long long>(0, 1), empty->GetFrameRate());
        EXPECT_EQ(-1, empty->GetReorderDepth());
    }
}

TEST(CVideoProperties, WhatAPictureCannotHaveIsRefused) {
    RObject<CVideoProperties> p = full_video();
    const Result results[] = {p->SetWidth(-1),     p->SetHeight(-1),    p->SetFrameDuration(-1),
                              p->SetFieldOrder(0), p->SetFieldOrder(4), p->SetVideoRange(0),
                              p->SetVideoRange(3), p->SetTimescale(-1), p->SetReorderDepth(-1)};
    for (const Result& result : results) EXPECT_EQ(ResultInvalidArgument::kCode, result);
    expect_full(*p);
    EXPECT_EQ(0, p->SetFrameRate({3000, 100}));
    EXPECT_EQ(Rational<long long>(3000, 100), p->GetFrameRate());
    // Hosts divide by a rate that may be missing.
    EXPECT_EQ(0, p->SetFrameRate({30000, 0}));
    EXPECT_EQ(0, p->SetDuration(-5));
    EXPECT_EQ(0, p->GetDuration());
}

TEST(ColorSpace, ConstantsDiffer) {
    const ColorSpace all[] = {ColorSpace(), ColorSpace::BT709, ColorSpace::BT601N,
                              ColorSpace::BT601P};
    for (std::size_t i = 0; i < std::size(all); ++i) {
        for (std::size_t j = 0; j < std::size(all); ++j) EXPECT_EQ(i == j, all[i] == all[j]);
    }
    EXPECT_EQ(ColorSpace::BT601N.GetMatrix(), ColorSpace::BT601P.GetMatrix());
}

TEST(CAudioProperties, CopiesAndCountsInItsRate) {
    RObject<CAudioProperties> p(new CContainerReaderAudioProperties(nullptr));
    EXPECT_EQ(0, p->GetTimescale());
    EXPECT_EQ(1, p->GetFramesPerPacket());
    p->SetFormat('sowt');
    p->SetChannels(2);
    p->SetSampleRate(48000);
    p->SetBitsPerSample(16);
    p->SetBytesPerPacket(4);
    p->SetFramesPerPacket(1);
    p->SetPrimingFrames(1024);
    p->SetBitRate(128000);
    EXPECT_EQ(48000, p->GetTimescale());
    RObject<CAudioProperties> copy(new CContainerReaderAudioProperties(p.Get()));
    p->SetTimescale(1000);
    EXPECT_EQ(1000, p->GetTimescale());
    EXPECT_EQ(48000, copy->GetTimescale());
    EXPECT_EQ(static_cast<unsigned>('sowt'), copy->GetFormat());
    EXPECT_EQ(2, copy->GetChannels());
    EXPECT_EQ(16, copy->GetBitsPerSample());
    EXPECT_EQ(4, copy->GetBytesPerPacket());
    EXPECT_EQ(1024, copy->GetPrimingFrames());
    EXPECT_EQ(128000, copy->GetBitRate());
    const Result results[] = {p->SetChannels(-1),        p->SetSampleRate(-1),
                              p->SetBitsPerSample(-1),   p->SetBytesPerPacket(-1),
                              p->SetFramesPerPacket(-1), p->SetPrimingFrames(-1),
                              p->SetBitRate(-1)};
    for (const Result& result : results) EXPECT_EQ(ResultInvalidArgument::kCode, result);
    EXPECT_EQ(2, p->GetChannels());
}

TEST(CAudioProperties, KnowsPlainSamples) {
    for (const unsigned int format : {0x736F7774u, 0x74776F73u, 0x32336C66u, 0x666C3332u}) {
        EXPECT_TRUE(CAudioProperties::IsPcm(format));
    }
    EXPECT_FALSE(CAudioProperties::IsPcm('mp4a'));
    EXPECT_FALSE(CAudioProperties::IsPcm(0));
}

TEST(CMediaProperties, ExtensionsAreSharedByKey) {
    RObject<CVideoProperties> p = full_video();
    EXPECT_EQ(nullptr, p->GetExtension('mspe'));
    RObject<CDecoderSpecificProperties> plain(new CDecoderSpecificProperties());
    RObject<CByteArray> info = bytes_of({1, 2, 3});
    EXPECT_FALSE(plain->HasDecoderInfo());
    plain->SetDecoderInfo(info.Get());
    RObject<CMpeg4AvcProperties> avc(new CMpeg4AvcProperties());
    p->SetExtension('mspe', plain.Get());
    p->SetExtension('h264', avc.Get());
    RObject<CVideoProperties> copy(new CVideoProperties(p.Get()));
    p->SetExtension('mspe', nullptr);
    EXPECT_EQ(nullptr, p->GetExtension('mspe'));
    RObject<CDecoderSpecificProperties> found(copy->GetExtension('mspe'));
    EXPECT_EQ(plain, found);
    RObject<CByteArray> got;
    EXPECT_EQ(0, found->GetDecoderInfo(got));
    EXPECT_EQ(info, got);
    found = copy->GetExtension('h264');
    EXPECT_TRUE(found->IsType(CMpeg4AvcProperties::kType));
    EXPECT_EQ(0, found->GetDecoderInfo(got));
    EXPECT_FALSE(got);
}

}  // namespace
}  // namespace Quillon::Orb
