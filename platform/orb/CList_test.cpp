#include "orb/CList.h"

#include <gtest/gtest.h>
#include <vector>

#include "orb/CValueList.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

/// A list whose count says more than its chain holds.
class BrokenList : public CList<Counted> {
public:
    BrokenList() { fCount = 2; }
};

TEST(CList, HoldsElementsInOrder) {
    RObject<CList<Counted>> list(new CList<Counted>());
    EXPECT_TRUE(list->IsType('li<>'));
    for (int i = 0; i < 3; ++i) {
        RObject<Counted> element(new Counted(i));
        EXPECT_EQ(0, list->Add(element.Get()));
    }
    EXPECT_EQ(3, list->GetCount());
    EXPECT_EQ(3, Counted::gLiving);
    for (int i = 0; i < 3; ++i) {
        RObject<Counted> element;
        EXPECT_EQ(0, list->Get(i, element.Receive()));
        EXPECT_EQ(i, element->GetNumber());
    }
    list.Clear();
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(CList, GetTellsWhatIsWrong) {
    RObject<CList<Counted>> list(new CList<Counted>());
    RObject<Counted> element(new Counted(1));
    list->Add(element.Get());
    list->Add(nullptr);
    Counted* got = element.Get();
    EXPECT_EQ(ResultArgumentOutOfRange::kCode, list->Get(-1, got));
    EXPECT_EQ(nullptr, got);
    EXPECT_EQ(ResultArgumentOutOfRange::kCode, list->Get(2, got));
    EXPECT_EQ(0, list->Get(1, got));
    EXPECT_EQ(nullptr, got);
    RObject<BrokenList> broken(new BrokenList);
    EXPECT_EQ(ResultNullPointer::kCode, broken->Get(1, got));
}

TEST(CList, ClearReleasesElementsAndTellsTheTracker) {
    const long long before = CLeaks::GetCount();
    RObject<CList<Counted>> list(new CList<Counted>());
    for (int i = 0; i < 5; ++i) {
        RObject<Counted> element(new Counted(i));
        list->Add(element.Get());
    }
    EXPECT_EQ(before + 5, CLeaks::GetCount());
    list->Clear();
    EXPECT_EQ(before, CLeaks::GetCount());
    EXPECT_EQ(0, list->GetCount());
    EXPECT_EQ(nullptr, list->GetFirst());
    EXPECT_EQ(0, Counted::gLiving);
    RObject<Counted> again(new Counted(9));
    list->Add(again.Get());
    EXPECT_EQ(1, list->GetCount());
}

TEST(CList, EnumeratorWalksAndKeepsTheListAlive) {
    RObject<CEnumerator<Counted>> walk;
    {
        RObject<CList<Counted>> list(new CList<Counted>());
        for (int i = 0; i < 2; ++i) {
            RObject<Counted> element(new Counted(i));
            list->Add(element.Get());
        }
        walk = list->GetEnumerator();
    }
    RObject<Counted> element;
    EXPECT_EQ(ResultNullPointer::kCode, walk->GetCurrent(element.Receive()));
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(walk->MoveNext());
            EXPECT_EQ(0, walk->GetCurrent(element.Receive()));
            EXPECT_EQ(i, element->GetNumber());
            element = walk->GetCurrent();
            EXPECT_EQ(i, element->GetNumber());
        }
        EXPECT_FALSE(walk->MoveNext());
        EXPECT_FALSE(walk->MoveNext());
        EXPECT_EQ(nullptr, walk->GetCurrent());
        walk->Reset();
    }
    element.Clear();
    walk.Clear();
    EXPECT_EQ(0, Counted::gLiving);
}

TEST(CList, IteratorServesARangeLoop) {
    RObject<CList<Counted>> list(new CList<Counted>());
    for (int i = 0; i < 3; ++i) {
        RObject<Counted> element(new Counted(i));
        list->Add(element.Get());
    }
    std::vector<int> numbers;
    for (const RObject<Counted>& element : list->GetIterator()) {
        numbers.push_back(element->GetNumber());
    }
    EXPECT_EQ((std::vector<int>{0, 1, 2}), numbers);
    RObject<CList<Counted>> empty(new CList<Counted>());
    for (const RObject<Counted>& element : empty->GetIterator()) FAIL() << element->GetNumber();
}

TEST(CValueList, GivesValues) {
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>({'UYVY', 'NV12'}));
    list->AddValue('BGRA');
    EXPECT_EQ(3, list->GetCount());
    unsigned int value = 0;
    EXPECT_EQ(0, list->GetValue(2, value));
    EXPECT_EQ(static_cast<unsigned>('BGRA'), value);
    EXPECT_EQ(ResultArgumentOutOfRange::kCode, list->GetValue(3, value));
    EXPECT_EQ(static_cast<unsigned>('BGRA'), value);
    list->Add(nullptr);
    EXPECT_EQ(ResultNullPointer::kCode, list->GetValue(3, value));
    EXPECT_TRUE(list->HasValue('NV12'));
    EXPECT_FALSE(list->HasValue('I420'));
}

TEST(CValue, ComparesByValue) {
    RObject<CValue<unsigned int>> a(new CValue<unsigned int>(5));
    RObject<CValue<unsigned int>> b(new CValue<unsigned int>(5));
    RObject<CValue<unsigned int>> c(new CValue<unsigned int>(6));
    EXPECT_EQ(static_cast<unsigned>('vu<>'), a->GetType());
    EXPECT_TRUE(a->Equals(b.Get()));
    EXPECT_EQ(a->GetHashCode(), b->GetHashCode());
    EXPECT_FALSE(a->Equals(c.Get()));
    EXPECT_EQ(6u, c->GetValue());
}

}  // namespace
}  // namespace Quillon::Orb
