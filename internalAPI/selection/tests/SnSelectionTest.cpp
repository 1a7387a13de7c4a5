#include "ExBase.h"
#include "SelectionStarted.h"
#include "SelectionTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace Vn;
using namespace SnTest;

namespace {
// "name" or "name(1,2)" for each item, in order.
std::vector<std::string> contents(SnSelection const& s) {
    std::vector<std::string> out;
    for (auto const& item : s) {
        std::string t = Text::get(item);
        if (item->hasParts()) {
            t += "(";
            auto const& p = dynamic_cast<SnPartsBasic<int> const&>(*item->getParts());
            for (std::size_t i = 0; i < p.getParts().size(); ++i)
                t += (i ? "," : "") + std::to_string(p.getParts()[i]);
            t += ")";
        }
        out.push_back(t);
    }
    return out;
}

using V = std::vector<std::string>;

struct Watched : ::testing::Test {
    RCShdPtr<SnSelection> sel = SnSelection::create();
    Watcher w;
    void SetUp() override { sel->attachObserver(&w); }
};

// An item whose restored form names another thing than the original.
class Renamed : public SnItem {
public:
    Renamed(std::string name, std::string after) : SnItem(nullptr), _name(name), _after(after) {}
    SnItem* clone() const override { return new Renamed(*this); }
    bool isEqualIgnoreParts(SnItem const& rhs) const override {
        auto const* r = dynamic_cast<Renamed const*>(&rhs);
        return r && r->_name == _name;
    }

protected:
    RCShdPtr<SnItem> restore() const override {
        return RCShdPtr<SnItem>(new Renamed(_after, _after));
    }

private:
    std::string _name, _after;
};
} // namespace

TEST_F(Watched, AppendMergesPartsInPlaceAndTellsOnlyOfChanges) {
    sel->append(whole("a"));
    sel->append(narrowed("b", {1}));
    EXPECT_EQ(w.changes, 2);
    EXPECT_EQ(w.lastSender, sel.get());

    sel->append(narrowed("b", {1}));
    sel->append(whole("a"));
    sel->append(nullptr);
    // A whole item over a narrowed one changes nothing.
    sel->append(whole("b"));
    EXPECT_EQ(w.changes, 2);
    EXPECT_EQ(contents(*sel), (V{"a", "b(1)"}));

    auto listed = sel->getLast();
    sel->append(narrowed("b", {2}));
    sel->append(narrowed("a", {5}));
    EXPECT_EQ(w.changes, 4);
    EXPECT_EQ(contents(*sel), (V{"a(5)", "b(1,2)"}));
    // The item that was listed did not change under its holder.
    EXPECT_EQ(contents(*SnSelection::create(listed)), V{"b(1)"});
}

TEST_F(Watched, RemoveTakesPartsOrWholeItems) {
    sel->append(narrowed("a", {1, 2}));
    sel->append(narrowed("b", {1}));
    sel->append(whole("c"));
    int const before = w.changes;

    EXPECT_FALSE(sel->remove(whole("zz")));
    EXPECT_FALSE(sel->remove(nullptr));
    EXPECT_FALSE(sel->remove(narrowed("a", {7})));
    EXPECT_FALSE(sel->remove(narrowed("c", {1})));
    EXPECT_EQ(w.changes, before);

    EXPECT_TRUE(sel->remove(whole("a")));
    EXPECT_TRUE(sel->remove(narrowed("b", {1})));
    EXPECT_EQ(w.changes, before + 2);
    // The last part gone, a whole item stays.
    EXPECT_EQ(contents(*sel), (V{"b", "c"}));
}

TEST_F(Watched, InsertPlacesNewItemsOnlyAndAlwaysTells) {
    sel->append(narrowed("a", {1}));
    sel->append(whole("b"));
    w.changes = 0;

    sel->insert(nullptr, narrowed("a", {2}));
    sel->insert(whole("a"), nullptr);
    EXPECT_EQ(w.changes, 0);
    sel->insert(nullptr, whole("first"));
    sel->insert(whole("not listed"), whole("last"));
    sel->insert(whole("b"), whole("beforeB"));
    // "before" is looked up with its parts: a whole "a" is not the listed "a(1)".
    sel->insert(whole("a"), whole("x"));
    sel->insert(narrowed("a", {1}), whole("y"));
    EXPECT_EQ(w.changes, 5);
    EXPECT_EQ(contents(*sel), (V{"first", "y", "a(1)", "beforeB", "b", "last", "x"}));
}

