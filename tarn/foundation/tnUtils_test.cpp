#include "tarn/foundation/tnUtils.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include "spar/zRecord.h"
#include "spar/zString.h"
#include "spar/zTime.h"
#include "tarn/foundation/TCache.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "tests/support/vtbxTestSupport.h"

namespace {

using Time = tnUtils::tn_time_type;

std::string converted(long long microseconds, Time type,
                      const tnUtils::tn_localized_time_strings* strings, bool showAll,
                      const char* before = "") {
    zString out(before);
    tnUtils::ConvertTime(microseconds, out, type, strings, showAll);
    return out.AsString();
}

constexpr long long kSecond = 1'000'000;
constexpr long long kMinute = 60 * kSecond;
constexpr long long kHour = 60 * kMinute;

TEST(tnUtils, TimesInDigits) {
    struct Digits {
        long long fTime;
        Time fType;
        bool fShowAll;
        const char* fText;
    };
    constexpr Digits kDigits[] = {
        {3661 * kSecond, tnUtils::TN_TIME_HOURS, false, "01:01:01"},
        {61 * kSecond, tnUtils::TN_TIME_HOURS, false, "01:01"},
        {5 * kSecond, tnUtils::TN_TIME_HOURS, false, "05"},
        {5 * kSecond, tnUtils::TN_TIME_HOURS, true, "00:00:05"},
        {61 * kSecond, tnUtils::TN_TIME_HOURS, true, "00:01:01"},
        {kHour, tnUtils::TN_TIME_HOURS, false, "01:00:00"},
        {123 * kHour, tnUtils::TN_TIME_HOURS, false, "123:00:00"},
        {kHour - 1, tnUtils::TN_TIME_HOURS, false, "59:59"},
        {5 * kSecond, tnUtils::TN_TIME_MINUTES, true, "00:05"},
        {3605 * kSecond, tnUtils::TN_TIME_MINUTES, true, "00:05"},
        {3605 * kSecond, tnUtils::TN_TIME_MINUTES, false, "05"},
        {125 * kSecond, tnUtils::TN_TIME_MINUTES, false, "02:05"},
        {kHour, tnUtils::TN_TIME_MINUTES, false, "00"},
        {0, tnUtils::TN_TIME_HOURS, false, "00"},
        {999'999, tnUtils::TN_TIME_MINUTES, false, "00"},
    };
    for (const Digits& digits : kDigits) {
        EXPECT_EQ(converted(digits.fTime, digits.fType, nullptr, digits.fShowAll), digits.fText)
            << digits.fTime;
        EXPECT_EQ(converted(digits.fTime, digits.fType, nullptr, digits.fShowAll,
                            "what was there before"),
                  digits.fText);
    }
    // The longest time fits what is made room for.
    EXPECT_EQ(converted(9223372036854775807, tnUtils::TN_TIME_HOURS, nullptr, false),
              "2562047788:00:54");
    EXPECT_EQ(converted(-9223372036854775807 - 1, tnUtils::TN_TIME_HOURS, nullptr, true),
              "-2562047788:00:-54");
}

TEST(tnUtils, TimesInWords) {
    constexpr tnUtils::tn_localized_time_strings kWords{"hours",  "hour",    "minutes",
                                                        "minute", "seconds", "second"};
    const auto words = [&](long long time) {
        return converted(time, tnUtils::TN_TIME_WORDS, &kWords, false);
    };
    EXPECT_EQ(words(0), "");
    EXPECT_EQ(words(kSecond), "1 second");
    EXPECT_EQ(words(2 * kSecond), "2 seconds");
    EXPECT_EQ(words(kMinute), "1 minute ");
    EXPECT_EQ(words(5 * kMinute + kSecond), "5 minutes, 1 second");
    EXPECT_EQ(words(kHour + 5 * kMinute), "1 hour , 5 minutes ");
    EXPECT_EQ(words(2 * kHour), "2 hours  ");
    EXPECT_EQ(words(2 * kHour + 3 * kSecond), "2 hours  3 seconds");
    EXPECT_EQ(words(kHour + kMinute + kSecond), "1 hour , 1 minute, 1 second");
    EXPECT_EQ(converted(kSecond, tnUtils::TN_TIME_WORDS, &kWords, false, "after "),
              "after 1 second");
    EXPECT_EQ(converted(kSecond, tnUtils::TN_TIME_WORDS, nullptr, false, "kept"), "kept");
    constexpr tnUtils::tn_localized_time_strings kFew{"hours",  nullptr, "minutes",
                                                      "minute", nullptr, "second"};
    EXPECT_EQ(converted(kHour + kMinute + kSecond, tnUtils::TN_TIME_WORDS, &kFew, false),
              "1 minute, ");
}

TEST(tnUtils, OtherFormsOfTimeWriteNothing) {
    EXPECT_EQ(converted(kHour, static_cast<Time>(0), nullptr, true, "kept"), "kept");
    EXPECT_EQ(converted(kHour, static_cast<Time>(4), nullptr, true, "kept"), "kept");
}

const char* localized(const char* key) {
    return std::string(key) == "encoder_no_settings" ? "nothing set" : "?";
}

void add_video(zRecord& tracks, const char* codec, int width, int height, bool enabled = true) {
    auto* track = new tnMediaRecord(TN_MEDIA_VIDEO);
    track->SetBool('mena', enabled, 0);
    if (codec != nullptr) track->SetCString('mcon', codec, 0);
    track->fWidth.SetInt32(width);
    track->fHeight.SetInt32(height);
    tracks.AddChild(track, 0x7FFFFFFF);
}

void add_audio(zRecord& tracks, const char* codec, int rate, bool compressed, bool enabled = true) {
    auto* track = new tnMediaRecord(TN_MEDIA_AUDIO);
    track->SetBool('mena', enabled, 0);
    track->SetBool('momp', compressed, 0);
    track->SetCString('mcon', codec, 0);
    track->fSampleRate.SetInt32(rate);
    tracks.AddChild(track, 0x7FFFFFFF);
}

TEST(tnUtils, SummaryNeedsALocalizerAndAnEnabledTrack) {
    zRecord tracks;
    zString out("before");
    EXPECT_EQ(tnUtils::CreateEncoderSummary(tracks, out, nullptr), -22);
    EXPECT_EQ(out.AsString(), "before");
    EXPECT_EQ(tnUtils::CreateEncoderSummary(tracks, out, localized), -1027);
    EXPECT_EQ(out.AsString(), "nothing set");
    add_video(tracks, "x264", 640, 480, false);
    tracks.AddChild(nullptr, 0x7FFFFFFF);
    tracks.AddChild(new zRecord, 0x7FFFFFFF);
    EXPECT_EQ(tnUtils::CreateEncoderSummary(tracks, out, localized), -1027);
}

TEST(tnUtils, SummaryTellsTheLastEnabledTracks) {
    const auto summary = [](const zRecord& tracks) {
        zString out("before");
        EXPECT_EQ(tnUtils::CreateEncoderSummary(tracks, out, localized), 0);
        return out.AsString();
    };
    zRecord tracks;
    add_video(tracks, "NVidia H.264", 1280, 720);
    EXPECT_EQ(summary(tracks), "NVidia H.264 (1280 x 720)");
    add_audio(tracks, nullptr, 48000, false);
    EXPECT_EQ(summary(tracks), "NVidia H.264 (1280 x 720) 48.0 khz");
    add_audio(tracks, "MPEG-4 Audio", 44100, true);
    EXPECT_EQ(summary(tracks), "NVidia H.264 (1280 x 720) MPEG-4 Audio (44.1 khz)");
    add_audio(tracks, "MPEG-4 Audio", 32000, false);  // named, but not compressed
    EXPECT_EQ(summary(tracks), "NVidia H.264 (1280 x 720) 32.0 khz");
    add_video(tracks, "x264", 640, 480);
    add_video(tracks, "MJPEG", 320, 240, false);
    EXPECT_EQ(summary(tracks), "x264 (640 x 480) 32.0 khz");
    zRecord sound;
    add_audio(sound, nullptr, 22050, true);
    EXPECT_EQ(summary(sound), "22.0 khz");
    zRecord nameless;
    add_video(nameless, nullptr, 1280, 720);
    EXPECT_EQ(summary(nameless), " (1280 x 720)");
}

TEST(tnUtils, USBDevicesHaveNames) {
    EXPECT_EQ(tnUtils::USBVendorStringToID("Logitech"), 1133u);
    EXPECT_EQ(tnUtils::USBVendorStringToID("logitech"), 0u);
    EXPECT_EQ(tnUtils::USBVendorStringToID(""), 0u);
    EXPECT_EQ(tnUtils::USBVendorStringToID(nullptr), 0u);
    for (const auto& [id, name] :
         std::initializer_list<std::pair<unsigned int, const char*>>{{1452, "Apple"},
                                                                     {1054, "Creative Labs"},
                                                                     {1008, "Hewlett Packard"},
                                                                     {1133, "Logitech"},
                                                                     {1118, "Microsoft"}}) {
        EXPECT_STREQ(tnUtils::USBVendorIDToString(id), name);
        EXPECT_EQ(tnUtils::USBVendorStringToID(name), id);
    }
    EXPECT_EQ(tnUtils::USBVendorIDToString(0), nullptr);
    EXPECT_EQ(tnUtils::USBVendorIDToString(1), nullptr);
    EXPECT_EQ(tnUtils::USBProductIDToString(1133, 1), nullptr);
    EXPECT_EQ(tnUtils::USBProductIDToString(1133, 0), nullptr);
    EXPECT_EQ(tnUtils::USBProductIDToString(1452, 2093), nullptr);
    EXPECT_EQ(tnUtils::USBProductIDToString(7, 2093), nullptr);
}

TEST(tnUtils, EveryLogitechCameraHasItsName) {
    constexpr tnUtils::id_name kCameras[] = {
        {2057, "Logitech Webcam Pro 9000"},    {2058, "Logitech Webcam 905"},
        {2063, "Logitech Webcam 120"},         {2071, "Logitech Webcam C100"},
        {2073, "Logitech Webcam C210"},        {2074, "Logitech Webcam C260"},
        {2075, "Logitech HD Webcam C310"},     {2077, "Logitech HD Webcam C510"},
        {2081, "Logitech HD Pro Webcam C910"}, {2083, "Logitech B910 HD Webcam"},
        {2084, "Logitech Webcam C160"},        {2085, "Logitech HD Webcam C270"},
        {2086, "Logitech HD Webcam C525"},     {2092, "Logitech HD Webcam C615"},
        {2093, "Logitech HD Pro Webcam C920"}, {2100, "Logitech BC920 HD Pro Webcam"},
        {2102, "Logitech B525 HD Webcam"},     {2448, "Logitech QuickCam Pro 9000"},
        {2449, "QuickCam Pro for Notebooks"},  {2452, "QuickCam Orbit/Sphere AF"},
        {2469, "Logitech QuickCam 3000"},
    };
    for (const auto& [id, name] : kCameras) {
        EXPECT_STREQ(tnUtils::USBProductIDToString(1133, id), name);
    }
    std::size_t products = 0;
    while (tnUtils::LogitechProductIDs[products].fId != 0) ++products;
    EXPECT_EQ(products, std::size(kCameras));
}

TEST(tnUtils, EncodersStartWithAQuality) {
    EXPECT_STREQ(GetDefaultCodecQuality("x264"), "veryfast");
    EXPECT_STREQ(GetDefaultCodecQuality("Intel QuickSync H.264"), "quicksync_1");
    EXPECT_STREQ(GetDefaultCodecQuality("NVidia H.264"), "nvidia_h264_high_quality");
    EXPECT_STREQ(GetDefaultCodecQuality("ProRes"), "ProRes422");
    EXPECT_STREQ(GetDefaultCodecQuality("MJPEG"), "veryhigh");
    for (const char* name : {"", "X264", "Mpeg2"}) EXPECT_STREQ(GetDefaultCodecQuality(name), "");
    EXPECT_STREQ(GetDefaultCodecQuality(nullptr), "");
}

TEST(tnUtils, FlagsDecideWhoIsOffered) {
    struct Flags {
        const char* fName;
        unsigned int fEnabling;  // every bit here enables the encoder, no other does
    };
    constexpr Flags kFlags[] = {
        {"H.264", 0x16},
        {"x264", 0x16},
        {"Microsoft H.264", 0x16},
        {"ProRes", 0x22},
        {"MJPEG", 0x22},
        {"Windows Media Video 9", 0xC6},
        {"Windows Media Video 9 Screen", 0xC6},
        {"Windows Media Video V8", 0xC6},
        {"Windows Media Video V8 x", 0xC6},
        {"Windows Media Video V7", 0xFFFFFFFF},
        {"Mpeg2", 0xFFFFFFFF},
        {"", 0xFFFFFFFF},
    };
    tnUtils::Startup();
    for (const Flags& flags : kFlags) {
        EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, flags.fName));
        for (int bit = 0; bit < 32; ++bit) {
            EXPECT_EQ(tnUtils::IsVideoCodecEnabledWithFlags(1u << bit, flags.fName),
                      (flags.fEnabling >> bit & 1) != 0)
                << flags.fName << ", bit " << bit;
        }
    }
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0x04, "x264"));
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0x01, "x264"));
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0x04, "ProRes"));
    tnUtils::Shutdown();
}

