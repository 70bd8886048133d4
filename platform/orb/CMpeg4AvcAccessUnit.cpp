#include "orb/CMpeg4AvcAccessUnit.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "orb/annexB.h"

namespace Quillon::Orb {

namespace {

/// A filler NAL unit is its header, any number of 0xFF, and the stop bit.
constexpr unsigned char kFillerHeader = CMpeg4AvcAccessUnit::kNalFiller;
constexpr unsigned char kFillerByte = 0xFF;
constexpr unsigned char kStopBit = 0x80;
constexpr int kSmallestFiller = 2;

constexpr unsigned char kStartCode[] = {0, 0, 0, 1};

bool is_length_size(int size) {
    return size >= 1 && size <= 4;
}

/// The longest NAL unit that a length field of so many bytes can tell.
long long longest_unit(int nalLengthSize) {
    return std::min<long long>((1LL << (8 * nalLengthSize)) - 1, INT_MAX);
}

}  // namespace

CMpeg4AvcAccessUnit::CMpeg4AvcAccessUnit() : CObject(kType, nullptr) {}

Result CMpeg4AvcAccessUnit::ParseAnnexB(CByteArray* bytes) {
    if (!bytes) return ResultNullPointer();
    const unsigned char* data = bytes->GetData();
    AnnexBReader reader(data, static_cast<std::size_t>(bytes->GetLength()));
    std::vector<Nal> nals;
    const unsigned char* unit = nullptr;
    std::size_t length = 0;
    while (reader.Next(unit, length)) nals.push_back({unit - data, static_cast<int>(length)});
    if (nals.empty()) return ResultInvalidArgument("no NAL unit behind a start code");
    fBytes = RObject<CByteArray>::Share(bytes);
    fNals = std::move(nals);
    return 0;
}

Result CMpeg4AvcAccessUnit::ParseLengthPrefixed(CByteArray* bytes, int nalLengthSize) {
    if (!bytes) return ResultNullPointer();
    if (!is_length_size(nalLengthSize)) {
        return ResultInvalidArgument("a NAL length of %d bytes", nalLengthSize);
    }
    const unsigned char* data = bytes->GetData();
    const long long end = bytes->GetLength();
    std::vector<Nal> nals;
    for (long long at = 0; at < end;) {
        if (end - at < nalLengthSize) return ResultInvalidArgument("a NAL length is cut off");
        long long length = 0;
        for (int i = 0; i < nalLengthSize; ++i) length = length << 8 | data[at++];
        if (length > end - at) return ResultInvalidArgument("a NAL unit is cut off");
        if (length > 0) nals.push_back({at, static_cast<int>(length)});
        at += length;
    }
    if (nals.empty()) return ResultInvalidArgument("no NAL unit");
    fBytes = RObject<CByteArray>::Share(bytes);
    fNals = std::move(nals);
    fNalLengthSize = nalLengthSize;
    return 0;
}

const unsigned char* CMpeg4AvcAccessUnit::bytes_of(const Nal& nal) const noexcept {
    return nal.offset < 0 ? nullptr : fBytes->GetData() + nal.offset;
}

int CMpeg4AvcAccessUnit::type_of(const Nal& nal) const noexcept {
    const unsigned char* bytes = bytes_of(nal);
    return bytes ? bytes[0] & 0x1F : static_cast<int>(kNalFiller);
}

int CMpeg4AvcAccessUnit::GetNalType(int index) const noexcept {
    if (index < 0 || index >= GetNalCount()) return 0;
    return type_of(fNals[static_cast<std::size_t>(index)]);
}

bool CMpeg4AvcAccessUnit::IsKeyFrame() const noexcept {
    return std::any_of(fNals.begin(), fNals.end(),
                       [this](const Nal& nal) { return type_of(nal) == kNalIdrSlice; });
}

int CMpeg4AvcAccessUnit::RemoveNalUnits(int nalType) noexcept {
    return static_cast<int>(
        std::erase_if(fNals, [&](const Nal& nal) { return type_of(nal) == nalType; }));
}

int CMpeg4AvcAccessUnit::GetLength(int nalLengthSize) const noexcept {
    long long length = 0;
    for (const Nal& nal : fNals) length += nalLengthSize + nal.length;
    return static_cast<int>(std::clamp<long long>(length, 0, INT_MAX));
}

Result CMpeg4AvcAccessUnit::AddFillerData(int bytes) {
    if (bytes < 0) return ResultInvalidArgument("%d bytes of filler", bytes);
    if (bytes == 0) return 0;
    if (fNals.empty()) return ResultNotSupported("no picture to pad");
    if (bytes > INT_MAX - GetLength(4)) return ResultNotSupported("the unit would be too long");
    const long long longest = longest_unit(fNalLengthSize);
    const long long smallest = fNalLengthSize + kSmallestFiller;
    std::vector<Nal> nals = fNals;
    // Filler stands behind the picture, but nothing may stand behind the end of a sequence.
    auto place = nals.end();
    while (place != nals.begin() &&
           (type_of(place[-1]) == kNalEndOfSequence || type_of(place[-1]) == kNalEndOfStream)) {
        --place;
    }
    long long rest = bytes;
    if (place != nals.begin() && type_of(place[-1]) == kNalFiller) {
        Nal& last = place[-1];
        long long growth = std::min(rest, longest - last.length);
        if (rest - growth > 0 && rest - growth < smallest) growth = rest - smallest;
        if (growth > 0) {
            last = {-1, static_cast<int>(last.length + growth)};
            rest -= growth;
        }
    }
    while (rest > 0) {
        long long taken = std::min(rest, fNalLengthSize + longest);
        if (rest - taken > 0 && rest - taken < smallest) taken = rest - smallest;
        if (taken < smallest) {
            return ResultNotSupported("%d bytes of filler: the least that can be added is %lld",
                                      bytes, smallest);
        }
        place = nals.insert(place, {-1, static_cast<int>(taken - fNalLengthSize)}) + 1;
        rest -= taken;
    }
    fNals = std::move(nals);
    return 0;
}

unsigned char* CMpeg4AvcAccessUnit::write_nal(unsigned char* out, const unsigned char* bytes,
                                              int length) {
    const std::size_t size = static_cast<std::size_t>(length);
    if (bytes) {
        std::memcpy(out, bytes, size);
    } else {
        out[0] = kFillerHeader;
        std::memset(out + 1, kFillerByte, size - kSmallestFiller);
        out[size - 1] = kStopBit;
    }
    return out + size;
}

Result CMpeg4AvcAccessUnit::RenderLengthPrefixed(int nalLengthSize,
                                                 RObject<CByteArray>& bytes) const {
    if (!is_length_size(nalLengthSize)) {
        return ResultInvalidArgument("a NAL length of %d bytes", nalLengthSize);
    }
    for (const Nal& nal : fNals) {
        if (nal.length > longest_unit(nalLengthSize)) {
            return ResultInvalidArgument("a NAL unit of %d bytes does not fit a length of %d",
                                         nal.length, nalLengthSize);
        }
    }
    const int length = GetLength(nalLengthSize);
    bytes = new CByteArray(length, 1);
    if (!bytes || bytes->GetLength() != length) return ResultOutOfMemory();
    unsigned char* out = bytes->GetData();
    for (const Nal& nal : fNals) {
        for (int shift = 8 * (nalLengthSize - 1); shift >= 0; shift -= 8) {
            *out++ = static_cast<unsigned char>(nal.length >> shift);
        }
        out = write_nal(out, bytes_of(nal), nal.length);
    }
    return 0;
}

Result CMpeg4AvcAccessUnit::RenderAnnexB(RObject<CByteArray>& bytes) const {
    const int length = GetLength(sizeof kStartCode);
    bytes = new CByteArray(length, 1);
    if (!bytes || bytes->GetLength() != length) return ResultOutOfMemory();
    unsigned char* out = bytes->GetData();
    for (const Nal& nal : fNals) {
        std::memcpy(out, kStartCode, sizeof kStartCode);
        out = write_nal(out + sizeof kStartCode, bytes_of(nal), nal.length);
    }
    return 0;
}

}  // namespace Quillon::Orb
