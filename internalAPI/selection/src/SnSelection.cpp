#include "SnSelection.h"

#include "ExBase.h"

#include <algorithm>
#include <bit>
#include <ostream>
#include <unordered_map>

namespace Vn {

SnSelectionHint::~SnSelectionHint() = default;
SnSelectionChangeHint::~SnSelectionChangeHint() = default;
SnSelectionDestroyHint::~SnSelectionDestroyHint() = default;

SnSelection::Snapshot::~Snapshot() = default;

RCShdPtr<SnSelection> SnSelection::Snapshot::restore() const {
    auto selection = SnSelection::create();
    // Nobody can watch the new selection yet, so its appends tell no one.
    selection->indexReserve(_items.size());
    for (auto const& s : _items)
        selection->appendQuietly(s->restore());
    return selection;
}

SnSelection::SnSelection() = default;

SnSelection::SnSelection(SnSelection const& o) : ObSubject<Sn>(), RCBase<int>(o), _items(o._items) {
    resetIndex(o._clean);
}

SnSelection::~SnSelection() {
    try {
        notify(ObHints(RCShdPtr<ObHint>(new SnSelectionDestroyHint(this))));
    } catch (ExBase const& e) {
        // A destructor cannot pass an observer's failure on.
        ExStdout::printAtomically("SnSelection: an observer failed on destruction: " +
                                  e.getDetailedReason());
    } catch (std::exception const& e) {
        ExStdout::printAtomically(std::string("SnSelection: an observer failed on destruction: ") +
                                  e.what());
    }
    _items.clear();
}

RCShdPtr<SnSelection> SnSelection::create() {
    return RCShdPtr<SnSelection>(new SnSelection());
}

RCShdPtr<SnSelection> SnSelection::create(ItemPtr const& item) {
    auto s = create();
    if (item)
        s->putItem(s->_items.end(), item);
    return s;
}

RCShdPtr<SnSelection> SnSelection::create(List& items) {
    auto s = create();
    s->_items.swap(items);
    s->resetIndex(s->holdsNoDoubles());
    return s;
}

void SnSelection::notifyChange() {
    notify(ObHints(RCShdPtr<ObHint>(new SnSelectionChangeHint(this))));
}

namespace {
static_assert(sizeof(std::size_t) == 8, "the index spreads 64-bit hashes");
constexpr std::size_t kSpread = 0x9e3779b97f4a7c15ULL;
constexpr std::size_t kSmallestTable = 32;

std::size_t tagOf(std::size_t hash) noexcept {
    return hash | 1u;
}
} // namespace

std::size_t SnSelection::slotOf(std::size_t tag) const noexcept {
    // The high bits of the product, so that pointer hashes with empty low bits spread too.
    return static_cast<std::size_t>((tag * kSpread) >> _indexShift);
}

template <class Match>
SnSelection::List::iterator SnSelection::findIndexed(std::size_t hash, Match matches) {
    std::size_t const tag = tagOf(hash);
    std::size_t const mask = _index.size() - 1;
    // The table is never full, so a free slot ends every probe.
    for (std::size_t i = slotOf(tag);; i = (i + 1) & mask) {
        Slot const& slot = _index[i];
        if (slot.tag == 0)
            return _items.end();
        if (slot.tag == tag && matches(**slot.it))
            return slot.it;
    }
}

namespace {
// The item of the list that `matches` accepts, by walking the list.
template <class List, class Match>
typename List::iterator walkMatching(List& items, Match matches) {
    for (auto it = items.begin(); it != items.end(); ++it)
        if (*it && matches(**it))
            return it;
    return items.end();
}
} // namespace

SnSelection::List::iterator SnSelection::lookUpIgnoreParts(SnItem const& item) {
    std::optional<std::size_t> hash;
    return lookUpIgnoreParts(item, hash);
}

SnSelection::List::iterator SnSelection::lookUpIgnoreParts(SnItem const& item,
                                                           std::optional<std::size_t>& hash) {
    auto matches = [&](SnItem const& other) {
        return item.isEqualIgnoreParts(other);
    };
    hash = _hasIndex ? item.getIdentityHash() : std::nullopt;
    if (hash)
        return findIndexed(*hash, matches);
    return walkMatching(_items, matches);
}

SnSelection::List::const_iterator SnSelection::lookUpIgnoreParts(SnItem const& item) const {
    return const_cast<SnSelection*>(this)->lookUpIgnoreParts(item);
}

SnSelection::List::iterator SnSelection::lookUpExact(SnItem const& item) {
    // Without doubles, the exact match is the one match ignoring parts.
    auto matches = [&](SnItem const& other) {
        return item.isEqual(other);
    };
    if (_hasIndex)
        if (auto hash = item.getIdentityHash())
            return findIndexed(*hash, matches);
    return walkMatching(_items, matches);
}

SnSelection::List::const_iterator SnSelection::lookUpExact(SnItem const& item) const {
    return const_cast<SnSelection*>(this)->lookUpExact(item);
}

template <class Op>
bool SnSelection::changeListed(List::iterator listed, Op op) {
    RCShdPtr<SnItem> changed((*listed)->clone());
    if (!op(*changed))
        return false;
    setItem(listed, changed);
    return true;
}

SnSelection::List::iterator SnSelection::putItem(List::const_iterator pos, ItemPtr const& item) {
    auto it = _items.insert(pos, item);
    if (_hasIndex)
        indexAdd(it);
    else
        buildIndexIfWorthIt();
    return it;
}

SnSelection::List::iterator SnSelection::putItem(List::const_iterator pos, ItemPtr const& item,
                                                 std::optional<std::size_t> hash) {
    if (!_hasIndex)
        return putItem(pos, item);
    auto it = _items.insert(pos, item);
    if (hash)
        indexAdd(it, *hash);
    return it;
}

void SnSelection::eraseItem(List::iterator it) {
    indexRemove(it);
    _items.erase(it);
}

void SnSelection::setItem(List::iterator it, ItemPtr const& item) {
    indexRemove(it);
    *it = item;
    indexAdd(it);
}

void SnSelection::indexAdd(List::iterator it) {
    if (!_hasIndex || !*it)
        return;
    if (auto hash = (*it)->getIdentityHash())
        indexAdd(it, *hash);
}

void SnSelection::indexAdd(List::iterator it, std::size_t hash) {
    indexReserve(_indexed + 1);
    std::size_t const tag = tagOf(hash);
    std::size_t const mask = _index.size() - 1;
    std::size_t i = slotOf(tag);
    while (_index[i].tag != 0)
        i = (i + 1) & mask;
    _index[i] = {tag, it};
    ++_indexed;
}

void SnSelection::indexRemove(List::iterator it) {
    if (!_hasIndex || !*it)
        return;
    auto hash = (*it)->getIdentityHash();
    if (!hash)
        return;
    std::size_t const mask = _index.size() - 1;
    std::size_t i = slotOf(tagOf(*hash));
    for (; _index[i].tag == 0 || _index[i].it != it; i = (i + 1) & mask)
        if (_index[i].tag == 0)
            return;
    // Close the gap: later slots of the run move back unless their home lies after the gap.
    for (std::size_t j = (i + 1) & mask; _index[j].tag != 0; j = (j + 1) & mask) {
        std::size_t const home = slotOf(_index[j].tag);
        bool const homeInGap = i <= j ? (i < home && home <= j) : (i < home || home <= j);
        if (!homeInGap) {
            _index[i] = _index[j];
            i = j;
        }
    }
    _index[i] = Slot();
    --_indexed;
}

void SnSelection::indexReserve(std::size_t n) {
    std::size_t capacity = std::max(kSmallestTable, _index.size());
    while (n * 4 > capacity * 3)
        capacity *= 2;
    if (capacity == _index.size())
        return;
    std::vector<Slot> old(capacity);
    old.swap(_index);
    _indexShift = 64 - static_cast<unsigned>(std::countr_zero(capacity));
    std::size_t const mask = capacity - 1;
    for (Slot const& slot : old) {
        if (slot.tag == 0)
            continue;
        std::size_t i = slotOf(slot.tag);
        while (_index[i].tag != 0)
            i = (i + 1) & mask;
        _index[i] = slot;
    }
}

void SnSelection::buildIndexIfWorthIt() {
    if (_hasIndex || !_clean || _items.size() < kIndexFrom)
        return;
    _hasIndex = true;
    indexReserve(_items.size());
    for (auto it = _items.begin(); it != _items.end(); ++it)
        indexAdd(it);
}

void SnSelection::resetIndex(bool clean) {
    _index.clear();
    _indexed = 0;
    _indexShift = 64;
    _hasIndex = false;
    _clean = clean;
    buildIndexIfWorthIt();
}

bool SnSelection::holdsNoDoubles() const {
    bool allHashed = true;
    std::unordered_multimap<std::size_t, SnItem const*> seen;
    for (auto const& item : _items) {
        if (!item)
            continue;
        auto hash = item->getIdentityHash();
        if (!hash) {
            allHashed = false;
            break;
        }
        auto [it, end] = seen.equal_range(*hash);
        for (; it != end; ++it)
            if (item->isEqualIgnoreParts(*it->second) || it->second->isEqualIgnoreParts(*item))
                return false;
        seen.emplace(*hash, item.get());
    }
    if (allHashed)
        return true;
    // Items without a hash may equal anything: compare every pair.
    for (auto a = _items.begin(); a != _items.end(); ++a)
        for (auto b = std::next(a); b != _items.end(); ++b)
            if (*a && *b && ((*a)->isEqualIgnoreParts(**b) || (*b)->isEqualIgnoreParts(**a)))
                return false;
    return true;
}

SnSelection* SnSelection::cloneRaw() const {
    return new SnSelection(*this);
}

RCShdPtr<SnSelection> SnSelection::clone() const {
    return RCShdPtr<SnSelection>(cloneRaw());
}

bool SnSelection::appendQuietly(ItemPtr const& item) {
    if (!item)
        return false;
    std::optional<std::size_t> hash;
    auto listed = lookUpIgnoreParts(*item, hash);
    if (listed == _items.end()) {
        putItem(_items.end(), item, hash);
        return true;
    }
    if (!(*listed)->hasEqualParts(*item))
        return changeListed(listed, [&](SnItem& c) { return c.unionWith(*item); });
    return false;
}

void SnSelection::append(ItemPtr const& item) {
    if (appendQuietly(item))
        notifyChange();
}

bool SnSelection::remove(ItemPtr const& item) {
    if (!item)
        return false;
    auto listed = lookUpIgnoreParts(*item);
    if (listed == _items.end())
        return false;
    bool changed = true;
    if (!item->hasParts())
        eraseItem(listed);
    else
        changed = changeListed(listed, [&](SnItem& c) { return c.differenceWith(*item); });
    if (changed)
        notifyChange();
    return changed;
}

void SnSelection::insert(ItemPtr const& before, ItemPtr const& item) {
    if (!item || lookUpIgnoreParts(*item) != _items.end())
        return;
    auto pos = _items.begin();
    if (before)
        pos = lookUpExact(*before);
    putItem(pos, item);
    notifyChange();
}

bool SnSelection::replace(ItemPtr const& oldItem, ItemPtr const& newItem) {
    if (!oldItem || !newItem)
        return false;
    auto listed = lookUpExact(*oldItem);
    if (listed == _items.end())
        return false;
    auto same = lookUpIgnoreParts(*newItem);
    if (same != _items.end() && same != listed)
        return false;
    putItem(listed, newItem);
    eraseItem(listed);
    notifyChange();
    return true;
}

void SnSelection::clear() {
    if (_items.empty())
        return;
    _items.clear();
    resetIndex(true);
    notifyChange();
}

void SnSelection::replaceAllItems(RCShdPtr<SnSelection const> const& items) {
    VN_ASSERT(!items.isNull());
    List copy = items->_items;
    bool const clean = items->_clean;
    _items.swap(copy);
    resetIndex(clean);
    notifyChange();
}

template <class PerItem>
void SnSelection::combineWith(RCShdPtr<SnSelection const> const& rhsItems, PerItem perItem) {
    VN_ASSERT(!rhsItems.isNull());
    List const own = rhsItems.get() == this ? _items : List();
    List const& rhs = rhsItems.get() == this ? own : rhsItems->_items;
    bool changed = false;
    std::optional<std::size_t> hash;
    for (auto const& e : rhs)
        if (e)
            changed |= perItem(e, lookUpIgnoreParts(*e, hash), hash);
    if (changed)
        notifyChange();
}

void SnSelection::unionWith(RCShdPtr<SnSelection const> const& rhsItems) {
    combineWith(rhsItems,
                [this](ItemPtr const& e, List::iterator listed, std::optional<std::size_t> hash) {
                    if (listed == _items.end()) {
                        putItem(_items.end(), e, hash);
                        return true;
                    }
                    if (!(*listed)->hasEqualParts(*e))
                        return changeListed(listed, [&](SnItem& c) { return c.unionWith(*e); });
                    return false;
                });
}

void SnSelection::differenceWith(RCShdPtr<SnSelection const> const& rhsItems) {
    combineWith(rhsItems,
                [this](ItemPtr const& e, List::iterator listed, std::optional<std::size_t>) {
                    if (listed == _items.end())
                        return false;
                    if (!e->hasParts()) {
                        eraseItem(listed);
                        return true;
                    }
                    return changeListed(listed, [&](SnItem& c) { return c.differenceWith(*e); });
                });
}

void SnSelection::xorWith(RCShdPtr<SnSelection const> const& rhsItems) {
    combineWith(rhsItems,
                [this](ItemPtr const& e, List::iterator listed, std::optional<std::size_t> hash) {
                    if (listed == _items.end()) {
                        putItem(_items.end(), e, hash);
                        return true;
                    }
                    if (!e->hasParts()) {
                        eraseItem(listed);
                        return true;
                    }
                    return changeListed(listed, [&](SnItem& c) { return c.xorWith(*e); });
                });
}

int SnSelection::getSize() const {
    return static_cast<int>(_items.size());
}

bool SnSelection::isEmpty() const {
    return _items.empty();
}

bool SnSelection::contains(RCShdPtr<SnSelection const> const& rhs) const {
    if (!rhs)
        return true;
    auto* self = const_cast<SnSelection*>(this);
    // Hashes a run of rhs first and touches each home slot, so that the run's table misses
    // overlap instead of following one another.
    constexpr std::size_t kRun = 16;
    SnItem const* items[kRun];
    std::optional<std::size_t> hashes[kRun];
    for (auto e = rhs->_items.begin(), end = rhs->_items.end(); e != end;) {
        std::size_t n = 0;
        for (; e != end && n < kRun; ++e) {
            if (!*e)
                continue;
            items[n] = e->get();
            hashes[n] = _hasIndex ? items[n]->getIdentityHash() : std::nullopt;
            if (hashes[n])
                __builtin_prefetch(&_index[slotOf(tagOf(*hashes[n]))]);
            ++n;
        }
        for (std::size_t i = 0; i < n; ++i) {
            SnItem const& item = *items[i];
            auto matches = [&](SnItem const& other) {
                return item.isEqualIgnoreParts(other);
            };
            auto listed = hashes[i] ? self->findIndexed(*hashes[i], matches)
                                    : walkMatching(self->_items, matches);
            if (listed == _items.end() || !(*listed)->contains(item))
                return false;
        }
    }
    return true;
}

bool SnSelection::hasItem(ItemPtr const& item) const {
    return item && lookUpExact(*item) != _items.end();
}

bool SnSelection::hasItemIgnoreParts(ItemPtr const& item) const {
    return item && lookUpIgnoreParts(*item) != _items.end();
}

SnSelection::ItemPtr SnSelection::findItem(ItemPtr const& item) const {
    if (!item)
        return {};
    auto it = lookUpExact(*item);
    return it == _items.end() ? ItemPtr() : *it;
}

SnSelection::ItemPtr SnSelection::findItemIgnoreParts(ItemPtr const& item) const {
    if (!item)
        return {};
    auto it = lookUpIgnoreParts(*item);
    return it == _items.end() ? ItemPtr() : *it;
}

void SnSelection::dump(std::ostream& os) const {
    int i = 0;
    for (auto const& item : _items) {
        os << "item[" << i++ << "] = ";
        if (item)
            item->dump(os);
        else
            os << "(null)\n";
    }
}

SnSelection::ItemPtr const& SnSelection::getFirst() const {
    static ItemPtr const null;
    return _items.empty() ? null : _items.front();
}

SnSelection::ItemPtr const& SnSelection::getLast() const {
    static ItemPtr const null;
    return _items.empty() ? null : _items.back();
}

RCShdPtr<SnSelection const> SnSelection::filter(Predicate const& predicate) const {
    auto out = create();
    for (auto const& item : _items)
        if (predicate(item))
            out->_items.push_back(item);
    // A part of a selection without doubles has none either.
    out->resetIndex(_clean);
    return out;
}

RCShdPtr<SnSelection> SnSelection::filter(Predicate const& predicate) {
    auto out = create();
    for (auto const& item : _items)
        if (predicate(item))
            out->_items.push_back(item);
    // A part of a selection without doubles has none either.
    out->resetIndex(_clean);
    return out;
}

RCShdPtr<SnSelection::Snapshot> SnSelection::snapshot() const {
    RCShdPtr<Snapshot> s(new Snapshot());
    s->_items.reserve(_items.size());
    for (auto const& item : _items)
        if (item)
            s->_items.push_back(item->snapshot());
    return s;
}

bool SnSelection::isEqual(RCShdPtr<SnSelection const> const& rhs) const {
    if (!rhs || rhs->_items.size() != _items.size())
        return false;
    auto r = rhs->_items.begin();
    for (auto const& item : _items) {
        auto const& other = *r++;
        if (!item || !other) {
            if (item || other)
                return false;
        } else if (!item->isEqual(*other)) {
            return false;
        }
    }
    return true;
}

std::ostream& operator<<(std::ostream& os, RCShdPtr<SnSelection const> const& selection) {
    if (selection)
        selection->dump(os);
    return os;
}

} // namespace Vn