TEST(tnUtils, OnlyTheHardwareEncoderIsTriedAndItsAnswerIsKept) {
    tnUtils::Startup();
    const TestEncoderFactory factory;
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "x264"));
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "H.264"));
    EXPECT_EQ(factory.Made(), 0);
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "Video Toolbox H.264"));
    EXPECT_EQ(factory.Made(), 1);
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0x10, "Video Toolbox H.264"));
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0x01, "Video Toolbox H.264"));
    EXPECT_EQ(factory.Made(), 1);
    tnUtils::Shutdown();  // the answers go with the cache
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "Video Toolbox H.264"));
    EXPECT_EQ(factory.Made(), 2);
    tnUtils::Shutdown();
}

TEST(tnUtils, HardwareEncoderThatFailsIsNotOfferedWhateverTheFlags) {
    tnUtils::Startup();
    TestEncoderFactory factory;
    factory.FailAt(TestEncoder::kBegin);
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0, "Video Toolbox H.264"));
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0xFFFFFFFF, "Video Toolbox H.264"));
    EXPECT_EQ(factory.Made(), 1);
    tnUtils::Shutdown();
}

TEST(tnUtils, AnswerOfATrialHoldsForFiveSeconds) {
    tnUtils::Startup();
    const TestEncoderFactory factory;
    const long long before = zTime::MicroNow() / 1000;
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "Video Toolbox H.264"));
    const long long after = zTime::MicroNow() / 1000;
    bool value = false;
    auto* cache = TCache<bool>::Singleton();
    EXPECT_TRUE(cache->Find("Video Toolbox H.264", before + 4999, value));
    EXPECT_TRUE(value);
    EXPECT_FALSE(cache->Find("Video Toolbox H.264", after + 5000, value));
    tnUtils::Shutdown();
}

