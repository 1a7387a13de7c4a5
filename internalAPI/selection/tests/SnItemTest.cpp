#include "ExBase.h"
#include "SelectionStarted.h"
#include "SnIsItem.h"
#include "SnItemBasic.h"
#include "SnSelection.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace Vn;

namespace {
using Text = SnItemConvert<std::string>;
using SelPtr = SnItemConvert<RCShdPtr<SnSelection>>;

RCShdPtr<SnParts> ints(std::initializer_list<int> v) {
    return RCShdPtr<SnParts>(new SnPartsBasic<int>(v));
}
std::vector<int> partsOf(SnItem const& item) {
    auto p = item.getParts();
    return p ? dynamic_cast<SnPartsBasic<int> const&>(*p).getParts() : std::vector<int>{-1};
}
std::string dumped(SnItem const& item) {
    std::ostringstream os;
    os << item;
    return os.str();
}
} // namespace

TEST(SnItem, TakingTheLastPartAwayLeavesAWholeItem) {
    auto a = Text::createItem("node", ints({1}));
    EXPECT_TRUE(a->xorWith(*Text::createItem("node", ints({1}))));
    EXPECT_FALSE(a->hasParts());

    auto b = Text::createItem("node", ints({1}));
    EXPECT_TRUE(b->differenceWith(*Text::createItem("node", ints({1}))));
    EXPECT_FALSE(b->hasParts());
    // Nothing to take from a whole item.
    EXPECT_FALSE(b->differenceWith(*Text::createItem("node", ints({1}))));
    EXPECT_FALSE(b->differenceWith(*Text::createItem("node")));

    auto c = Text::createItem("node", ints({1, 2}));
    EXPECT_TRUE(c->differenceWith(*Text::createItem("node", ints({1, 5}))));
    EXPECT_EQ(partsOf(*c), std::vector<int>{2});
    EXPECT_FALSE(c->xorWith(*Text::createItem("node")));
}

TEST(SnItem, UnionAndXorNarrowAWholeItemWithACopyOfTheParts) {
    auto whole = Text::createItem("n");
    auto narrowed = Text::createItem("n", ints({3}));
    EXPECT_FALSE(narrowed->unionWith(*whole));
    EXPECT_TRUE(whole->unionWith(*narrowed));
    EXPECT_EQ(partsOf(*whole), std::vector<int>{3});
    EXPECT_NE(whole->getParts().get(), narrowed->getParts().get());

    auto whole2 = Text::createItem("n");
    EXPECT_TRUE(whole2->xorWith(*narrowed));
    EXPECT_EQ(partsOf(*whole2), std::vector<int>{3});
    EXPECT_NE(whole2->getParts().get(), narrowed->getParts().get());

    EXPECT_TRUE(narrowed->unionWith(*Text::createItem("n", ints({4, 3}))));
    EXPECT_EQ(partsOf(*narrowed), (std::vector<int>{3, 4}));
    // Another thing: no change.
    EXPECT_FALSE(narrowed->unionWith(*Text::createItem("m", ints({9}))));
    EXPECT_FALSE(narrowed->xorWith(*Text::createItem("m", ints({9}))));
    EXPECT_FALSE(narrowed->differenceWith(*Text::createItem("m", ints({3}))));
}

TEST(SnItem, AWholeItemDoesNotContainANarrowedOne) {
    auto whole = Text::createItem("n");
    auto narrowed = Text::createItem("n", ints({1, 2, 3}));
    EXPECT_FALSE(whole->contains(*narrowed));
    EXPECT_TRUE(narrowed->contains(*whole));
    EXPECT_TRUE(whole->contains(*Text::createItem("n")));
    EXPECT_TRUE(narrowed->contains(*Text::createItem("n", ints({2, 3}))));
    EXPECT_FALSE(narrowed->contains(*Text::createItem("n", ints({1, 3}))));
    EXPECT_FALSE(narrowed->contains(*Text::createItem("m")));
}

TEST(SnItem, EqualityWantsTheSameTypeThingAndParts) {
    auto a = Text::createItem("n", ints({1, 2}));
    EXPECT_TRUE(a->isEqual(*Text::createItem("n", ints({1, 2}))));
    EXPECT_FALSE(a->isEqual(*Text::createItem("n", ints({2, 1}))));
    EXPECT_FALSE(a->isEqual(*Text::createItem("n")));
    EXPECT_FALSE(Text::createItem("n")->isEqual(*a));
    EXPECT_TRUE(Text::createItem("n")->isEqual(*Text::createItem("n")));
    EXPECT_TRUE(a->isEqualIgnoreParts(*Text::createItem("n")));
    EXPECT_TRUE(a->hasEqualParts(*SelPtr::createItem(nullptr, ints({1, 2}))));
    EXPECT_FALSE(Text::createItem("n")->hasEqualParts(*a));

    auto s1 = SnSelection::create();
    auto s2 = SnSelection::create();
    EXPECT_TRUE(SelPtr::createItem(s1)->isEqualIgnoreParts(*SelPtr::createItem(s1)));
    EXPECT_FALSE(SelPtr::createItem(s1)->isEqualIgnoreParts(*SelPtr::createItem(s2)));
    // The same selection through a const pointer is another item type.
    auto constItem = SnItemConvert<RCShdPtr<SnSelection const>>::createItem(s1);
    EXPECT_FALSE(constItem->isEqualIgnoreParts(*SelPtr::createItem(s1)));
    EXPECT_FALSE(SelPtr::createItem(s1)->isEqual(*constItem));
}

