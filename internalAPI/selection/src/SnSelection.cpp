#include "SnSelection.h"

#include "ExBase.h"

#include <ostream>

namespace Vn {

SnSelectionHint::~SnSelectionHint() = default;
SnSelectionChangeHint::~SnSelectionChangeHint() = default;
SnSelectionDestroyHint::~SnSelectionDestroyHint() = default;

SnSelection::Snapshot::~Snapshot() = default;

RCShdPtr<SnSelection> SnSelection::Snapshot::restore() const {
    auto selection = SnSelection::create();
    for (auto const& s : _items)
        selection->append(s->restore());
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
// The item of the list that `matches` accepts: through the identity index when the selection
// keeps one and the item gives a hash, else by walking the list.
template <class List, class Index, class Match>
typename List::iterator findMatching(List& items, Index const& index, bool hasIndex,
                                     SnItem const& item, Match matches) {
    if (hasIndex) {
        if (auto hash = item.getIdentityHash()) {
            auto [it, end] = index.equal_range(*hash);
            for (; it != end; ++it)
                if (matches(**it->second))
                    return it->second;
            return items.end();
        }
    }
    for (auto it = items.begin(); it != items.end(); ++it)
        if (*it && matches(**it))
            return it;
    return items.end();
}
} // namespace

SnSelection::List::iterator SnSelection::lookUpIgnoreParts(SnItem const& item) {
    return findMatching(_items, _index, _hasIndex, item,
                        [&](SnItem const& other) { return item.isEqualIgnoreParts(other); });
}

SnSelection::List::const_iterator SnSelection::lookUpIgnoreParts(SnItem const& item) const {
    return const_cast<SnSelection*>(this)->lookUpIgnoreParts(item);
}

SnSelection::List::iterator SnSelection::lookUpExact(SnItem const& item) {
    // Without doubles, the exact match is the one match ignoring parts.
    return findMatching(_items, _index, _hasIndex, item,
                        [&](SnItem const& other) { return item.isEqual(other); });
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
        _index.emplace(*hash, it);
}

void SnSelection::indexRemove(List::iterator it) {
    if (!_hasIndex || !*it)
        return;
    auto hash = (*it)->getIdentityHash();
    if (!hash)
        return;
    auto [entry, end] = _index.equal_range(*hash);
    for (; entry != end; ++entry) {
        if (entry->second == it) {
            _index.erase(entry);
            return;
        }
    }
}

void SnSelection::buildIndexIfWorthIt() {
    if (_hasIndex || !_clean || _items.size() < kIndexFrom)
        return;
    _hasIndex = true;
    _index.reserve(_items.size());
    for (auto it = _items.begin(); it != _items.end(); ++it)
        indexAdd(it);
}

void SnSelection::resetIndex(bool clean) {
    _index.clear();
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

void SnSelection::append(ItemPtr const& item) {
    if (!item)
        return;
    auto listed = lookUpIgnoreParts(*item);
    bool changed = false;
    if (listed == _items.end()) {
        putItem(_items.end(), item);
        changed = true;
    } else if (!(*listed)->hasEqualParts(*item)) {
        changed = changeListed(listed, [&](SnItem& c) { return c.unionWith(*item); });
    }
    if (changed)
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
    for (auto const& e : rhs)
        if (e)
            changed |= perItem(e, lookUpIgnoreParts(*e));
    if (changed)
        notifyChange();
}

void SnSelection::unionWith(RCShdPtr<SnSelection const> const& rhsItems) {
    combineWith(rhsItems, [this](ItemPtr const& e, List::iterator listed) {
        if (listed == _items.end()) {
            putItem(_items.end(), e);
            return true;
        }
        if (!(*listed)->hasEqualParts(*e))
            return changeListed(listed, [&](SnItem& c) { return c.unionWith(*e); });
        return false;
    });
}

void SnSelection::differenceWith(RCShdPtr<SnSelection const> const& rhsItems) {
    combineWith(rhsItems, [this](ItemPtr const& e, List::iterator listed) {
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
    combineWith(rhsItems, [this](ItemPtr const& e, List::iterator listed) {
        if (listed == _items.end()) {
            putItem(_items.end(), e);
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
    for (auto const& e : rhs->_items) {
        if (!e)
            continue;
        auto listed = lookUpIgnoreParts(*e);
        if (listed == _items.end() || !(*listed)->contains(*e))
            return false;
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
