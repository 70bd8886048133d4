#include "tarn/audio/tnRTBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "spar/zCritical.h"
#include "spar/zSignal.h"
#include "spar/zThread.h"

/// Looks at what the buffer keeps to itself.
struct tnRTBufferPeek {
    static int Waiters(tnRTBuffer& buffer) {
        const zCriticalLock lock(*buffer.fCritical);
        return buffer.fWaiters;
    }
    static void Raise(tnRTBuffer& buffer) { buffer.fSignal->Raise(); }
    static bool HasRaise(tnRTBuffer& buffer) { return buffer.fSignal->WaitFor(0) == 0; }
    /// What a reader does whose time is up.
    static int TimeOut(tnRTBuffer& buffer, int result) { return buffer.time_out(result); }
    static const tnRTBuffer::rt_buffer& First(tnRTBuffer& buffer) { return *buffer.fFirst; }
    static const tnRTBuffer::rt_buffer& Second(tnRTBuffer& buffer) { return *buffer.fSecond; }
    static bool WritesFirst(tnRTBuffer& buffer) { return buffer.fCurrent == buffer.fFirst.get(); }
};

namespace {

using Peek = tnRTBufferPeek;

constexpr int kUnit = 4;  // bytes to a unit of time in these tests

class tnRTBufferTest : public testing::Test {
protected:
    tnRTBufferTest() { EXPECT_EQ(fBuffer.Initialize(20 * kUnit), 0); }

    /// Writes `units` units at `time`, each filled with the next letter from `letter` on.
    void write(double time, int units, char letter) {
        std::string data;
        for (int i = 0; i < units; ++i) data += std::string(kUnit, static_cast<char>(letter + i));
        fBuffer.WriteToBuffer(data.data(), static_cast<int>(data.size()), 0, 0, time, units, kUnit);
    }
    int ask(double time, int units) {
        return fBuffer.ReadFromBuffer(nullptr, units * kUnit, 0, time, units, kUnit);
    }
    /// The first byte of each unit; '.' for zeros. Or the failure.
    std::string read(double time, int units) {
        std::string data(static_cast<std::size_t>(units * kUnit), '!');
        const int result =
            fBuffer.ReadFromBuffer(data.data(), units * kUnit, 0, time, units, kUnit);
        if (result != 0) {
            EXPECT_EQ(data, std::string(data.size(), '!'));  // untouched
            return std::to_string(result);
        }
        std::string text;
        for (std::size_t i = 0; i < data.size(); i += kUnit) {
            EXPECT_EQ(data.substr(i, kUnit), std::string(kUnit, data[i]));
            text += data[i] == 0 ? '.' : data[i];
        }
        return text;
    }

    tnRTBuffer fBuffer;
};

TEST_F(tnRTBufferTest, ErrorsHaveNames) {
    EXPECT_STREQ(tnRTBuffer::ErrorString(-2), "TN_DATA_PENDING");
    EXPECT_STREQ(tnRTBuffer::ErrorString(-3), "TN_NO_DATA");
    EXPECT_STREQ(tnRTBuffer::ErrorString(-4), "TN_DATA_SKIP");
    EXPECT_STREQ(tnRTBuffer::ErrorString(-5), "TN_READ_IS_LATE");
    for (const int code : {0, -1, -6, -29, 1}) EXPECT_STREQ(tnRTBuffer::ErrorString(code), "dunno");
}

TEST_F(tnRTBufferTest, NothingIsHeldBeforeTheFirstWrite) {
    EXPECT_EQ(ask(0, 1), -3);
    EXPECT_EQ(ask(1000, 1), -3);
}

TEST_F(tnRTBufferTest, BufferThatWasNotInitializedHoldsAndTakesNothing) {
    tnRTBuffer buffer;
    buffer.WriteToBuffer("abcd", 4, 0, 0, 0, 1, kUnit);
    EXPECT_EQ(buffer.ReadFromBuffer(nullptr, 4, 0, 0, 1, kUnit), -3);
    buffer.Reset();
    buffer.Print();
}

TEST_F(tnRTBufferTest, MemoryIsAligned) {
    for (const auto* buffer : {&Peek::First(fBuffer), &Peek::Second(fBuffer)}) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer->fData) % 32, 0u);
        EXPECT_EQ(buffer->fStorage.size(), 20u * kUnit + 32);
        EXPECT_LE(buffer->fData + 20 * kUnit, buffer->fStorage.data() + buffer->fStorage.size());
    }
}

