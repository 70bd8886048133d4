#include "spar/zRecord.h"

#include <atomic>
#include <climits>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "spar/zStringID.h"
#include "spar/zTraceManager.h"

#include "tests/support/randomRecords.h"

namespace {

using records::Same;

/// A record with registered members, as formats are.
class Format : public zRecord {
public:
    Format() { RegisterVariables(); }
    Format(const Format& source) : zRecord() {
        RegisterVariables();
        Copy(source, true, true, {});
    }
    explicit Format(const zRecord& source) {
        RegisterVariables();
        Copy(source, true, true, {});
    }
    Format& operator=(const Format& source) {
        Copy(source, true, true, {});
        return *this;
    }

    zVariable fWidth{'rtWi'};
    zVariable fHeight{'rtHe'};
    zVariable fName{'rtNa'};

private:
    void RegisterVariables() {
        zVariable* members[] = {&fWidth, &fHeight, &fName};
        zRecord::RegisterVariables('rtFo', members, 3);
    }
};

/// Notes the announcements.
class Watched : public zRecord {
public:
    void variable_changing(unsigned long long id, bool isNew, bool isRemoval) override {
        fCalls.emplace_back(id, isNew, isRemoval, ExistsID(id));
    }
    std::vector<std::tuple<unsigned long long, bool, bool, bool>> fCalls;
};

std::vector<unsigned long long> ids_of(const zRecord& record) {
    std::vector<unsigned long long> ids;
    record.ForEachVariable([&](const zVariable& variable) {
        ids.push_back(variable.ID());
        return true;
    });
    return ids;
}

zRecord* tagged(const char* tag) {
    auto* record = new zRecord;
    record->SetCString('xTag', tag);
    return record;
}

TEST(zRecord, ANewOneIsEmpty) {
    const zRecord record;
    EXPECT_TRUE(record.IsEmpty());
    EXPECT_FALSE(record.HasChildren());
    EXPECT_EQ(record.ChildCount(), 0u);
    EXPECT_EQ(record.Child(0), nullptr);
    EXPECT_FALSE(record.ExistsID('mwid'));
    EXPECT_FALSE(record.ExistsKey("nobody_ever_set_this"));
    EXPECT_EQ(record.AsInt32('mwid', 5), 5);
    EXPECT_EQ(record.AsCString('mwid', nullptr), nullptr);
}

// Each kind is set by id and read by key, and the other way round, and by its own road.
template <class Value, class Set, class SetKey, class As, class AsKey>
void there_and_back(Value first, Value second, Value none, Set set, SetKey setKey, As as,
                    AsKey asKey) {
    zStringID::Default().Add('rtTB', "record_test_there_and_back", false);
    const unsigned long long id = 'rtTB';
    const char* const key = "record_test_there_and_back";
    zRecord record;
    EXPECT_EQ((record.*as)(id, none), none);
    EXPECT_EQ((record.*asKey)(key, none), none);
    (record.*set)(id, first, 0);
    EXPECT_EQ((record.*as)(id, none), first);
    EXPECT_EQ((record.*asKey)(key, none), first);
    (record.*setKey)(key, second, 0);
    EXPECT_EQ((record.*as)(id, none), second);
    EXPECT_EQ((record.*asKey)(key, none), second);
    EXPECT_EQ(record.VariableCount(), 1u);
}

#define THERE_AND_BACK(Value, Name, first, second, none)                                      \
    there_and_back<Value>(                                                                    \
        first, second, none,                                                                  \
        static_cast<void (zRecord::*)(unsigned long long, Value, char)>(&zRecord::Set##Name), \
        static_cast<void (zRecord::*)(const char*, Value, char)>(&zRecord::Set##Name),        \
        static_cast<Value (zRecord::*)(unsigned long long, Value) const>(&zRecord::As##Name), \
        static_cast<Value (zRecord::*)(const char*, Value) const>(&zRecord::As##Name))

TEST(zRecord, EveryKindGoesByIdAndByKey) {
    THERE_AND_BACK(bool, Bool, true, true, false);
    THERE_AND_BACK(bool, Bool, false, false, true);
    THERE_AND_BACK(int, Int32, INT_MIN, 1920, 7);
    THERE_AND_BACK(unsigned int, UInt32, UINT_MAX, 1u, 7u);
    THERE_AND_BACK(long long, Int64, LLONG_MIN, LLONG_MAX, 7ll);
    THERE_AND_BACK(unsigned long long, UInt64, ULLONG_MAX, 0ull, 7ull);
    THERE_AND_BACK(float, Float, 29.97f, -0.5f, 7.0f);
    THERE_AND_BACK(double, Double, 1e300, -0.1, 7.0);
}

TEST(zRecord, TextsGoByIdAndByKey) {
    zStringID::Default().Add('rtTx', "record_test_text", false);
    zRecord record;
    record.SetCString('rtTx', "by id");
    EXPECT_STREQ(record.AsCString("record_test_text", nullptr), "by id");
    EXPECT_EQ(record.AsString("record_test_text", ""), "by id");
    record.SetCString("record_test_text", "by key");
    EXPECT_STREQ(record.AsCString('rtTx', nullptr), "by key");
    record.SetString('rtTx', std::string("a\0b", 3));
    EXPECT_EQ(record.AsString("record_test_text", ""), std::string("a\0b", 3));
    record.SetString("record_test_text", "");
    EXPECT_STREQ(record.AsCString('rtTx', nullptr), "");
    char scratch[64];
    record.SetInt32('rtTx', -7);
    EXPECT_STREQ(record.AsCString('rtTx', nullptr, &scratch), "-7");
    EXPECT_STREQ(record.AsCString("record_test_text", nullptr, &scratch), "-7");
    EXPECT_EQ(record.AsCString("record_test_text", nullptr, nullptr), nullptr);
    EXPECT_EQ(record.AsString('rtTx', ""), "-7");
    EXPECT_EQ(record.AsUInt16("record_test_text", 3), 3) << "-7 is no such number";
    record.SetInt32('rtTx', 700);
    EXPECT_EQ(record.AsUInt16("record_test_text", 3), 700);
    EXPECT_EQ(record.AsUInt16('rtTx', 3), 700);
}

TEST(zRecord, ANullTextRemovesTheVariable) {
    zRecord record;
    record.SetCString('rtTx', "here");
    record.SetCString('rtTx', nullptr);
    EXPECT_FALSE(record.ExistsID('rtTx'));
    record.SetCString("record_test_null", "here");
    record.SetCString("record_test_null", nullptr);
    record.SetCString("record_test_never", nullptr);
    EXPECT_TRUE(record.IsEmpty());
}

TEST(zRecord, ANullKeyReachesNothing) {
    zRecord record;
    const char* const none = nullptr;
    record.SetInt32(none, 1);
    record.SetBool(none, true);
    record.SetCString(none, "x");
    record.SetString(none, "x");
    record.RemoveKey(none);
    EXPECT_TRUE(record.IsEmpty());
    EXPECT_EQ(record.AsInt32(none, 5), 5);
    EXPECT_FALSE(record.ExistsKey(none));
}

TEST(zRecord, AKeyWithoutAnIdWorks) {
    zRecord record;
    record.SetUInt32("record_test_free_key", 5);
    record.SetUInt32("record_test_other_key", 6);
    EXPECT_EQ(record.AsUInt32("record_test_free_key", 0), 5u);
    EXPECT_EQ(record.AsUInt32("record_test_other_key", 0), 6u);
    record.RemoveKey("record_test_free_key");
    EXPECT_FALSE(record.ExistsKey("record_test_free_key"));
    EXPECT_EQ(record.VariableCount(), 1u);
}

TEST(zRecord, IdAndKeyOfALatePairReachOneVariable) {
    zRecord early;
    early.SetInt32("record_test_late", 1);
    zStringID::Default().Add('rtLa', "record_test_late", false);

    EXPECT_EQ(early.AsInt32('rtLa', 0), 1);
    EXPECT_EQ(early.AsInt32("record_test_late", 0), 1);
    early.SetInt32('rtLa', 2);
    EXPECT_EQ(early.AsInt32("record_test_late", 0), 2);
    early.SetInt32("record_test_late", 3);
    EXPECT_EQ(early.AsInt32('rtLa', 0), 3);
    EXPECT_EQ(early.VariableCount(), 1u);

    zRecord late;
    late.SetInt32("record_test_late", 4);
    EXPECT_EQ(ids_of(late), std::vector<unsigned long long>{'rtLa'});
    late = early;
    EXPECT_EQ(late.AsInt32('rtLa', 0), 3);
    late.RemoveID('rtLa');
    EXPECT_TRUE(late.IsEmpty());
}

TEST(zRecord, AVariableOfALateNameLandsInTheMember) {
    zRecord plain;
    plain.SetInt32("record_test_late_width", 1280);
    zStringID::Default().Add('rtWi', "record_test_late_width", false);
    Format format(plain);
    EXPECT_EQ(format.fWidth.AsInt32(0), 1280);
    EXPECT_EQ(format.fWidth.ID(), static_cast<unsigned long long>('rtWi'));
    EXPECT_EQ(format.VariableCount(), 1u);
}

TEST(zRecord, AMemberWhoseNameCameLateTakesWhatWasSetBefore) {
    struct Late : zRecord {
        Late() {
            zVariable* members[] = {&fValue};
            RegisterVariables('rtLM', members, 1);
        }
        zVariable fValue{'rtLM'};
    };
    constexpr const char* kKey = "record_test_late_member";
    Late read, written, removed, direct;
    zRecord plain;
    for (zRecord* record : std::initializer_list<zRecord*>{&read, &written, &removed, &direct})
        record->SetCString(kKey, "early");
    plain.SetCString(kKey, "early");
    plain.SetInt32('rtLM', 2);
    zStringID::Default().Add('rtLM', kKey, false);

    EXPECT_EQ(read.AsString('rtLM', ""), "early");
    EXPECT_EQ(read.AsString(kKey, ""), "early");
    EXPECT_TRUE(read.ExistsID('rtLM'));
    Late copy;
    copy.Copy(read, true, true, {});
    EXPECT_EQ(copy.AsString('rtLM', ""), "early");

    written.SetInt32('rtLM', 5);
    EXPECT_EQ(written.fValue.AsInt32(0), 5);
    EXPECT_EQ(written.AsInt32(kKey, 0), 5);
    EXPECT_EQ(written.VariableCount(), 1u);

    removed.RemoveKey(kKey);
    EXPECT_TRUE(removed.IsEmpty());
    EXPECT_FALSE(removed.ExistsKey(kKey));

    // What the owner of the member sets counts, and stands there once.
    direct.fValue.SetInt32(7);
    for (zRecord* record : std::initializer_list<zRecord*>{&direct, &plain}) {
        EXPECT_EQ(record->AsInt32(kKey, 0), record == &plain ? 2 : 7);
        EXPECT_EQ(ids_of(*record), std::vector<unsigned long long>{'rtLM'});
        EXPECT_EQ(record->VariableCount(), 1u);
        Late other;
        other.Copy(*record, true, true, {});
        EXPECT_EQ(other.AsInt32('rtLM', 0), record == &plain ? 2 : 7);
        record->RemoveID('rtLM');
        EXPECT_TRUE(record->IsEmpty());
        EXPECT_FALSE(record->ExistsKey(kKey));
    }
}

TEST(zRecord, KeepsTheOrderOfFirstSetting) {
    zRecord record;
    record.SetInt32('zzzz', 1);
    record.SetInt32('aaaa', 2);
    record.SetCString('mmmm', "3");
    record.SetDouble('zzzz', 4);  // no longer an int32, still the first
    EXPECT_EQ(ids_of(record), (std::vector<unsigned long long>{'zzzz', 'aaaa', 'mmmm'}));
    record.RemoveID('aaaa');
    record.SetInt32('aaaa', 5);
    EXPECT_EQ(ids_of(record), (std::vector<unsigned long long>{'zzzz', 'mmmm', 'aaaa'}));
    EXPECT_EQ(ids_of(zRecord(record)), ids_of(record));
}

TEST(zRecord, ReplacesTheKind) {
    zRecord record;
    record.SetCString('kind', "text");
    record.SetBool('kind', true);
    EXPECT_EQ(record.FindVariable('kind')->Kind(), ZV_BOOL);
    record.SetUInt64('kind', 5);
    EXPECT_EQ(record.FindVariable('kind')->Kind(), ZV_UINT64);
    record.SetCString('kind', "text again");
    EXPECT_EQ(record.FindVariable('kind')->Kind(), ZV_STRING);
}

TEST(zRecord, FindsEachOfManyWhateverTheirHashes) {
    zRecord record;
    constexpr unsigned long long kCount = 1500;  // many more than there are hash bytes
    for (unsigned long long id = 0; id < kCount; ++id) {
        record.SetUInt64(id * 0x100000001ull, id);
    }
    EXPECT_EQ(record.VariableCount(), kCount);
    for (unsigned long long id = 0; id < kCount; ++id) {
        ASSERT_EQ(record.AsUInt64(id * 0x100000001ull, kCount), id);
    }
    EXPECT_EQ(record.AsUInt64(kCount * 0x100000001ull, 7), 7u);
    for (unsigned long long id = 0; id < kCount; id += 2) record.RemoveID(id * 0x100000001ull);
    for (unsigned long long id = 0; id < kCount; ++id) {
        ASSERT_EQ(record.AsUInt64(id * 0x100000001ull, kCount), id % 2 ? id : kCount);
    }
}

TEST(zRecord, ATextStaysWhereItIsWhileOthersComeAndGo) {
    zRecord source;
    source.SetCString('text', "stays");
    source.SetCString('gone', "goes");
    zRecord record(source);
    const char* text = record.AsCString('text', nullptr);
    for (int i = 0; i < 200; ++i) record.SetInt32(1000 + i, i);
    record.SetCString('more', "another text");
    record.RemoveID('gone');
    EXPECT_EQ(record.AsCString('text', nullptr), text);
    EXPECT_STREQ(text, "stays");
    EXPECT_NE(source.AsCString('text', nullptr), text);
}

TEST(zRecord, ATextMayComeFromTheRecordItself) {
    zRecord record;
    record.SetCString('text', "one two");
    record.SetCString('copy', record.AsCString('text', nullptr));
    record.SetCString('text', record.AsCString('text', nullptr) + 4);
    EXPECT_STREQ(record.AsCString('copy', nullptr), "one two");
    EXPECT_STREQ(record.AsCString('text', nullptr), "two");
}

TEST(zRecord, CopiesDeeply) {
    zRecord source;
    source.SetInt32('mwid', 1920);
    source.SetCString('mcon', "x264");
    source.AddChild(tagged("track"), 0x7FFFFFFF);
    source.Child(0)->AddChild(tagged("below"), 0x7FFFFFFF);
    source.AddChild(nullptr, 0x7FFFFFFF);
    zRecord copy(source);
    EXPECT_TRUE(Same(copy, source));
    EXPECT_NE(copy.Child(0), source.Child(0));
    source.SetInt32('mwid', 1);
    source.SetCString('mcon', "ProRes");
    source.Child(0)->SetCString('xTag', "changed");
    EXPECT_EQ(copy.AsInt32('mwid', 0), 1920);
    EXPECT_STREQ(copy.AsCString('mcon', nullptr), "x264");
    EXPECT_STREQ(copy.Child(0)->AsCString('xTag', nullptr), "track");
    EXPECT_STREQ(copy.Child(0)->Child(0)->AsCString('xTag', nullptr), "below");
}

TEST(zRecord, WhatTheSourceLacksIsUnset) {
    zRecord source;
    source.SetInt32('both', 1);
    zRecord target;
    target.SetInt32('both', 2);
    target.SetCString('only', "here");
    target.AddChild(new zRecord, 0x7FFFFFFF);
    target = source;
    EXPECT_TRUE(Same(target, source));
    target = zRecord();
    EXPECT_TRUE(target.IsEmpty());

    Format format;
    format.fWidth = 1920;
    format.fName.SetCString("HD");
    format.SetInt32('only', 5);
    format.Copy(source, true, true, {});
    EXPECT_FALSE(format.fWidth.IsSet());
    EXPECT_FALSE(format.fName.IsSet());
    EXPECT_TRUE(Same(format, source));
    format.fWidth = 1920;
    format = Format();
    EXPECT_TRUE(format.IsEmpty());
}

TEST(zRecord, CopiesOverAnEarlierCopy) {
    records::Random random(5);
    zRecord target;
    for (int round = 0; round < 300; ++round) {
        zRecord source;
        records::FillRandom(source, random, 2);
        target = source;
        ASSERT_TRUE(Same(target, source));
        target.SetCString('more', "set after the copy");
        records::SetRandom(target, random() % 50, random);
    }
}

TEST(zRecord, CopiesOnlyVariablesOrOnlyChildren) {
    zRecord source;
    source.SetInt32('vari', 1);
    source.AddChild(tagged("child"), 0x7FFFFFFF);
    zRecord variables;
    variables.AddChild(tagged("own"), 0x7FFFFFFF);
    variables.Copy(source, true, false, {});
    EXPECT_EQ(variables.AsInt32('vari', 0), 1);
    EXPECT_STREQ(variables.Child(0)->AsCString('xTag', nullptr), "own");
    zRecord children;
    children.SetInt32('vari', 2);
    children.Copy(source, false, true, {});
    EXPECT_EQ(children.AsInt32('vari', 0), 2);
    EXPECT_STREQ(children.Child(0)->AsCString('xTag', nullptr), "child");
}

TEST(zRecord, MakesChildrenByTheFactory) {
    zRecord source;
    source.AddChild(tagged("track"), 0x7FFFFFFF);
    source.Child(0)->SetInt32('rtWi', 720);
    source.Child(0)->AddChild(tagged("below"), 0x7FFFFFFF);
    zRecord copy;
    copy.Copy(source, true, true, [] { return new Format; });
    auto* child = dynamic_cast<Format*>(copy.Child(0));
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->fWidth.AsInt32(0), 720);
    EXPECT_NE(dynamic_cast<Format*>(child->Child(0)), nullptr);
    EXPECT_TRUE(Same(copy, source));
    copy.Copy(source, true, true, [] { return static_cast<zRecord*>(nullptr); });
    EXPECT_TRUE(Same(copy, source)) << "plain records where the factory makes none";
}

TEST(zRecord, CopiesItselfItsChildAndItsParent) {
    zRecord record;
    record.SetCString('name', "root");
    record.AddChild(tagged("child"), 0x7FFFFFFF);
    record.Child(0)->AddChild(tagged("grandchild"), 0x7FFFFFFF);
    const zRecord before(record);
    record = *&record;
    EXPECT_TRUE(Same(record, before));

    *record.Child(0) = record;  // the parent into its child
    EXPECT_TRUE(Same(*record.Child(0), before));
    EXPECT_STREQ(record.AsCString('name', nullptr), "root");

    record = *record.Child(0)->Child(0);  // a grandchild into the root, which drops it
    EXPECT_TRUE(Same(record, *before.Child(0)));
}

TEST(zRecord, TakesFromAnother) {
    zRecord source;
    source.SetCString('text', "moved");
    source.AddChild(tagged("child"), 0x7FFFFFFF);
    const zRecord before(source);
    zRecord* child = source.Child(0);
    zRecord target;
    target.SetInt32('old ', 1);
    target.AddChild(tagged("old"), 0x7FFFFFFF);
    target.TakeFrom(source);
    EXPECT_TRUE(Same(target, before));
    EXPECT_EQ(target.Child(0), child);
    EXPECT_TRUE(source.IsEmpty());
    target.TakeFrom(*target.Child(0));
    EXPECT_TRUE(Same(target, *before.Child(0)));
    target.TakeFrom(*&target);
    EXPECT_TRUE(Same(target, *before.Child(0)));

    Format format;
    target.SetInt32('rtHe', 1080);
    format.TakeFrom(target);
    EXPECT_EQ(format.fHeight.AsInt32(0), 1080);
    EXPECT_TRUE(target.IsEmpty());
}

TEST(zRecord, RegisteredMembersAreReachedByIdAndByKey) {
    zStringID::Default().Add('rtHe', "record_test_height", false);
    Format format;
    EXPECT_TRUE(format.IsEmpty());
    EXPECT_TRUE(format.fHeight.IsPlaced());
    EXPECT_FALSE(format.ExistsID('rtHe'));
    format.fHeight = 1080;
    EXPECT_EQ(format.AsInt32('rtHe', 0), 1080);
    EXPECT_EQ(format.AsInt32("record_test_height", 0), 1080);
    format.SetInt32("record_test_height", 720);
    EXPECT_EQ(format.fHeight.AsInt32(0), 720);
    format.SetCString('rtHe', "540");
    EXPECT_EQ(format.fHeight.AsInt32(0), 540) << "a text that spells a number";
    EXPECT_EQ(format.fHeight.Kind(), ZV_STRING);
    format.fHeight = 480;
    EXPECT_EQ(format.fHeight.Kind(), ZV_INT32);
    EXPECT_EQ(format.VariableCount(), 1u);
    format.SetInt32('free', 1);
    format.fWidth = 640;
    EXPECT_EQ(ids_of(format), (std::vector<unsigned long long>{'rtWi', 'rtHe', 'free'}));
    format.RemoveID('rtHe');
    EXPECT_FALSE(format.fHeight.IsSet());
    EXPECT_TRUE(format.fHeight.IsPlaced());
    format.RemoveID('free');
    format.fWidth.Unset();
    EXPECT_TRUE(format.IsEmpty());
}

TEST(zRecord, CopiesBetweenPlainAndRegistered) {
    zRecord plain;
    plain.SetInt32('free', 1);
    plain.SetInt32('rtWi', 1920);
    plain.SetCString('rtNa', "HD");
    Format format(plain);
    EXPECT_EQ(format.fWidth.AsInt32(0), 1920);
    EXPECT_EQ(format.fName.Text(), "HD");
    EXPECT_TRUE(Same(format, plain));
    const Format copy(format);
    EXPECT_TRUE(Same(copy, plain));
    EXPECT_NE(static_cast<const void*>(copy.fName.Text().data()), format.fName.Text().data());
    const zRecord back(format);
    EXPECT_TRUE(Same(back, plain));
}

// Another class, and one whose members stand elsewhere, registered in turns.
TEST(zRecord, EachClassReachesItsOwnMembers) {
    struct Other : zRecord {
        Other() {
            zVariable* members[] = {&fB, &fA};
            RegisterVariables('rtFo', members, 2);  // the id of Format, by mistake
        }
        char fGap[40] = {};
        zVariable fA{'rtWi'};
        zVariable fB{'rtHe'};
    };
    for (int round = 0; round < 3; ++round) {
        Format format;
        Other other;
        format.SetInt32('rtWi', 1);
        other.SetInt32('rtWi', 2);
        other.SetInt32('rtNa', 3);
        EXPECT_EQ(format.fWidth.AsInt32(0), 1);
        EXPECT_EQ(other.fA.AsInt32(0), 2);
        format.Copy(other, true, true, {});
        EXPECT_EQ(format.fWidth.AsInt32(0), 2);
        EXPECT_EQ(format.fName.AsInt32(0), 3);
    }
}

TEST(zRecord, ClassesRegisterFromManyThreads) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 500; ++i) {
                Format format;
                format.SetInt32('rtHe', thread);
                if (format.fHeight.AsInt32(-1) != thread) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(zRecord, AnnouncesChangesBeforeTheyHappen) {
    Watched record;
    record.SetInt32('mwid', 1);
    record.SetInt32('mwid', 2);
    record.SetCString('mwid', nullptr);
    record.RemoveID('mwid');  // nothing there, nothing to tell
    record.SetCString("record_test_watched", "new");
    const unsigned long long made = zStringID::Default().Find("record_test_watched");
    using Call = std::tuple<unsigned long long, bool, bool, bool>;
    EXPECT_EQ(record.fCalls, (std::vector<Call>{{'mwid', true, false, false},
                                                {'mwid', false, false, true},
                                                {'mwid', false, true, true},
                                                {made, true, false, false}}));
}

TEST(zRecord, ACopyIsAnnouncedOnce) {
    Watched record;
    zRecord source;
    source.SetInt32('mwid', 1);
    source.SetInt32('mhei', 2);
    record.Copy(source, true, true, {});
    ASSERT_EQ(record.fCalls.size(), 1u);
    EXPECT_EQ(std::get<0>(record.fCalls[0]), 0u);
}

TEST(zRecord, KeepsChildrenInOrder) {
    zRecord record;
    zRecord* second = tagged("second");
    zRecord* last = tagged("last");
    zRecord* first = tagged("first");
    record.AddChild(second, 0x7FFFFFFF);
    record.AddChild(last, -1);
    record.AddChild(first, 0);
    record.AddChild(tagged("middle"), 2);
    EXPECT_EQ(record.ChildCount(), 4u);
    EXPECT_TRUE(record.HasChildren());
    EXPECT_FALSE(record.IsEmpty());
    std::string walked;
    for (const zRecord* child : record.Children()) walked += child->AsString('xTag', "") + " ";
    EXPECT_EQ(walked, "first second middle last ");
    EXPECT_EQ(record.Child(1), second);
    EXPECT_EQ(record.Child(4), nullptr);
    EXPECT_EQ(record.Child(0xFFFFFFFF), nullptr);

    const std::unique_ptr<zRecord> owned(second);
    record.RemoveChildPtr(second);
    record.RemoveChildPtr(second);
    record.RemoveChildPtr(&record);
    EXPECT_EQ(record.ChildCount(), 3u);
    EXPECT_STREQ(second->AsCString('xTag', nullptr), "second");
}

TEST(zRecord, AWalkEndsAtFalse) {
    zRecord record;
    for (int i = 0; i < 5; ++i) {
        auto* child = new zRecord;
        child->SetInt32('indx', i);
        record.AddChild(child, 0x7FFFFFFF);
    }
    record.AddChild(nullptr, 1);
    int seen = 0;
    record.ForEachChild([&](zRecord* child) {
        EXPECT_EQ(child->AsInt32('indx', -1), seen);
        ++seen;
        return seen < 3;
    });
    EXPECT_EQ(seen, 3);
    seen = 0;
    record.ForEachChild([&](zRecord*) {
        if (seen++ == 0) record.AddChild(new zRecord, 0x7FFFFFFF);
        return true;
    });
    EXPECT_EQ(seen, 6) << "with the one that was added on the way, without the null";
}

TEST(zRecord, FindsAChildByText) {
    zRecord record;
    record.AddChild(nullptr, 0x7FFFFFFF);
    record.AddChild(tagged("formats"), 0x7FFFFFFF);
    zRecord* segments = tagged("segments");
    zRecord* deep = tagged("segments");
    record.Child(1)->AddChild(deep, 0x7FFFFFFF);
    record.AddChild(segments, 0x7FFFFFFF);
    const auto find = [&](const char* value, bool all, unsigned int depth, z_match_method method) {
        return record.FindChildByStrVariable('xTag', value, all, depth, method);
    };
    constexpr unsigned int kAny = 0xFFFFFFFF;
    EXPECT_EQ(find("segments", true, kAny, Z_MATCH_EXACT), deep) << "a child's child comes first";
    EXPECT_EQ(find("segments", false, kAny, Z_MATCH_EXACT), segments);
    EXPECT_EQ(find("segments", true, 1, Z_MATCH_EXACT), segments);
    EXPECT_EQ(find("segments", true, 0, Z_MATCH_EXACT), nullptr);
    EXPECT_EQ(find("Segments", true, kAny, Z_MATCH_EXACT), nullptr);
    EXPECT_EQ(find("seg", true, kAny, Z_MATCH_EXACT), nullptr);
    EXPECT_EQ(find("SEGMENTS", false, kAny, Z_MATCH_EXACT_NO_CASE), segments);
    EXPECT_EQ(find("seg", false, kAny, Z_MATCH_PREFIX), segments);
    EXPECT_EQ(find("mats", true, kAny, Z_MATCH_SUFFIX), record.Child(1));
    EXPECT_EQ(find("rma", true, kAny, Z_MATCH_CONTAINS), record.Child(1));
    EXPECT_EQ(find("ents", false, kAny, Z_MATCH_PREFIX), nullptr);
    EXPECT_EQ(find(nullptr, true, kAny, Z_MATCH_EXACT), nullptr);
    record.Child(1)->SetInt32('xTag', 5);
    EXPECT_EQ(find("5", true, kAny, Z_MATCH_EXACT), nullptr) << "a number is no string";
    EXPECT_EQ(static_cast<int>(Z_MATCH_EXACT), 3);
}

/// Keeps what is traced.
class Kept : public zTraceManager {
public:
    Kept() : fBefore(SetDefault(this)) {}
    ~Kept() override { SetDefault(fBefore); }
    void TraceMessage(int level, const std::string& text) override {
        EXPECT_EQ(level, 'note');
        fText += text;
    }
    std::string fText;

private:
    zTraceManager* fBefore;
};

TEST(zRecord, PrintsToTheTrace) {
    zStringID::Default().Add('rtPr', "record_test_printed", false);
    Kept trace;
    zRecord record;
    record.SetCString('xTag', "movie");
    record.SetInt32('rtPr', 5);
    record.SetCString('abcd', "two\nlines \"quoted\" {}");
    record.SetBool(0x123456789aull, true);
    record.AddChild(new zRecord, 0x7FFFFFFF);
    record.AddChild(nullptr, 0x7FFFFFFF);
    record.Child(0)->SetDouble('mfps', 29.97);
    record.Print(0, 0);
    EXPECT_EQ(trace.fText,
              "movie {\n"
              "    record_test_printed = 5 (int32)\n"
              "    'abcd' = \"two\\x0alines \\\"quoted\\\" {}\"\n"
              "    0x123456789a = 1 (bool)\n"
              "    record {\n"
              "        'mfps' = 29.97 (double)\n"
              "    }\n"
              "}\n");
    zRecord forged;
    forged.SetCString('xTag', "a\nb");
    forged.SetInt32("forged\n\\x0a\x7f", 1);
    EXPECT_EQ(forged.Description(0), "a\\x0ab {\n    forged\\x0a\\\\x0a\\x7f = 1 (int32)\n}\n");
    zTraceManager* const kept = zTraceManager::SetDefault(nullptr);
    record.Print(0, 0);  // tracing is off: nothing happens
    zTraceManager::SetDefault(kept);
}

}  // namespace