TEST(SnItem, ClonesAndSnapshotsAreIndependent) {
    auto shared = ints({1, 2});
    auto a = Text::createItem("n", shared);
    EXPECT_EQ(a->getParts().get(), shared.get());

    RCShdPtr<SnItem> c(a->clone());
    c->xorWith(*Text::createItem("n", ints({1})));
    EXPECT_EQ(partsOf(*a), (std::vector<int>{1, 2}));
    EXPECT_EQ(partsOf(*c), std::vector<int>{2});

    auto snap = a->snapshot();
    a->getParts()->clear();
    auto r1 = snap->restore();
    auto r2 = snap->restore();
    EXPECT_NE(r1.get(), r2.get());
    EXPECT_EQ(partsOf(*r1), (std::vector<int>{1, 2}));
    r1->getParts()->clear();
    EXPECT_EQ(partsOf(*r2), (std::vector<int>{1, 2}));
    EXPECT_EQ(SnItem::Snapshot::create(a)->getItem().get(), a.get());
}

TEST(SnItem, DumpNamesTypePartsAndData) {
    auto text = dumped(*Text::createItem("abc", ints({1, 2})));
    EXPECT_EQ(text.rfind("Item type: Vn::SnItemBasic<std::", 0), 0u) << text;
    EXPECT_NE(text.find("\nParts:     ( 1 2 )\nData:      abc\n"), std::string::npos) << text;
    EXPECT_NE(dumped(*Text::createItem("x")).find("\nParts:     (none)\n"), std::string::npos);

    auto sel = SnSelection::create();
    auto ptr = dumped(*SelPtr::createItem(sel));
    std::ostringstream address;
    address << static_cast<void const*>(sel.get());
    EXPECT_NE(ptr.find("Data:      Pointee type = Vn::SnSelection, T type = "
                       "Vn::RCShdPtr<Vn::SnSelection>, ref: 2, pointer:" +
                       address.str() + ", RCBase pointer: "),
              std::string::npos)
        << ptr;
    EXPECT_NE(dumped(*SelPtr::createItem(nullptr)).find("Pointee type = null, "),
              std::string::npos);
}

TEST(SnItemConvert, GetGivesThePayloadAndRefusesOthers) {
    EXPECT_EQ(Text::get(Text::createItem("payload")), "payload");
    auto sel = SnSelection::create();
    EXPECT_EQ(SelPtr::get(SelPtr::createItem(sel)).get(), sel.get());
    EXPECT_THROW(Text::get(nullptr), ExNullPtr);
    EXPECT_THROW(Text::get(SelPtr::createItem(sel)), ExCastFailed);
}

TEST(SnItemConvert, PredicatesExistOnlyWhileThePackageRuns) {
    try {
        Text::getPredicate();
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "_pred != 0");
    }
    EXPECT_THROW(SelPtr::getPredicate(), ExAssertionFailed);
}

using SnItemPredicates = SelectionStarted;

TEST_F(SnItemPredicates, TellItemTypesAndNullPayloads) {
    auto isText = Text::getPredicate();
    auto isSel = SelPtr::getPredicate();
    auto isConstSel = SnItemConvert<RCShdPtr<SnSelection const>>::getPredicate();
    auto sel = SnSelection::create();
    SnSelection::ItemPtr const text = Text::createItem("t");
    SnSelection::ItemPtr const selItem = SelPtr::createItem(sel);
    SnSelection::ItemPtr const nullSel = SelPtr::createItem(nullptr);

    EXPECT_TRUE(isText(text));
    EXPECT_FALSE(isText(selItem));
    EXPECT_FALSE(isText(nullptr));
    EXPECT_TRUE(isSel(selItem));
    EXPECT_FALSE(isSel(nullSel));
    EXPECT_FALSE(isSel(text));
    EXPECT_FALSE(isConstSel(selItem));
    EXPECT_TRUE(SnIsItem<SnItemBasic<RCShdPtr<SnSelection>>>::test(nullSel));
}