TEST_F(tnRTBufferTest, ReadsAreToldHowTheyStandToWhatIsHeld) {
    write(100, 10, 'a');
    EXPECT_EQ(read(105, 5), "fghij");
    EXPECT_EQ(read(105, 5), "fghij");  // nothing is consumed
    EXPECT_EQ(read(100, 10), "abcdefghij");
    EXPECT_EQ(read(105, 10), "-2");
    EXPECT_EQ(read(90, 5), "-5");
    EXPECT_EQ(read(90, 15), "-5");
    EXPECT_EQ(read(200, 5), "-3");
    EXPECT_EQ(read(110, 1), "-3");  // the end itself is not held as a start
    EXPECT_EQ(ask(105, 5), 0);
}

TEST_F(tnRTBufferTest, LateIsAskedOfTheFirstBufferAndNotIfTheSecondStartsAtZero) {
    write(0, 20, 'a');   // fills the first
    write(20, 20, 'a');  // fills the second
    write(40, 5, 'u');   // the first again, from 40
    EXPECT_EQ(read(10, 2),
              "-5");     // gone: before the first buffer's 40, although the second starts at 20
    write(45, 16, 'a');  // the second again, from 45
    EXPECT_EQ(read(39, 2), "-5");
    fBuffer.Reset();
    // The second buffer's start at exactly 0 says "not yet" for what is gone.
    write(-5, 1, 'a');
    write(0, 20, 'a');
    ASSERT_FALSE(Peek::WritesFirst(fBuffer));
    ASSERT_EQ(Peek::Second(fBuffer).fStartTime, 0.0);
    write(20, 20, 'a');
    EXPECT_EQ(read(-3, 1), "-3");
}

TEST_F(tnRTBufferTest, WritesThatMeetNeverFillAGap) {
    write(0, 3, 'a');
    write(3, 3, 'd');
    write(6, 1, 'g');
    EXPECT_EQ(read(0, 7), "abcdefg");
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 7 * kUnit);
}

TEST_F(tnRTBufferTest, HoleOfOneUnitRepeatsTheLastAndLongerOnesAreSilence) {
    write(0, 3, 'a');
    write(4, 2, 'e');
    EXPECT_EQ(read(0, 6), "abccef");
    write(8, 1, 'i');
    EXPECT_EQ(read(0, 9), "abccef..i");
    write(9.75, 1, 'j');  // less than a unit: no gap at all
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 10 * kUnit);
}

TEST_F(tnRTBufferTest, HoleOfOneUnitBehindNothingIsSilence) {
    // Cut back to nothing, and then a hole: there is no last unit to repeat.
    write(10, 1, 'a');
    fBuffer.increment_data_gap(2 * kUnit, 0, 13, 100);  // within the limit, but more than is held
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 3 * kUnit);
    EXPECT_EQ(std::string(Peek::First(fBuffer).fData + kUnit, 2 * kUnit),
              std::string(2 * kUnit, '\0'));
    fBuffer.increment_data_gap(0, 0, 13, 100);
    fBuffer.increment_data_gap(-8, 0, 13, 100);
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 3 * kUnit);
}

