#include "SelectionTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

using namespace Vn;
using namespace SnTest;

// Long random runs of selection operations against a small model of what they should do.
namespace {

// One item of the model: a thing and, unless whole, its parts in order.
struct MItem {
    int key = 0;
    bool whole = true;
    std::vector<int> parts;
    bool operator==(MItem const&) const = default;
};

bool equalParts(MItem const& a, MItem const& b) {
    return a.whole == b.whole && (a.whole || a.parts == b.parts);
}

// Item algebra of the model; each works on a copy and says whether it changed.
bool modelUnion(MItem& t, MItem const& r) {
    if (r.whole)
        return false;
    if (t.whole) {
        t.whole = false;
        t.parts = r.parts;
        return true;
    }
    bool changed = false;
    for (int p : r.parts)
        if (std::find(t.parts.begin(), t.parts.end(), p) == t.parts.end()) {
            t.parts.push_back(p);
            changed = true;
        }
    return changed;
}
bool modelDifference(MItem& t, MItem const& r) {
    if (r.whole || t.whole)
        return false;
    bool changed = false;
    for (int p : r.parts) {
        auto it = std::find(t.parts.begin(), t.parts.end(), p);
        if (it != t.parts.end()) {
            t.parts.erase(it);
            changed = true;
        }
    }
    if (t.parts.empty())
        t.whole = true;
    return changed;
}
bool modelXor(MItem& t, MItem const& r) {
    if (r.whole)
        return false;
    if (t.whole) {
        t.whole = false;
        t.parts = r.parts;
        return true;
    }
    for (int p : r.parts) {
        auto it = std::find(t.parts.begin(), t.parts.end(), p);
        if (it == t.parts.end())
            t.parts.push_back(p);
        else
            t.parts.erase(it);
    }
    if (t.parts.empty())
        t.whole = true;
    return !r.parts.empty();
}
bool modelContains(MItem const& t, MItem const& r) {
    if (t.whole)
        return r.whole;
    if (r.whole)
        return true;
    if (r.parts.empty())
        return !t.parts.empty();
    return std::search(t.parts.begin(), t.parts.end(), r.parts.begin(), r.parts.end()) !=
           t.parts.end();
}

class Model {
public:
    std::vector<MItem> items;

    int find(int key) const {
        for (std::size_t i = 0; i < items.size(); ++i)
            if (items[i].key == key)
                return static_cast<int>(i);
        return -1;
    }
    int findExact(MItem const& m) const {
        int i = find(m.key);
        return i >= 0 && equalParts(items[i], m) ? i : -1;
    }
    template <class Op>
    bool change(int i, MItem const& r, Op op) {
        MItem c = items[i];
        if (!op(c, r))
            return false;
        items[i] = c;
        return true;
    }
    // Each returns whether the real operation must notify.
    bool append(MItem const& m) {
        int i = find(m.key);
        if (i < 0) {
            items.push_back(m);
            return true;
        }
        return !equalParts(items[i], m) && change(i, m, modelUnion);
    }
    bool remove(MItem const& m) {
        int i = find(m.key);
        if (i < 0)
            return false;
        if (m.whole) {
            items.erase(items.begin() + i);
            return true;
        }
        return change(i, m, modelDifference);
    }
    bool insert(std::optional<MItem> const& before, MItem const& m) {
        if (find(m.key) >= 0)
            return false;
        std::size_t pos = 0;
        if (before) {
            int b = findExact(*before);
            pos = b < 0 ? items.size() : static_cast<std::size_t>(b);
        }
        items.insert(items.begin() + static_cast<long>(pos), m);
        return true;
    }
    bool replace(MItem const& o, MItem const& n) {
        int i = findExact(o);
        if (i < 0)
            return false;
        int j = find(n.key);
        if (j >= 0 && j != i)
            return false;
        items[i] = n;
        return true;
    }
    bool setOp(std::vector<std::optional<MItem>> const& rhs, int kind) {
        bool changed = false;
        for (auto const& e : rhs) {
            if (!e)
                continue;
            int i = find(e->key);
            if (i < 0) {
                if (kind != 1) {
                    items.push_back(*e);
                    changed = true;
                }
            } else if (kind == 0) {
                changed |= !equalParts(items[i], *e) && change(i, *e, modelUnion);
            } else if (e->whole) {
                items.erase(items.begin() + i);
                changed = true;
            } else {
                changed |= change(i, *e, kind == 1 ? modelDifference : modelXor);
            }
        }
        return changed;
    }
    bool contains(std::vector<std::optional<MItem>> const& rhs) const {
        for (auto const& e : rhs) {
            if (!e)
                continue;
            int i = find(e->key);
            if (i < 0 || !modelContains(items[i], *e))
                return false;
        }
        return true;
    }
};

// Items that give no identity hash, and items whose hashes all collide: selections must find
// them as well as the plain ones.
class Unhashed final : public SnItemBasic<std::string> {
public:
    Unhashed(std::string const& s, RCShdPtr<SnParts> const& parts) : SnItemBasic(s, parts) {}
    SnItem* clone() const override { return new Unhashed(*this); }
    std::optional<std::size_t> getIdentityHash() const override { return std::nullopt; }
};

class Colliding final : public SnItemBasic<std::string> {
public:
    Colliding(std::string const& s, RCShdPtr<SnParts> const& parts) : SnItemBasic(s, parts) {}
    SnItem* clone() const override { return new Colliding(*this); }
    std::optional<std::size_t> getIdentityHash() const override { return 42; }
};

class Driver {
public:
    Driver(unsigned seed, int keys) : _rng(seed), _keys(keys) {}
    int keys() const { return _keys; }

    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(_rng); }

