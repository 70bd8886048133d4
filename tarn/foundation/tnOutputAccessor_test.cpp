#include "tarn/foundation/tnOutputAccessor.h"

#include <climits>
#include <gtest/gtest.h>
#include <vector>

#include "spar/zRecord.h"
#include "spar/zString.h"
#include "tarn/foundation/tnOutputAnnotations.h"
#include "tarn/foundation/tnTarn.h"

#include "tests/support/TraceKeeper.h"

namespace {

using Accessor = tnOutputAccessor;

class tnOutputAccessorTest : public testing::Test {
protected:
    static void SetUpTestSuite() { tnTarn::string_defines(); }

    zRecord fRecord;
    Accessor fAccessor{fRecord};
};

struct IntKey {
    const char* fKey;
    int (Accessor::*fGet)() const;
    void (Accessor::*fSet)(int);
    int fIfNull;
    int fIfMissing;
};

constexpr IntKey kInts[] = {
    {"output_streamingaction", &Accessor::StreamingAction, &Accessor::SetStreamingAction, 0, 0},
    {"output_nettimeout", &Accessor::MilliTimeout, &Accessor::SetMilliTimeout, 0, 0},
    {"output_videodataport", &Accessor::VideoDataPort, &Accessor::SetVideoDataPort, 5434, 5434},
    {"output_audiodataport", &Accessor::AudioDataPort, &Accessor::SetAudioDataPort, 5432, 5432},
    {"multicast_ttl", &Accessor::MulticastTTL, &Accessor::SetMulticastTTL, 15, 15},
    {"output_wm_pull_port", &Accessor::GetWindowsMediaPullPort, &Accessor::SetWindowsMediaPullPort,
     0, 0},
    {"output_wm_pull_connections", &Accessor::GetMaxWMPullConnections,
     &Accessor::SetMaxWMPullConnections, 0, 0},
    {"unique_id", &Accessor::OutputUniqueID, &Accessor::SetOutputUniqueID, 0, 0},
    {"flash_streaming_delay", &Accessor::FlashStreamingDelay, &Accessor::SetFlashStreamingDelay, 0,
     0},
};

TEST_F(tnOutputAccessorTest, NumbersHaveTheirKeysAndDefaults) {
    for (const IntKey& key : kInts) {
        SCOPED_TRACE(key.fKey);
        EXPECT_EQ((Accessor().*key.fGet)(), key.fIfNull);
        EXPECT_EQ((fAccessor.*key.fGet)(), key.fIfMissing);
        (fAccessor.*key.fSet)(4711);
        EXPECT_EQ(fRecord.AsInt32(key.fKey, 0), 4711);
        EXPECT_EQ((fAccessor.*key.fGet)(), 4711);
    }
}

struct BoolKey {
    const char* fKey;
    bool (Accessor::*fGet)() const;
    void (Accessor::*fSet)(bool);
    bool fIfNull;
    bool fIfMissing;
};

constexpr BoolKey kBools[] = {
    {"output_enabled", &Accessor::OutputEnabled, &Accessor::SetOutputEnabled, false, false},
    {"output_autoinfilename", &Accessor::AutoIncrementFileName, &Accessor::SetAutoIncrementFileName,
     false, false},
    {"timestamp_filename", &Accessor::TimestampFileName, &Accessor::SetTimestampFileName, false,
     false},
    {"output_hintfile", &Accessor::HintFile, &Accessor::SetHintFile, false, false},
    {"output_index_asf", &Accessor::IndexASFFile, &Accessor::SetIndexASFFile, true, true},
    {"output_wm_push_auto_remove", &Accessor::GetAutoRemovePushConnection,
     &Accessor::SetAutoRemovePushConnection, false, true},
    {"tn_restreaming", &Accessor::IsRestreamingEnabled, &Accessor::SetRestreamingEnabled, false,
     false},
};

TEST_F(tnOutputAccessorTest, FlagsHaveTheirKeysAndDefaults) {
    for (const BoolKey& key : kBools) {
        SCOPED_TRACE(key.fKey);
        EXPECT_EQ((Accessor().*key.fGet)(), key.fIfNull);
        EXPECT_EQ((fAccessor.*key.fGet)(), key.fIfMissing);
        for (const bool value : {true, false}) {
            (fAccessor.*key.fSet)(value);
            EXPECT_EQ(fRecord.AsBool(key.fKey, !value), value);
            EXPECT_EQ((fAccessor.*key.fGet)(), value);
        }
    }
}

struct StringKey {
    const char* fKey;
    std::string (Accessor::*fGet)() const;
    void (Accessor::*fSet)(const std::string&);
};

constexpr StringKey kStrings[] = {
    {"output_presetname", &Accessor::PresetName, &Accessor::SetPresetName},
    {"output_url", &Accessor::URL, &Accessor::SetURL},
    {"output_branding", &Accessor::OutputBranding, &Accessor::SetOutputBranding},
    {"output_display_group_name", &Accessor::OutputDisplayGroupName,
     &Accessor::SetOutputDisplayGroupName},
    {"output_display_name", &Accessor::OutputDisplayName, &Accessor::SetOutputDisplayName},
    {"output_location", &Accessor::LocationOnServer, &Accessor::SetLocationOnServer},
    {"output_location_with_bitrate", &Accessor::LocationOnServerWithBitrate,
     &Accessor::SetLocationOnServerWithBitrate},
};

TEST_F(tnOutputAccessorTest, StringsHaveTheirKeysAndAreEmptyOtherwise) {
    for (const StringKey& key : kStrings) {
        SCOPED_TRACE(key.fKey);
        zRecord record;
        Accessor accessor(record);
        EXPECT_EQ((Accessor().*key.fGet)(), "");
        EXPECT_EQ((accessor.*key.fGet)(), "");
        (accessor.*key.fSet)("Größe 1");
        EXPECT_EQ(record.AsString(key.fKey, ""), "Größe 1");
        EXPECT_EQ((accessor.*key.fGet)(), "Größe 1");
    }
}

struct TextKey {
    const char* fKey;
    const char* (Accessor::*fGet)() const;
    void (Accessor::*fSet)(const char*);
    bool fAllowsNull;
};

constexpr TextKey kTexts[] = {
    {"output_username", &Accessor::Username, &Accessor::SetUsername, true},
    {"output_password", &Accessor::Password, &Accessor::SetPassword, true},
    {"multicast_video_address", &Accessor::MulticastVideoAddress,
     &Accessor::SetMulticastVideoAddress, false},
    {"multicast_audio_address", &Accessor::MulticastAudioAddress,
     &Accessor::SetMulticastAudioAddress, false},
    {"output_guid", &Accessor::OutputGUID, &Accessor::SetOutputGUID, true},
    {"output_sdk_description", &Accessor::OutputSDKDescription, &Accessor::SetOutputSDKDescription,
     true},
};

TEST_F(tnOutputAccessorTest, TextsHaveTheirKeysAndAreNullOtherwise) {
    for (const TextKey& key : kTexts) {
        SCOPED_TRACE(key.fKey);
        if (key.fAllowsNull) {
            EXPECT_EQ((Accessor().*key.fGet)(), nullptr);
        }
        EXPECT_EQ((fAccessor.*key.fGet)(), nullptr);
        (fAccessor.*key.fSet)("secret");
        EXPECT_STREQ(fRecord.AsCString(key.fKey, nullptr), "secret");
        EXPECT_STREQ((fAccessor.*key.fGet)(), "secret");
        (fAccessor.*key.fSet)(nullptr);
        EXPECT_EQ((fAccessor.*key.fGet)(), nullptr);
        EXPECT_FALSE(fRecord.ExistsKey(key.fKey));
    }
}

TEST_F(tnOutputAccessorTest, TypeTransportAndMaskHaveTheirKeysAndDefaults) {
    const Accessor null;
    EXPECT_EQ(null.OutputType(), 1);
    EXPECT_EQ(null.StreamingTransport(), 2);
    EXPECT_EQ(null.AudioOutputTrackMask(), 1u);
    EXPECT_EQ(fAccessor.OutputType(), 0);
    EXPECT_EQ(fAccessor.StreamingTransport(), 0);
    EXPECT_EQ(fAccessor.AudioOutputTrackMask(), 1u);
    fAccessor.SetOutputType(TN_OUTPUT_STREAMING);
    fAccessor.SetStreamingTransport(static_cast<tn_transport>(9));
    fAccessor.SetAudioOutputTrackMask(0xFFFFFFFFu);
    EXPECT_EQ(fRecord.AsInt32("output_type", 0), 2);
    EXPECT_EQ(fRecord.AsInt32("output_transport", 0), 9);
    EXPECT_EQ(fRecord.AsUInt32("audio_output_track_mask", 0), 0xFFFFFFFFu);
    EXPECT_EQ(fAccessor.AudioOutputTrackMask(), 0xFFFFFFFFu);
}

TEST_F(tnOutputAccessorTest, SettersWithoutARecordDoNothing) {
    Accessor null;
    for (const IntKey& key : kInts) {
        if (key.fSet != &Accessor::SetOutputUniqueID) (null.*key.fSet)(1);
    }
    for (const BoolKey& key : kBools) (null.*key.fSet)(true);
    for (const StringKey& key : kStrings) (null.*key.fSet)("a");
    for (const TextKey& key : kTexts) (null.*key.fSet)("a");
    null.SetOutputType(TN_OUTPUT_STREAMING);
    null.SetStreamingTransport(TN_TRANSPORT_ANNOUNCED_1);
    null.SetAudioOutputTrackMask(3);
    null.Print();
    EXPECT_EQ(null.Record(), nullptr);
    EXPECT_EQ(null.OutputType(), TN_OUTPUT_DEFAULT);
}

TEST_F(tnOutputAccessorTest, SwitchingAnOutputNamesItsElement) {
    fAccessor.SetOutputEnabled(false);
    EXPECT_STREQ(fRecord.AsCString('xTag', nullptr, nullptr), "output");
    EXPECT_TRUE(fRecord.ExistsID('mOen'));
    std::vector<unsigned long long> ids;  // the name comes first
    fRecord.ForEachVariable([&ids](const zVariable& variable) {
        ids.push_back(variable.ID());
        return true;
    });
    EXPECT_EQ(ids, (std::vector<unsigned long long>{'xTag', 'mOen'}));
}

TEST_F(tnOutputAccessorTest, LocationWithBitrateFallsBack) {
    fAccessor.SetLocationOnServer("live/one");
    EXPECT_EQ(fAccessor.LocationOnServerWithBitrate(), "live/one");
    fAccessor.SetLocationOnServerWithBitrate("live/one_800");
    EXPECT_EQ(fAccessor.LocationOnServerWithBitrate(), "live/one_800");
    fAccessor.SetLocationOnServerWithBitrate("");
    EXPECT_EQ(fAccessor.LocationOnServerWithBitrate(), "live/one");
}

TEST_F(tnOutputAccessorTest, HostOfALocationWithOrWithoutItsScheme) {
    const std::pair<const char*, const char*> kHosts[] = {
        {"rtsp://media.example.com:8554/live", "media.example.com"},
        {"media.example.com:8554/live", "media.example.com"},
        {"media.example.com/live", "media.example.com"},
        {"media.example.com", "media.example.com"},
        {"rtmp://10.0.0.1/app", "10.0.0.1"},
    };
    for (const auto& [url, expected] : kHosts) {
        SCOPED_TRACE(url);
        fAccessor.SetURL(url);
        zString host;
        EXPECT_TRUE(fAccessor.GetHostname(host));
        EXPECT_STREQ(host.CString(), expected);
    }
    zString host;
    host = std::string("before");
    fAccessor.SetURL("");
    EXPECT_FALSE(fAccessor.GetHostname(host));
    EXPECT_FALSE(Accessor().GetHostname(host));
    fAccessor.SetURL("[::1/live");
    EXPECT_FALSE(fAccessor.GetHostname(host));
    EXPECT_STREQ(host.CString(), "before");
}

TEST_F(tnOutputAccessorTest, RTSPPortIsTheOneNamedElse554) {
    const std::pair<const char*, int> kPorts[] = {
        {"rtsp://host:8554/live", 8554},
        {"rtsp://host/live", 554},
        {"rtsp://host:0/live", 554},
        {"rtsp://host:1/live", 1},
        {"abc://host/live", 554},      // no port, and none that goes with the scheme
        {"rtsp://host:21/live", 554},  // 21 is what an assumed scheme gives, and counts as none
        {"host:8554/live", 8554},
        {"host/live", 554},
        {"host", 554},
        {"", 554},
        {"[::1/live", 554},
    };
    for (const auto& [url, port] : kPorts) {
        SCOPED_TRACE(url);
        fAccessor.SetURL(url);
        EXPECT_EQ(fAccessor.GetRTSPPort(), port);
    }
    EXPECT_EQ(Accessor().GetRTSPPort(), 554);
}

TEST_F(tnOutputAccessorTest, OnlyStreamingOutputsOfThreeTransportsAreAnnounced) {
    EXPECT_FALSE(Accessor().IsRTSPAnnounceTransport());
    for (int type = 0; type < 5; ++type) {
        for (int transport = -1; transport < 9; ++transport) {
            fAccessor.SetOutputType(static_cast<tn_output>(type));
            fAccessor.SetStreamingTransport(static_cast<tn_transport>(transport));
            const bool announced = transport == 1 || transport == 2 || transport == 6;
            EXPECT_EQ(fAccessor.IsRTSPAnnounceTransport(), type == 2 && announced)
                << type << ", " << transport;
        }
    }
}

TEST_F(tnOutputAccessorTest, BrandingIsComparedWhole) {
    EXPECT_FALSE(Accessor().IsOutputBranding("a"));
    EXPECT_FALSE(fAccessor.IsOutputBranding(""));
    fAccessor.SetOutputBranding("studio");
    EXPECT_TRUE(fAccessor.IsOutputBranding("studio"));
    EXPECT_FALSE(fAccessor.IsOutputBranding("stud"));
    EXPECT_FALSE(fAccessor.IsOutputBranding("Studio"));
    EXPECT_FALSE(fAccessor.IsOutputBranding(nullptr));
}

TEST_F(tnOutputAccessorTest, FindsTheFirstOutputOfAType) {
    zRecord outputs;
    for (const int type : {0, 2, 2}) {
        auto* child = new zRecord;
        if (type != 0) child->SetInt32('mOyp', type, 0);
        outputs.AddChild(child, 0x7FFFFFFF);
    }
    Accessor out;
    EXPECT_EQ(Accessor::FindOutputForType(outputs, out, TN_OUTPUT_STREAMING, false), 0);
    EXPECT_EQ(out.Record(), outputs.Child(1));
    EXPECT_EQ(Accessor::FindOutputForType(outputs, out, static_cast<tn_output>(0), false), 0);
    EXPECT_EQ(out.Record(), outputs.Child(0));
    EXPECT_EQ(Accessor::FindOutputForType(outputs, out, TN_OUTPUT_DEFAULT, false), -1023);
    EXPECT_EQ(out.Record(), outputs.Child(0));
}

TEST_F(tnOutputAccessorTest, NullChildCountsAsTheDefaultType) {
    zRecord outputs;
    outputs.AddChild(nullptr, 0x7FFFFFFF);
    Accessor out(fRecord);
    EXPECT_EQ(Accessor::FindOutputForType(outputs, out, TN_OUTPUT_STREAMING, false), -1023);
    EXPECT_EQ(out.Record(), &fRecord);
    EXPECT_EQ(Accessor::FindOutputForType(outputs, out, TN_OUTPUT_DEFAULT, false), 0);
    EXPECT_EQ(out.Record(), nullptr);
}

TEST_F(tnOutputAccessorTest, MissingOutputIsMadeOnce) {
    zRecord outputs;
    Accessor first;
    Accessor second;
    EXPECT_EQ(Accessor::FindOutputForType(outputs, first, TN_OUTPUT_STREAMING, true), 0);
    EXPECT_EQ(Accessor::FindOutputForType(outputs, second, TN_OUTPUT_STREAMING, true), 0);
    EXPECT_EQ(outputs.ChildCount(), 1u);
    EXPECT_EQ(first.Record(), outputs.Child(0));
    EXPECT_EQ(second.Record(), outputs.Child(0));
    EXPECT_EQ(first.OutputType(), TN_OUTPUT_STREAMING);
    EXPECT_EQ(Accessor::FindOutputForType(outputs, second, static_cast<tn_output>(7), true), 0);
    EXPECT_EQ(second.Record(), outputs.Child(1));
}

TEST_F(tnOutputAccessorTest, GroupNamesAreSearched) {
    zRecord outputs;
    EXPECT_FALSE(Accessor::HasOutputWithGroupName(outputs, "main"));
    Accessor out;
    Accessor::FindOutputForType(outputs, out, TN_OUTPUT_DEFAULT, true);
    Accessor::FindOutputForType(outputs, out, TN_OUTPUT_STREAMING, true);
    out.SetOutputDisplayGroupName("main");
    EXPECT_TRUE(Accessor::HasOutputWithGroupName(outputs, "main"));
    EXPECT_TRUE(Accessor::HasOutputWithGroupName(outputs, ""));  // the first has none
    EXPECT_FALSE(Accessor::HasOutputWithGroupName(outputs, "mai"));
    EXPECT_FALSE(Accessor::HasOutputWithGroupName(outputs, nullptr));  // no name is no empty name
}

TEST_F(tnOutputAccessorTest, NullChildHasTheEmptyGroupName) {
    zRecord outputs;
    outputs.AddChild(nullptr, 0x7FFFFFFF);
    EXPECT_TRUE(Accessor::HasOutputWithGroupName(outputs, ""));
    EXPECT_FALSE(Accessor::HasOutputWithGroupName(outputs, "main"));
    auto* named = new zRecord;
    Accessor(*named).SetOutputDisplayGroupName("main");
    outputs.AddChild(named, 0x7FFFFFFF);
    EXPECT_TRUE(Accessor::HasOutputWithGroupName(outputs, "main"));
}

TEST_F(tnOutputAccessorTest, PrintsTheRecordThatItHolds) {
    fAccessor.SetURL("rtsp://host/one");
    fRecord.AddChild(new zRecord, 0x7FFFFFFF);
    tests::TraceKeeper keeper;
    fAccessor.Print();
    EXPECT_EQ(keeper.fText, fRecord.Description());
    keeper.fText.clear();
    tnOutputAnnotations(fRecord).Print();
    EXPECT_EQ(keeper.fText, fRecord.Description());
    keeper.fText.clear();
    Accessor().Print();
    tnOutputAnnotations().Print();
    EXPECT_EQ(keeper.fText, "");
}

TEST_F(tnOutputAccessorTest, AssignmentCopiesAndNeverRepoints) {
    zRecord other;
    Accessor target(other);
    fAccessor.SetURL("rtsp://host/one");
    target = fAccessor;
    EXPECT_EQ(target.Record(), &other);
    EXPECT_EQ(fAccessor.Record(), &fRecord);
    EXPECT_EQ(target.URL(), "rtsp://host/one");

    zRecord plain;
    plain.SetCString('mURL', "rtsp://host/two", 0);
    target = static_cast<const zRecord&>(plain);
    EXPECT_EQ(target.URL(), "rtsp://host/two");
    EXPECT_EQ(fAccessor.URL(), "rtsp://host/one");
}

TEST_F(tnOutputAccessorTest, AssignmentLeavesTwoRecordsThatAreEqual) {
    fAccessor.SetURL("rtsp://host/one");
    fAccessor.SetOutputUniqueID(7);
    fAccessor.SetOutputEnabled(true);
    fRecord.AddChild(new zRecord(fRecord), 0);
    zRecord other;
    other.SetInt32("of its own", 1);
    Accessor target(other);
    target = fAccessor;
    EXPECT_EQ(other.Description(), fRecord.Description());
    EXPECT_EQ(other.ChildCount(), 1u);
    target.SetURL("rtsp://host/two");
    EXPECT_EQ(fAccessor.URL(), "rtsp://host/one");
}

TEST_F(tnOutputAccessorTest, StringsKeepZeroBytes) {
    const std::string text("one\0two", 7);
    for (const StringKey& key : kStrings) {
        (fAccessor.*key.fSet)(text);
        EXPECT_EQ((fAccessor.*key.fGet)(), text) << key.fKey;
    }
}

TEST_F(tnOutputAccessorTest, AssignmentOfOrToNothingDoesNothing) {
    fAccessor.SetURL("rtsp://host/one");
    Accessor null;
    fAccessor = null;
    EXPECT_EQ(fAccessor.URL(), "rtsp://host/one");
    null = fAccessor;
    EXPECT_EQ(null.Record(), nullptr);
    null = static_cast<const zRecord&>(fRecord);
    EXPECT_EQ(null.Record(), nullptr);
    const Accessor& same = fAccessor;
    fAccessor = same;
    fAccessor = static_cast<const zRecord&>(fRecord);
    EXPECT_EQ(fAccessor.URL(), "rtsp://host/one");
}

TEST_F(tnOutputAccessorTest, AccessorPointsWhereItWasMadeOrSet) {
    const zRecord constant;
    EXPECT_EQ(Accessor(constant).Record(), &constant);
    zRecord other;
    fAccessor.set(other);
    EXPECT_EQ(fAccessor.Record(), &other);
    const Accessor copy(fAccessor);
    EXPECT_EQ(copy.Record(), &other);
    EXPECT_EQ(Accessor::DefaultVideoDataPort(), 5434);
    EXPECT_EQ(Accessor::DefaultAudioDataPort(), 5432);
    EXPECT_EQ(Accessor::DefaultMulticastTTL(), 15);
}

struct AnnotationKey {
    const char* fKey;
    const char* (tnOutputAnnotations::*fGet)() const;
    void (tnOutputAnnotations::*fSet)(const char*);
};

constexpr AnnotationKey kAnnotations[] = {
    {"output_title", &tnOutputAnnotations::Title, &tnOutputAnnotations::SetTitle},
    {"output_author", &tnOutputAnnotations::Author, &tnOutputAnnotations::SetAuthor},
    {"output_info", &tnOutputAnnotations::Info, &tnOutputAnnotations::SetInfo},
    {"output_copyright", &tnOutputAnnotations::Copyright, &tnOutputAnnotations::SetCopyright},
};

TEST_F(tnOutputAccessorTest, AnnotationsHaveTheirKeysAndAreNullOtherwise) {
    tnOutputAnnotations null;
    tnOutputAnnotations annotations(fRecord);
    for (const AnnotationKey& key : kAnnotations) {
        SCOPED_TRACE(key.fKey);
        (null.*key.fSet)("nothing");
        EXPECT_EQ((null.*key.fGet)(), nullptr);
        EXPECT_EQ((annotations.*key.fGet)(), nullptr);
        (annotations.*key.fSet)(key.fKey);
        EXPECT_STREQ((annotations.*key.fGet)(), key.fKey);
        EXPECT_STREQ(fRecord.AsCString(key.fKey, nullptr), key.fKey);
        (annotations.*key.fSet)(nullptr);
        EXPECT_EQ((annotations.*key.fGet)(), nullptr);
        EXPECT_FALSE(fRecord.ExistsKey(key.fKey));
    }
    null.Print();
}

TEST_F(tnOutputAccessorTest, AnnotationsAreAssignedAsAccessorsAre) {
    zRecord other;
    tnOutputAnnotations source(fRecord);
    tnOutputAnnotations target(other);
    tnOutputAnnotations null;
    source.SetTitle("Title");
    target = source;
    EXPECT_EQ(target.Record(), &other);
    EXPECT_STREQ(target.Title(), "Title");
    target = null;
    EXPECT_STREQ(target.Title(), "Title");
    null = source;
    EXPECT_EQ(null.Record(), nullptr);
    const tnOutputAnnotations& same = target;
    target = same;
    target = static_cast<const zRecord&>(other);
    EXPECT_STREQ(target.Title(), "Title");
    target.set(fRecord);
    EXPECT_EQ(target.Record(), &fRecord);
    const zRecord constant;
    EXPECT_EQ(tnOutputAnnotations(constant).Record(), &constant);
}

}  // namespace