TEST_F(tnRTBufferTest, HoleThatDoesNotFitFallsBetweenTheBuffers) {
    //  0....15   hole   30..35
    //  [first ]         [second]
    write(0, 15, 'a');
    write(30, 5, 'A');
    EXPECT_FALSE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 15 * kUnit);
    EXPECT_EQ(read(0, 15), "abcdefghijklmno");
    EXPECT_EQ(read(30, 5), "ABCDE");
    EXPECT_EQ(read(20, 1), "-3");
    EXPECT_EQ(read(14, 3), "-2");
    EXPECT_EQ(read(10, 22),
              std::string("klmno") + std::string(17, '.'));  // 15 units of hole, 7 asked beyond
    EXPECT_EQ(fBuffer.ReadFromBuffer(nullptr, 15 * kUnit, 0, 14, 17, kUnit), -4);
    EXPECT_EQ(fBuffer.ReadFromBuffer(nullptr, 16 * kUnit, 0, 14, 17, kUnit), 0);
}

TEST_F(tnRTBufferTest, HugeHoleFallsBetweenTheBuffersToo) {
    write(0, 5, 'a');
    write(1e18, 5, 'A');
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 5 * kUnit);
    EXPECT_EQ(Peek::Second(fBuffer).fUsed, 5 * kUnit);
    EXPECT_EQ(Peek::Second(fBuffer).fStartTime, 1e18);
}

TEST_F(tnRTBufferTest, WriteBeforeTheStartStartsOver) {
    write(100, 10, 'a');
    write(50, 5, 'p');
    EXPECT_TRUE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(50, 5), "pqrst");
    EXPECT_EQ(read(100, 1), "-3");
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 5 * kUnit);
}

TEST_F(tnRTBufferTest, WriteBeforeTheEndCutsBack) {
    write(100, 10, 'a');
    write(107, 1, 'X');
    EXPECT_EQ(read(100, 8), "abcdefgX");
    EXPECT_EQ(read(105, 4), "-2");
    write(102.5, 1, 'Y');  // 5.5 units back: five whole ones are cut
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 4 * kUnit);
    EXPECT_EQ(Peek::First(fBuffer).fEndTime, 103.5);
}

TEST_F(tnRTBufferTest, CutStopsAtNothing) {
    fBuffer.WriteToBuffer("abcd", 4, 0, 0, 0, 10, kUnit);  // says more time than it has bytes
    write(2, 1, 'X');
    EXPECT_EQ(Peek::First(fBuffer).fUsed, kUnit);
    EXPECT_EQ(Peek::First(fBuffer).fStartTime, 0.0);
}

TEST_F(tnRTBufferTest, ReadOverTheFlipTakesTwoCopies) {
    write(0, 16, 'a');
    write(16, 8, 'A');
    EXPECT_FALSE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(12, 8), "mnopABCD");
    EXPECT_EQ(read(0, 24), "abcdefghijklmnopABCDEFGH");
    EXPECT_EQ(read(15, 10), "-2");
}

TEST_F(tnRTBufferTest, ReadOverTheFlipSkipsByTheBreak) {
    // The second buffer begins a unit after the first one's end; a reader who spans the break gets
    // what stands as far into the second buffer as the break is long, and silence where it ends.
    write(0, 20, 'a');
    write(21, 8, 'A');
    EXPECT_EQ(read(18, 5), "stBCD");
    EXPECT_EQ(read(18, 11), "stBCDEFGH..");
}

TEST_F(tnRTBufferTest, CutBackBeforeTheFlipReadsOnWithoutABreak) {
    write(0, 20, 'a');
    write(15, 8,
          'A');  // cuts five units off, and does not fit behind: the second buffer starts at 15
    EXPECT_FALSE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(10, 13), "klmnoABCDEFGH");
    EXPECT_EQ(read(16, 2), "-29");  // the first buffer's times still say that it is there
    EXPECT_EQ(read(20, 3), "FGH");
}

TEST_F(tnRTBufferTest, FullBufferFlipsAndTheOlderContentGoes) {
    write(0, 20, 'a');
    EXPECT_TRUE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(0, 20), "abcdefghijklmnopqrst");
    write(20, 20, 'A');
    EXPECT_FALSE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(0, 1), "a");
    write(40, 1, 'z');
    EXPECT_TRUE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(read(0, 1), "-5");
    EXPECT_EQ(read(38, 3), "STz");
}