    MItem randomItem() {
        MItem m;
        m.key = pick(_keys);
        m.whole = pick(3) == 0;
        if (!m.whole) {
            int n = pick(4); // empty parts too
            for (int i = 0; i < n; ++i)
                m.parts.push_back(pick(4));
        }
        return m;
    }
    // Mostly items of the model itself, so that lookups find something.
    MItem probe(Model const& model) {
        if (!model.items.empty() && pick(2) == 0)
            return model
                .items[static_cast<std::size_t>(pick(static_cast<int>(model.items.size())))];
        return randomItem();
    }
    // A list with nulls and doubles, as create(List&) allows.
    std::vector<std::optional<MItem>> randomList(Model const& model) {
        std::vector<std::optional<MItem>> out;
        // Lists grow with the number of things, so that large selections stay large.
        int n = pick(_keys < 10 ? 5 : 16);
        for (int i = 0; i < n; ++i)
            out.push_back(pick(8) == 0 ? std::nullopt : std::optional<MItem>(probe(model)));
        return out;
    }

private:
    std::mt19937 _rng;
    int _keys;
};

// The key decides the item type, so that one key is always one thing.
Item toItem(MItem const& m) {
    RCShdPtr<SnParts> parts;
    if (!m.whole) {
        auto* p = new SnPartsBasic<int>();
        parts = RCShdPtr<SnParts>(p);
        for (int part : m.parts)
            p->append(part);
    }
    std::string const name = "k" + std::to_string(m.key);
    switch (m.key % 5) {
    case 0:
        return Item(new Unhashed(name, parts));
    case 1:
        return Item(new Colliding(name, parts));
    default:
        return Text::createItem(name, parts);
    }
}

RCShdPtr<SnSelection> toSelection(std::vector<std::optional<MItem>> const& list) {
    SnSelection::List items;
    for (auto const& e : list)
        items.push_back(e ? toItem(*e) : Item());
    return SnSelection::create(items);
}

MItem fromItem(SnItem const& item) {
    MItem m;
    m.key = std::stoi(dynamic_cast<SnItemBasic<std::string> const&>(item).get().substr(1));
    m.whole = !item.hasParts();
    if (!m.whole)
        m.parts = dynamic_cast<SnPartsBasic<int> const&>(*item.getParts()).getParts();
    return m;
}

std::vector<MItem> contentsOf(SnSelection const& s) {
    std::vector<MItem> out;
    for (auto const& item : s)
        out.push_back(fromItem(*item));
    return out;
}

void expectNoTwoEqual(SnSelection const& s) {
    for (auto a = s.begin(); a != s.end(); ++a)
        for (auto b = std::next(a); b != s.end(); ++b)
            ASSERT_FALSE((*a)->isEqualIgnoreParts(**b));
}

