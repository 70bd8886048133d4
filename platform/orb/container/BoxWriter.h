#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace Quillon::Orb {

/// Writes a tree of boxes into memory, big-endian, leaving out gaps that somebody else fills.
///
/// Positions count the gaps: what Pieces gives goes to the file at those positions.
class BoxWriter {
public:
    struct Gap {
        int id;
        long long position;
        long long size;
    };
    struct Piece {
        long long position;
        const unsigned char* data;
        std::size_t size;
    };

    void U8(unsigned int value) { fBytes.push_back(static_cast<unsigned char>(value)); }
    void U16(unsigned int value) { put(value, 2); }
    void U24(unsigned int value) { put(value, 3); }
    void U32(unsigned long long value) { put(value, 4); }
    void U64(unsigned long long value) { put(value, 8); }
    /// 64 bits when `wide`, else 32.
    void Word(bool wide, unsigned long long value) { put(value, wide ? 8 : 4); }
    void Zeros(std::size_t count) { fBytes.insert(fBytes.end(), count, 0); }
    void Text(std::string_view text) { fBytes.insert(fBytes.end(), text.begin(), text.end()); }
    void Bytes(const unsigned char* data, std::size_t size) {
        fBytes.insert(fBytes.end(), data, data + size);
    }
    /// `size` bytes that are not written here.
    void Leave(int id, long long size);
    /// A free box of exactly `size` bytes: none for 0, else at least 8.
    void Free(long long size);

    void Open(unsigned int type);
    void OpenFull(unsigned int type, unsigned int version, unsigned int flags);
    /// Ends the box that was opened last and writes its size.
    void Close();

    /// Where the next byte goes, counted from the first.
    long long Position() const { return static_cast<long long>(fBytes.size()) + fLeft; }
    const std::vector<Gap>& Gaps() const { return fGaps; }
    /// Everything but the gaps, in order; valid until the next change.
    std::vector<Piece> Pieces() const;
    const std::vector<unsigned char>& Memory() const { return fBytes; }
    void Clear();

    /// Opens a box for a scope.
    class Box {
    public:
        Box(BoxWriter& writer, unsigned int type) : fWriter(writer) { fWriter.Open(type); }
        Box(BoxWriter& writer, unsigned int type, unsigned int version, unsigned int flags)
            : fWriter(writer) {
            fWriter.OpenFull(type, version, flags);
        }
        ~Box() { fWriter.Close(); }
        Box(const Box&) = delete;
        Box& operator=(const Box&) = delete;

    private:
        BoxWriter& fWriter;
    };

private:
    struct Start {
        std::size_t byte;
        long long position;
    };

    void put(unsigned long long value, int bytes);

    std::vector<unsigned char> fBytes;
    std::vector<Gap> fGaps;
    std::vector<Start> fOpen;
    long long fLeft = 0;  // bytes of all gaps so far
};

/// Stores the low `bytes` bytes of `value`, big-endian.
inline void PutBig(unsigned char* target, unsigned long long value, int bytes) {
    for (int i = bytes - 1; i >= 0; i--) {
        target[i] = static_cast<unsigned char>(value);
        value >>= 8;
    }
}

}  // namespace Quillon::Orb