TEST_F(tnRTBufferTest, MoreBytesThanTheTimesSayAreTakenFromTheStartOfTheSameBuffer) {
    write(0, 4, 'a');
    std::string data(6 * kUnit, '!');
    EXPECT_EQ(fBuffer.ReadFromBuffer(data.data(), 6 * kUnit, 0, 2, 2, kUnit), 0);
    EXPECT_EQ(data.substr(0, 2 * kUnit), "ccccdddd");
    EXPECT_EQ(data.substr(2 * kUnit), "aaaabbbbccccdddd");
}

TEST_F(tnRTBufferTest, NullDataCountsAsWritten) {
    write(0, 2, 'a');
    fBuffer.WriteToBuffer(nullptr, 2 * kUnit, 0, 0, 2, 2, kUnit);
    write(4, 1, 'e');
    EXPECT_EQ(Peek::First(fBuffer).fUsed, 5 * kUnit);
    EXPECT_EQ(read(4, 1), "e");
    EXPECT_EQ(ask(0, 5), 0);
}

TEST_F(tnRTBufferTest, FlippedBufferHoldsNothingYet) {
    write(0, 5, 'a');
    fBuffer.flip_buffer(7);
    EXPECT_EQ(Peek::Second(fBuffer).fStartTime, 7.0);
    EXPECT_EQ(Peek::Second(fBuffer).fEndTime, 7.0);
    EXPECT_EQ(ask(7, 1), -3);
    EXPECT_EQ(ask(6, 1), -3);
    EXPECT_EQ(read(4, 1), "e");
}

TEST_F(tnRTBufferTest, ResetForgetsEverything) {
    write(0, 20, 'a');
    write(20, 5, 'a');
    fBuffer.Reset();
    EXPECT_TRUE(Peek::WritesFirst(fBuffer));
    EXPECT_EQ(ask(0, 1), -3);
    EXPECT_EQ(ask(22, 1), -3);
    write(3, 2, 'p');
    EXPECT_EQ(read(3, 2), "pq");
}

// Waiting.

int read_waiting(tnRTBuffer& buffer, double time, int units, long long timeout) {
    return buffer.ReadFromBufferWithTimeout(nullptr, units * kUnit, 0, time, units, kUnit, timeout);
}

void wait_for_reader(tnRTBuffer& buffer, int waiters = 1) {
    while (Peek::Waiters(buffer) < waiters) std::this_thread::yield();
}

constexpr long long kLong = 60'000'000;  // never passes in these tests

TEST_F(tnRTBufferTest, ReaderDoesNotWaitWhereWaitingIsOfNoUse) {
    write(100, 10, 'a');
    EXPECT_EQ(read_waiting(fBuffer, 100, 10, kLong), 0);
    EXPECT_EQ(read_waiting(fBuffer, 50, 5, kLong), -5);
    EXPECT_EQ(read_waiting(fBuffer, 105, 10, 0), -2);
    EXPECT_EQ(read_waiting(fBuffer, 105, 10, -1), -2);
    EXPECT_EQ(read_waiting(fBuffer, 200, 10, 0), -3);
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
}

TEST_F(tnRTBufferTest, ReaderWaitsForNothingButDataThatIsToCome) {
    // A wait would take the raise that stands.
    const auto wait_in_vain = [&](double time, int bytes, double duration) {
        Peek::Raise(fBuffer);
        const int result =
            fBuffer.ReadFromBufferWithTimeout(nullptr, bytes, 0, time, duration, kUnit, kLong);
        EXPECT_TRUE(Peek::HasRaise(fBuffer)) << result;
        EXPECT_EQ(Peek::Waiters(fBuffer), 0) << result;
        return result;
    };
    write(0, 15, 'a');
    write(30, 5, 'A');  // does not fit, and neither does the hole
    EXPECT_EQ(wait_in_vain(14, 15 * kUnit, 17), -4);
    EXPECT_EQ(wait_in_vain(-5, 5 * kUnit, 5), -5);
    EXPECT_EQ(wait_in_vain(0, 15 * kUnit, 15), 0);
    fBuffer.Reset();
    write(0, 20, 'a');
    write(15, 8, 'A');  // cuts back, and flips
    EXPECT_EQ(wait_in_vain(16, 2 * kUnit, 2), -29);
}