TEST_F(Watched, ReplaceKeepsThePositionAndNeverMakesDoubles) {
    sel->append(whole("a"));
    sel->append(narrowed("b", {1}));
    sel->append(whole("c"));
    w.changes = 0;

    EXPECT_FALSE(sel->replace(whole("b"), whole("z")));
    EXPECT_FALSE(sel->replace(narrowed("b", {1}), whole("c")));
    EXPECT_FALSE(sel->replace(nullptr, whole("z")));
    EXPECT_FALSE(sel->replace(whole("a"), nullptr));
    EXPECT_EQ(w.changes, 0);

    EXPECT_TRUE(sel->replace(narrowed("b", {1}), narrowed("b", {4, 5})));
    EXPECT_TRUE(sel->replace(whole("a"), whole("z")));
    EXPECT_EQ(w.changes, 2);
    EXPECT_EQ(contents(*sel), (V{"z", "b(4,5)", "c"}));
}

TEST_F(Watched, ClearAndReplaceAllItems) {
    sel->clear();
    EXPECT_EQ(w.changes, 0);
    auto other = SnSelection::create(whole("x"));
    sel->replaceAllItems(other);
    sel->replaceAllItems(other);
    EXPECT_EQ(w.changes, 2);
    EXPECT_EQ(sel->getFirst().get(), other->getFirst().get());
    sel->replaceAllItems(sel);
    EXPECT_EQ(contents(*sel), V{"x"});
    sel->clear();
    EXPECT_EQ(w.changes, 4);
    EXPECT_TRUE(sel->isEmpty());

    try {
        sel->replaceAllItems(nullptr);
        FAIL();
    } catch (ExAssertionFailed const& e) {
        EXPECT_EQ(e.getReason(), "!items.isNull()");
    }
    for (auto op : {&SnSelection::unionWith, &SnSelection::differenceWith, &SnSelection::xorWith}) {
        try {
            ((*sel).*op)(nullptr);
            FAIL();
        } catch (ExAssertionFailed const& e) {
            EXPECT_EQ(e.getReason(), "!rhsItems.isNull()");
        }
    }
}

TEST_F(Watched, SetOperationsTellOnceAndSkipNulls) {
    sel->append(narrowed("a", {1, 2}));
    sel->append(whole("b"));
    w.changes = 0;

    SnSelection::List three{whole("c"), nullptr, whole("d"), whole("e")};
    sel->unionWith(SnSelection::create(three));
    EXPECT_EQ(w.changes, 1);
    sel->unionWith(SnSelection::create(whole("e")));
    sel->xorWith(SnSelection::create());
    sel->differenceWith(SnSelection::create(whole("nothing")));
    EXPECT_EQ(w.changes, 1);

    SnSelection::List diff{narrowed("a", {1}), whole("c"), narrowed("b", {1})};
    sel->differenceWith(SnSelection::create(diff));
    EXPECT_EQ(w.changes, 2);
    EXPECT_EQ(contents(*sel), (V{"a(2)", "b", "d", "e"}));

    SnSelection::List x{narrowed("a", {2, 3}), whole("b"), narrowed("d", {9}), whole("f")};
    sel->xorWith(SnSelection::create(x));
    EXPECT_EQ(w.changes, 3);
    EXPECT_EQ(contents(*sel), (V{"a(3)", "d(9)", "e", "f"}));

    SnSelection::List u{narrowed("a", {4}), whole("d")};
    sel->unionWith(SnSelection::create(u));
    EXPECT_EQ(contents(*sel), (V{"a(3,4)", "d(9)", "e", "f"}));

    // With itself: union changes nothing; difference and xor drop the whole items and leave
    // the narrowed ones whole.
    int const before = w.changes;
    sel->unionWith(sel);
    EXPECT_EQ(w.changes, before);
    auto copy = sel->clone();
    copy->differenceWith(copy);
    EXPECT_EQ(contents(*copy), (V{"a", "d"}));
    sel->xorWith(sel);
    EXPECT_EQ(contents(*sel), (V{"a", "d"}));
}