TEST(tnUtils, StaleAnswerIsAskedForAgain) {
    tnUtils::Startup();
    const TestEncoderFactory factory;
    TCache<bool>::Singleton()->Store("Video Toolbox H.264", zTime::MicroNow() / 1000 - 1, false);
    EXPECT_TRUE(tnUtils::IsVideoCodecEnabledWithFlags(0, "Video Toolbox H.264"));
    EXPECT_EQ(factory.Made(), 1);
    // An answer that never goes stale, for any name, is taken as it is.
    TCache<bool>::Singleton()->Store("x264", 0, false);
    EXPECT_FALSE(tnUtils::IsVideoCodecEnabledWithFlags(0, "x264"));
    tnUtils::Shutdown();
}

// The cache.

TEST(TCache, StandsOnceTheUtilitiesAreUp) {
    tnUtils::Shutdown();
    ASSERT_FALSE(TCache<bool>::Exists());
    tnUtils::Startup();
    EXPECT_TRUE(TCache<bool>::Exists());
    tnUtils::Shutdown();
}

TEST(TCache, LivesFromTheFirstUseToShutdown) {
    tnUtils::Shutdown();
    EXPECT_FALSE(TCache<bool>::Exists());
    auto* cache = TCache<bool>::Singleton();
    EXPECT_EQ(TCache<bool>::Singleton(), cache);
    EXPECT_TRUE(TCache<bool>::Exists());
    tnUtils::Shutdown();
    EXPECT_FALSE(TCache<bool>::Exists());
    tnUtils::Shutdown();
}

TEST(TCache, AnswersHoldUntilTheyExpire) {
    auto* cache = TCache<bool>::Singleton();
    bool value = false;
    EXPECT_FALSE(cache->Find("a", 100, value));
    cache->Store("a", 200, true);
    EXPECT_TRUE(cache->Find("a", 199, value));
    EXPECT_TRUE(value);
    EXPECT_FALSE(cache->Find("b", 199, value));
    EXPECT_FALSE(cache->Find("a", 200, value));
    EXPECT_FALSE(cache->Find("a", 199, value));  // removed when it was seen to be stale
    cache->Store("a", 0, false);
    EXPECT_TRUE(cache->Find("a", 1LL << 62, value));
    EXPECT_FALSE(value);
    cache->Store("a", 300, true);  // the last one stays
    EXPECT_TRUE(cache->Find("a", 299, value));
    EXPECT_TRUE(value);
    tnUtils::Shutdown();
}

}  // namespace