TEST_F(tnRTBufferTest, ReaderGetsWhatTheWriterDeliversInTime) {
    write(0, 4, 'a');
    std::atomic<int> result{1};
    std::thread reader([&] { result = read_waiting(fBuffer, 2, 6, kLong); });
    wait_for_reader(fBuffer);
    write(4, 2, 'e');  // not all of it: the reader waits on
    wait_for_reader(fBuffer);
    write(6, 2, 'g');
    reader.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
    EXPECT_FALSE(Peek::HasRaise(fBuffer));
}

TEST_F(tnRTBufferTest, ReaderAheadOfTheWriterWaitsForItsStartOnce) {
    std::atomic<int> result{1};
    std::thread reader([&] { result = read_waiting(fBuffer, 0, 4, kLong); });
    wait_for_reader(fBuffer);
    write(0, 4, 'a');
    reader.join();
    EXPECT_EQ(result, 0);
    std::thread second([&] { result = read_waiting(fBuffer, 100, 4, kLong); });
    wait_for_reader(fBuffer);
    write(4, 4, 'a');  // data came, and still not that
    second.join();
    EXPECT_EQ(result, -3);
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
}

TEST_F(tnRTBufferTest, ReaderIsToldAfterItsTimeAndLeavesNoWish) {
    write(0, 4, 'a');
    EXPECT_EQ(read_waiting(fBuffer, 2, 6, 1000), -2);
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
    EXPECT_EQ(read_waiting(fBuffer, 50, 6, 1000), -3);
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
    write(4, 1, 'e');  // nobody waits: nothing is raised
    EXPECT_FALSE(Peek::HasRaise(fBuffer));
}