TEST_F(Watched, LookUpsAndContainment) {
    sel->append(narrowed("a", {1, 2, 3}));
    sel->append(whole("b"));

    EXPECT_TRUE(sel->contains(SnSelection::create()));
    EXPECT_TRUE(SnSelection::create()->contains(SnSelection::create()));
    EXPECT_TRUE(sel->contains(nullptr));
    SnSelection::List in{narrowed("a", {2, 3}), whole("b"), whole("a")};
    EXPECT_TRUE(sel->contains(SnSelection::create(in)));
    EXPECT_FALSE(sel->contains(SnSelection::create(narrowed("b", {1}))));
    EXPECT_FALSE(sel->contains(SnSelection::create(narrowed("a", {1, 3}))));
    EXPECT_FALSE(sel->contains(SnSelection::create(whole("c"))));

    EXPECT_TRUE(sel->hasItem(narrowed("a", {1, 2, 3})));
    EXPECT_FALSE(sel->hasItem(narrowed("a", {1})));
    EXPECT_TRUE(sel->hasItemIgnoreParts(narrowed("a", {9})));
    EXPECT_FALSE(sel->hasItemIgnoreParts(nullptr));
    EXPECT_EQ(sel->findItemIgnoreParts(whole("a")).get(), sel->getFirst().get());
    EXPECT_TRUE(sel->findItem(whole("a")).isNull());
    EXPECT_EQ(sel->findItem(whole("b")).get(), sel->getLast().get());

    EXPECT_TRUE(SnSelection::create()->getFirst().isNull());
    EXPECT_TRUE(SnSelection::create()->getLast().isNull());
    std::vector<std::string> backwards;
    for (auto it = sel->rbegin(); it != sel->rend(); ++it)
        backwards.push_back(Text::get(*it));
    EXPECT_EQ(backwards, (V{"b", "a"}));
    EXPECT_EQ(w.changes, 2);
}

TEST_F(Watched, ClonesAndFiltersHaveNoObservers) {
    sel->append(whole("a"));
    sel->append(narrowed("b", {1}));
    w.changes = 0;

    auto c = sel->clone();
    EXPECT_EQ(c->getFirst().get(), sel->getFirst().get());
    EXPECT_EQ(c->getNbObservers(), 0);
    c->append(whole("x"));
    c->clear();

    auto onlyB = sel->filter(SnSelection::Predicate::fromFunction(
        [](SnSelection::ItemPtr const& i) { return Text::get(i) == "b"; }));
    EXPECT_EQ(contents(*onlyB), V{"b(1)"});
    EXPECT_EQ(onlyB->getFirst().get(), sel->getLast().get());
    onlyB->clear();
    RCShdPtr<SnSelection const> constSel = sel;
    EXPECT_EQ(constSel->filter(SnSelection::Predicate::all())->getSize(), 2);
    EXPECT_EQ(w.changes, 0);
    EXPECT_EQ(sel->getSize(), 2);
}

TEST_F(Watched, EqualityKeepsOrder) {
    auto a = SnSelection::create();
    a->append(whole("a"));
    a->append(narrowed("b", {1}));
    auto b = SnSelection::create();
    b->append(whole("a"));
    b->append(narrowed("b", {1}));
    EXPECT_TRUE(a->isEqual(b));
    b->append(narrowed("b", {2}));
    EXPECT_FALSE(a->isEqual(b));
    SnSelection::List reversed{narrowed("b", {1}), whole("a")};
    EXPECT_FALSE(a->isEqual(SnSelection::create(reversed)));
    EXPECT_FALSE(a->isEqual(nullptr));
    SnSelection::List withNull{whole("a"), nullptr};
    EXPECT_FALSE(a->isEqual(SnSelection::create(withNull)));
}