void run(unsigned seed, int steps, int keys) {
    SCOPED_TRACE(seed);
    Driver d(seed, keys);
    Model model;
    auto sel = SnSelection::create();
    Watcher w;
    sel->attachObserver(&w);

    for (int step = 0; step < steps; ++step) {
        SCOPED_TRACE(step);
        auto const before = model.items;
        int const notified = w.changes;
        bool expectNotify = false;
        int op = d.pick(12);
        // Large runs lean to unions while small, to spend their time above the index size.
        if (d.keys() > 10 && model.items.size() < 24 && d.pick(2))
            op = 7;
        switch (op) {
        case 0:
        case 1: {
            MItem m = d.randomItem();
            expectNotify = model.append(m);
            sel->append(toItem(m));
            break;
        }
        case 2: {
            MItem m = d.probe(model);
            expectNotify = model.remove(m);
            EXPECT_EQ(sel->remove(toItem(m)), expectNotify);
            break;
        }
        case 3: {
            std::optional<MItem> anchor;
            if (d.pick(3))
                anchor = d.probe(model);
            MItem m = d.randomItem();
            expectNotify = model.insert(anchor, m);
            sel->insert(anchor ? toItem(*anchor) : Item(), toItem(m));
            break;
        }
        case 4: {
            MItem o = d.probe(model), n = d.probe(model);
            if (d.pick(2))
                n.key = o.key;
            expectNotify = model.replace(o, n);
            EXPECT_EQ(sel->replace(toItem(o), toItem(n)), expectNotify);
            break;
        }
        case 5: {
            if (d.pick(4))
                break; // keep the selection from emptying too often
            expectNotify = !model.items.empty();
            model.items.clear();
            sel->clear();
            break;
        }
        case 6: {
            // A clean rhs: doubles would break the invariant by design.
            Model other;
            int n = d.pick(4);
            for (int i = 0; i < n; ++i)
                other.append(d.probe(model));
            auto rhs = SnSelection::create();
            for (auto const& m : other.items)
                rhs->append(toItem(m));
            model.items = other.items;
            expectNotify = true;
            sel->replaceAllItems(rhs);
            break;
        }
        case 7:
        case 8:
        case 9: {
            auto list = d.randomList(model);
            int kind = op - 7;
            expectNotify = model.setOp(list, kind);
            auto rhs = toSelection(list);
            if (kind == 0)
                sel->unionWith(rhs);
            else if (kind == 1)
                sel->differenceWith(rhs);
            else
                sel->xorWith(rhs);
            break;
        }
        case 10: {
            auto list = d.randomList(model);
            EXPECT_EQ(sel->contains(toSelection(list)), model.contains(list));
            MItem p = d.probe(model);
            EXPECT_EQ(sel->hasItem(toItem(p)), model.findExact(p) >= 0);
            EXPECT_EQ(sel->hasItemIgnoreParts(toItem(p)), model.find(p.key) >= 0);
            auto found = sel->findItemIgnoreParts(toItem(p));
            int i = model.find(p.key);
            ASSERT_EQ(found.isNull(), i < 0);
            if (i >= 0) {
                EXPECT_EQ(fromItem(*found), model.items[static_cast<std::size_t>(i)]);
            }
            break;
        }
        case 11: {
            auto snap = sel->snapshot();
            auto restored = snap->restore();
            EXPECT_TRUE(restored->isEqual(sel));
            for (auto a = restored->begin(), b = sel->begin(); a != restored->end(); ++a, ++b)
                EXPECT_NE(a->get(), b->get());
            restored->append(toItem(d.randomItem()));
            restored->clear();
            auto c = sel->clone();
            c->xorWith(toSelection(d.randomList(model)));
            c->append(toItem(d.randomItem()));
            break;
        }
        }
        ASSERT_EQ(contentsOf(*sel), model.items);
        ASSERT_EQ(w.changes - notified, expectNotify ? 1 : 0) << "operation " << op;
        // Whatever changed the contents must have told the observer.
        if (model.items != before) {
            ASSERT_EQ(w.changes - notified, 1) << "operation " << op;
        }
        expectNoTwoEqual(*sel);
    }
}
} // namespace

TEST(SnSelectionRandom, SmallSelectionsAgreeWithTheModel) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        run(seed, 3000, 6);
        if (::testing::Test::HasFatalFailure())
            return;
    }
}

// Large enough for the selections to index their items.
TEST(SnSelectionRandom, LargeSelectionsAgreeWithTheModel) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        run(seed, 4000, 60);
        if (::testing::Test::HasFatalFailure())
            return;
    }
}