TEST_F(tnRTBufferTest, WriterWhoDeliversTooLittleDoesNotStretchTheWait) {
    // The writer puts one unit at one time over and over, whenever the reader waits; what the
    // reader wants never comes. Real time passes: a tenth of a second, for which the writer is
    // never silent.
    write(0, 4, 'a');
    std::atomic<bool> told{false};
    std::thread writer([&] {
        while (!told) {
            if (Peek::Waiters(fBuffer) > 0) write(3, 1, 'x');
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(read_waiting(fBuffer, 2, 6, 100'000), -2);
    told = true;
    writer.join();
}

TEST_F(tnRTBufferTest, RaiseThatSlipsInAtTheEndOfTheTimeMisleadsNobody) {
    // A reader's time runs out, and before it has the lock a write raises for it.
    Peek::Raise(fBuffer);
    EXPECT_EQ(Peek::TimeOut(fBuffer, -2), -2);
    EXPECT_FALSE(Peek::HasRaise(fBuffer));
    EXPECT_EQ(Peek::Waiters(fBuffer), 0);
}

TEST_F(tnRTBufferTest, ResetLetsWaitingReadersWaitOn) {
    std::atomic<int> result{1};
    std::thread reader([&] { result = read_waiting(fBuffer, 0, 4, kLong); });
    wait_for_reader(fBuffer);
    fBuffer.Reset();
    EXPECT_EQ(Peek::Waiters(fBuffer), 1);
    write(0, 4, 'a');
    reader.join();
    EXPECT_EQ(result, 0);
}

TEST_F(tnRTBufferTest, ReaderAndWriterOnTwoThreadsAgree) {
    // The writer counts on, never further ahead than is held; the reader, which waits for it at the
    // front, is given every value at its time.
    constexpr int kTotal = 100002;
    constexpr int kAhead = 600;
    tnRTBuffer buffer;
    buffer.Initialize(1024 * kUnit);
    std::atomic<int> readTo{0};
    std::thread writer([&] {
        for (int time = 0; time < kTotal; time += 6) {
            while (time > readTo.load(std::memory_order_relaxed) + kAhead)
                std::this_thread::yield();
            std::int32_t values[6];
            for (int i = 0; i < 6; ++i) values[i] = time + i;
            buffer.WriteToBuffer(values, sizeof values, 0, 0, time, 6, kUnit);
        }
    });
    for (int time = 0; time + 32 < kTotal;) {
        std::int32_t values[32];
        const int result =
            buffer.ReadFromBufferWithTimeout(values, sizeof values, 0, time, 32, kUnit, 10'000);
        // At the very front, and what came was not enough; or all that the writer may write came
        // between the reader's look and its wish for a signal, and there is no next write to tell.
        if (result == -3 || result == -2) continue;
        EXPECT_EQ(result, 0);
        if (result != 0) break;
        for (int i = 0; i < 32; ++i) EXPECT_EQ(values[i], time + i);
        time += 32;
        readTo.store(time, std::memory_order_relaxed);
    }
    readTo = kTotal;  // lets the writer end also where the reader broke off
    writer.join();
    EXPECT_EQ(Peek::Waiters(buffer), 0);
}

// The plain model: every stretch that was ever written to is kept, each with bytes of its own. The
// even ones are what the first buffer held at its time, the odd ones the second.

struct Model {
    struct Stretch {
        double fStart = -1;
        double fEnd = -1;
        std::vector<char> fBytes;
    };

    explicit Model(int size) : fSize(size), fStretches(1) {}

    Stretch& current() { return fStretches.back(); }
    void flip(double time) { fStretches.push_back({time, time, {}}); }

    void Write(const std::vector<char>& data, double time, double duration, int unit) {
        if (current().fStart < 0) current().fStart = time;
        if (current().fEnd >= 0 && time > current().fEnd) {
            fill(static_cast<long long>(time - current().fEnd) * unit, time, unit);
        } else if (current().fEnd >= 0 && time < current().fStart) {
            current().fStart = time;
            current().fBytes.clear();
        } else if (current().fEnd >= 0) {
            const long long cut = static_cast<long long>(current().fEnd - time) * unit;
            const auto held = static_cast<long long>(current().fBytes.size());
            current().fBytes.resize(static_cast<std::size_t>(std::max(held - cut, 0LL)));
        }
        if (current().fBytes.size() + data.size() > static_cast<std::size_t>(fSize)) flip(time);
        current().fBytes.insert(current().fBytes.end(), data.begin(), data.end());
        current().fEnd = time + duration;
    }

    void fill(long long gap, double time, int unit) {
        auto& bytes = current().fBytes;
        if (gap <= 0) return;
        if (static_cast<long long>(bytes.size()) + gap > fSize) return flip(time);
        const bool repeats = gap <= unit && gap <= static_cast<long long>(bytes.size());
        const std::vector<char> last(bytes.end() - (repeats ? gap : 0), bytes.end());
        bytes.insert(bytes.end(), last.begin(), last.end());
        if (!repeats) bytes.resize(bytes.size() + static_cast<std::size_t>(gap), 0);
    }

    int Read(std::vector<char>& out, double time, double duration, int unit) const {
        // The last two stretches are held, in the order of the buffers.
        static const Stretch kNone;
        const std::size_t last = fStretches.size() - 1;
        const Stretch& newer = fStretches[last];
        const Stretch& older = last > 0 ? fStretches[last - 1] : kNone;
        const Stretch& first = last % 2 == 0 ? newer : older;
        const Stretch& second = last % 2 == 0 ? older : newer;
        const auto holdsStart = [&](const Stretch& s) { return time >= s.fStart && time < s.fEnd; };
        const auto holdsEnd = [&](const Stretch& s) {
            return time + duration >= s.fStart && time + duration <= s.fEnd;
        };
        if (!holdsStart(first) && !holdsStart(second)) {
            return time < first.fStart && second.fStart != 0.0 ? -5 : -3;
        }
        const Stretch& start = holdsStart(first) ? first : second;
        const Stretch& other = &start == &first ? second : first;
        if (!holdsEnd(start) && !holdsEnd(other)) return -2;
        const Stretch& end = holdsEnd(start) ? start : other;
        const long long offset =
            static_cast<long long>(static_cast<int>(time - start.fStart)) * unit;
        if (offset > static_cast<long long>(start.fBytes.size())) return -29;
        double skip = 0;
        if (&start != &end) {
            skip = end.fStart - start.fEnd;
            if (skip * unit >= static_cast<double>(out.size())) return -4;
        }
        const long long available = static_cast<long long>(start.fBytes.size()) - offset;
        const long long behind = std::max(static_cast<long long>(skip) * unit, 0LL);
        for (long long i = 0; i < static_cast<long long>(out.size()); ++i) {
            const auto& bytes = i < available ? start.fBytes : end.fBytes;
            const auto at =
                static_cast<std::size_t>(i < available ? offset + i : behind + i - available);
            out[static_cast<std::size_t>(i)] = at < bytes.size() ? bytes[at] : '\0';
        }
        return 0;
    }

    int fSize;
    std::vector<Stretch> fStretches;
};

/// Random writes that go on, leave holes and go back, and random reads around them.
void compare_with_model(unsigned int seed, int steps) {
    std::mt19937 random(seed);
    const auto upTo = [&](int most) {
        return static_cast<int>(random() % static_cast<unsigned int>(most + 1));
    };
    const int unit = 1 + upTo(7);
    const int room = unit * (20 + upTo(100));
    tnRTBuffer buffer;
    buffer.Initialize(room);
    Model model(room);
    double time = upTo(50) - 25;  // may begin before zero
    char letter = 1;
    for (int step = 0; step < steps; ++step) {
        if (upTo(2) == 0) {
            switch (upTo(12)) {
                case 0:
                    time += 1 + upTo(3);  // a short hole
                    break;
                case 1:
                    time += upTo(3 * room / unit);  // a long one
                    break;
                case 2:
                    time -= upTo(10);  // a step back
                    break;
                case 3:
                    if (upTo(9) == 0) time -= upTo(3 * room / unit);  // far back
                    break;
                case 4:
                    time += 0.25 * upTo(7);  // times between the units
                    break;
                default:
                    break;
            }
            const int units = upTo(room / unit / (upTo(1) ? 4 : 1));
            std::vector<char> data(static_cast<std::size_t>(units * unit));
            for (char& byte : data) byte = letter = static_cast<char>(letter % 100 + 1);
            buffer.WriteToBuffer(data.data(), units * unit, 0, 0, time, units, unit);
            model.Write(data, time, units, unit);
            time += units;
        } else {
            const int units = upTo(room / unit * 5 / 4);
            const double at = time - upTo(3 * room / unit) + 0.25 * (upTo(3) ? 0 : upTo(8));
            std::vector<char> got(static_cast<std::size_t>(units * unit), -1);
            std::vector<char> expected(got);
            const int expectedResult = model.Read(expected, at, units, unit);
            ASSERT_EQ(buffer.ReadFromBuffer(got.data(), units * unit, 0, at, units, unit),
                      expectedResult)
                << "seed " << seed << ", step " << step;
            ASSERT_EQ(buffer.ReadFromBuffer(nullptr, units * unit, 0, at, units, unit),
                      expectedResult);
            if (expectedResult == 0) {
                ASSERT_EQ(got, expected) << "seed " << seed << ", step " << step << ", at " << at;
            }
        }
    }
}

TEST(tnRTBufferModel, AnswersAsOneThatKeepsEverything) {
    // A million steps; a sanitizer's run may ask for fewer rounds, a soak for more.
    const char* wanted = std::getenv("TARN_SOAK_ROUNDS");
    const int rounds = wanted != nullptr ? std::atoi(wanted) : 1000;
    for (int round = 0; round < rounds; ++round) {
        compare_with_model(static_cast<unsigned int>(round), 1000);
        if (testing::Test::HasFatalFailure()) return;
    }
}

}  // namespace