TEST_F(Watched, SnapshotsRestoreIntoNewSelectionsAndLeaveTheSourceAlone) {
    sel->append(narrowed("a", {1}));
    sel->append(whole("b"));
    w.changes = 0;
    auto snap = sel->snapshot();
    EXPECT_EQ(snap->getSize(), 2);
    sel->remove(whole("b"));

    auto restored = snap->restore();
    EXPECT_EQ(contents(*restored), (V{"a(1)", "b"}));
    EXPECT_NE(restored->getFirst().get(), sel->getFirst().get());
    EXPECT_EQ(restored->getNbObservers(), 0);
    EXPECT_EQ(contents(*sel), V{"a(1)"});
    EXPECT_EQ(w.changes, 1);

    sel->replaceAllItems(restored);
    EXPECT_TRUE(sel->isEqual(restored));

    // Restored forms that name one thing are merged.
    auto renaming = SnSelection::create();
    renaming->append(RCShdPtr<SnItem const>(new Renamed("p", "same")));
    renaming->append(RCShdPtr<SnItem const>(new Renamed("q", "same")));
    EXPECT_EQ(renaming->getSize(), 2);
    EXPECT_EQ(renaming->snapshot()->restore()->getSize(), 1);
}

TEST(SnSelection, TheDestroyHintArrivesWhileItemsAreListed) {
    Watcher w;
    std::vector<std::string> seen;
    w.onDestroy = [&](SnSelection const& s) {
        for (auto const& item : s)
            seen.push_back(Text::get(item));
    };
    {
        auto sel = SnSelection::create();
        sel->append(whole("a"));
        sel->append(whole("b"));
        sel->attachObserver(&w);
    }
    EXPECT_EQ(w.destroys, 1);
    EXPECT_EQ(seen, (V{"a", "b"}));
}

TEST(SnSelection, CreateFromAListTakesItAsItIs) {
    SnSelection::List list{whole("a"), whole("a"), nullptr};
    auto s = SnSelection::create(list);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(s->getSize(), 3);
    EXPECT_EQ(SnSelection::create(nullptr)->getSize(), 0);

    std::ostringstream os;
    os << RCShdPtr<SnSelection const>(s);
    auto const text = os.str();
    EXPECT_EQ(text.rfind("item[0] = Item type: ", 0), 0u) << text;
    EXPECT_NE(text.find("item[1] = Item type: "), std::string::npos);
    EXPECT_NE(text.find("item[2] = (null)\n"), std::string::npos);
}

TEST(SnSelection, LargeSelectionsFindTheFirstOfDoublesAndTheirChangedItems) {
    SnSelection::List list;
    for (int i = 0; i < 40; ++i)
        list.push_back(whole("n" + std::to_string(i)));
    list.push_back(narrowed("n3", {1}));
    auto doubled = SnSelection::create(list);
    EXPECT_EQ(doubled->findItemIgnoreParts(whole("n3")).get(),
              std::next(doubled->begin(), 3)->get());
    EXPECT_TRUE(doubled->remove(whole("n3")));
    EXPECT_EQ(doubled->findItemIgnoreParts(whole("n3")).get(), doubled->getLast().get());
    EXPECT_TRUE(doubled->hasItem(narrowed("n3", {1})));

    auto big = SnSelection::create();
    for (int i = 0; i < 40; ++i)
        big->append(whole("n" + std::to_string(i)));
    big->append(narrowed("n5", {2}));
    big->remove(whole("n6"));
    big->replace(whole("n7"), narrowed("n77", {1}));
    EXPECT_TRUE(big->hasItem(narrowed("n5", {2})));
    EXPECT_FALSE(big->hasItemIgnoreParts(whole("n6")));
    EXPECT_FALSE(big->hasItemIgnoreParts(whole("n7")));
    EXPECT_EQ(contents(*big)[6], "n77(1)");
    // Containment reads rhs a run at a time: one lacking item tells wherever it lies.
    for (int at : {-1, 0, 15, 16, 17, big->getSize() - 1}) {
        SnSelection::List rhs(big->begin(), big->end());
        if (at >= 0)
            *std::next(rhs.begin(), at) = whole("absent");
        EXPECT_EQ(big->contains(SnSelection::create(rhs)), at < 0) << at;
    }
    auto copy = big->clone();
    copy->xorWith(big);
    EXPECT_EQ(contents(*copy), (V{"n5", "n77"}));
}
