// Components, tracks and hosts are built apart from this library: they find its virtual operations
// by their places in the tables. An operation that moves breaks them without a word.

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoWriter.h"
#include "orb/CAssetWriter.h"
#include "orb/CAudioConverter.h"
#include "orb/CComponentFactory.h"
#include "orb/CContainerWriter.h"
#include "orb/CDecoderSpecificProperties.h"
#include "orb/CEnumerator.h"
#include "orb/CPixelDataReference.h"
#include "orb/CString.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoProperties.h"

namespace Quillon::Orb {
namespace {

/// The place of a virtual operation in the table of its class, as pointers to members hold it.
template <class Member>
std::size_t place_of(Member member) {
    std::uintptr_t parts[2];
    static_assert(sizeof parts == sizeof member);
    std::memcpy(parts, &member, sizeof parts);
#if defined(__aarch64__)
    return parts[0] / sizeof(void*);
#else
    return (parts[0] - 1) / sizeof(void*);
#endif
}

// Behind the two entries of the destructor.
TEST(VirtualOrder, OfObjects) {
    const std::size_t places[] = {
        place_of(&CObject::IsType),
        place_of(&CObject::Equals),
        place_of(&CObject::GetHashCode),
        place_of(&CObject::ToString),
        place_of(&CObject::Synchronize),
        place_of(&CObject::Enter),
        place_of(&CObject::TryEnter),
        place_of(static_cast<void (CObject::*)() const>(&CObject::Wait)),
        place_of(static_cast<bool (CObject::*)(int) const>(&CObject::Wait)),
        place_of(&CObject::Notify),
        place_of(&CObject::NotifyAll),
        place_of(&CObject::Exit),
    };
    std::size_t expected = 2;
    for (const std::size_t place : places) EXPECT_EQ(place, expected++);
}

constexpr std::size_t kFirstOwn = 14;  // behind the operations of CObject

TEST(VirtualOrder, OfProperties) {
    EXPECT_EQ(place_of(&CMediaProperties::GetFormat), kFirstOwn);
    EXPECT_EQ(place_of(&CMediaProperties::SetFormat), kFirstOwn + 1);
    EXPECT_EQ(place_of(&CMediaProperties::GetTimescale), kFirstOwn + 2);
    EXPECT_EQ(place_of(&CMediaProperties::SetTimescale), kFirstOwn + 3);
    EXPECT_EQ(place_of(&CMediaProperties::SetDuration), kFirstOwn + 5);
    EXPECT_EQ(place_of(&CDecoderSpecificProperties::GetDecoderInfo), kFirstOwn + 2);
}

TEST(VirtualOrder, OfEnumerators) {
    using Walk = CEnumerator<CString>;
    EXPECT_EQ(place_of(&Walk::Reset), kFirstOwn);
    EXPECT_EQ(place_of(&Walk::MoveNext), kFirstOwn + 1);
    EXPECT_EQ(place_of(static_cast<CString* (Walk::*)()>(&Walk::GetCurrent)), kFirstOwn + 2);
    EXPECT_EQ(place_of(static_cast<Result (Walk::*)(CString*&)>(&Walk::GetCurrent)), kFirstOwn + 3);
}

TEST(VirtualOrder, OfPixels) {
    const std::size_t lock = place_of(&CPixelDataReference::Lock);
    EXPECT_EQ(place_of(&CPixelDataReference::Unlock), lock + 1);
    EXPECT_EQ(place_of(&CPixelDataReference::GetData), lock + 3);
    EXPECT_EQ(place_of(&CPixelDataReference::GetStride), lock + 4);
}

template <class Filter, class Properties>
void expect_order_of_filter() {
    EXPECT_EQ(place_of(&Filter::GetInputProperties), kFirstOwn);
    EXPECT_EQ(place_of(&Filter::GetOutputProperties), kFirstOwn + 1);
    EXPECT_EQ(place_of(&Filter::Begin), kFirstOwn + 2);
    EXPECT_EQ(place_of(&Filter::End), kFirstOwn + 3);
    EXPECT_EQ(place_of(&Filter::GetInputFormats), kFirstOwn + 4);
    EXPECT_EQ(place_of(&Filter::GetOutputFormats), kFirstOwn + 5);
    EXPECT_EQ(place_of(&Filter::SetInputProperties), kFirstOwn + 6);
    EXPECT_EQ(place_of(&Filter::PutSample), kFirstOwn + 7);
    EXPECT_EQ(place_of(&Filter::GetSample), kFirstOwn + 8);
}

TEST(VirtualOrder, OfFilters) {
    expect_order_of_filter<CVideoFilter, CVideoProperties>();
    expect_order_of_filter<CAudioFilter, CAudioProperties>();
    EXPECT_EQ(place_of(&CVideoFilter::ProcessSample), kFirstOwn + 9);
    EXPECT_EQ(place_of(&CVideoFilter::ReceiveSample), kFirstOwn + 10);
    EXPECT_EQ(place_of(&CVideoFilter::TransformSample), kFirstOwn + 11);
    EXPECT_EQ(place_of(&CComponentFactory<CVideoConverter>::CreateInstance), kFirstOwn);
}

TEST(VirtualOrder, OfAssetsAndTracks) {
    EXPECT_EQ(place_of(&CAssetWriter::Begin), kFirstOwn);
    EXPECT_EQ(place_of(&CAssetWriter::Finish), kFirstOwn + 1);
    EXPECT_EQ(place_of(&CAssetTrackWriter::GetProperties), kFirstOwn);
    EXPECT_EQ(place_of(&CAssetTrackWriter::GetInputFormats), kFirstOwn + 1);
    EXPECT_EQ(place_of(&CAssetTrackWriter::SetInputFormat), kFirstOwn + 2);
    EXPECT_EQ(place_of(&CAssetTrackWriter::Begin), kFirstOwn + 3);
    EXPECT_EQ(place_of(&CAssetTrackWriter::End), kFirstOwn + 4);
    EXPECT_EQ(place_of(&CAssetTrackWriter::WriteSample), kFirstOwn + 5);
    EXPECT_EQ(place_of(&CContainerWriter::SetExtension), kFirstOwn);
}

}  // namespace
}  // namespace Quillon::Orb
