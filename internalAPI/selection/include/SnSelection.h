#pragma once

#include "ObChangeManager.h"
#include "PrdPredicate.h"
#include "RCBase.h"
#include "SnIsItem.h"
#include "SnItem.h"
#include "SnItemBasic.h"
#include "SnMemPool.h"
#include "SnSelectionHint.h"
#include "VnExport.h"

#include <cstddef>
#include <iosfwd>
#include <list>
#include <optional>
#include <vector>

namespace Vn {

// The ordered set of items a user picked, in the order of picking, and the subject its views
// watch. No two listed items are equal ignoring parts (only create(List&) may break this).
// Listed items are never changed in place: a change of parts replaces the listed pointer by a
// changed clone. Each operation that changes the contents notifies observers once, with a
// SnSelectionChangeHint; so do replaceAllItems and insert, always. A null item argument
// changes nothing. Operations taking another selection may be given this one: they then work
// on a copy of its items. Not safe across threads.
//
// Lookups walk the list, except in a selection of some size known to hold no doubles: there
// items that give an identity hash are also indexed by it, in one flat open-addressed table, and
// a lookup compares only the items of its hash. That keeps set operations on large selections
// near linear without a heap node per item.
class VN_EXPORT SnSelection : public RCBase<int>, public virtual ObSubject<Sn> {
public:
    using ItemPtr = RCShdPtr<SnItem const>;
    using List = std::list<ItemPtr, SnPoolAllocator<ItemPtr>>;
    using const_iterator = List::const_iterator;
    using const_reverse_iterator = List::const_reverse_iterator;
    using Predicate = PrdPredicate<ItemPtr>;

    // The frozen items of a selection.
    class VN_EXPORT Snapshot : public RCBase<int> {
    public:
        ~Snapshot() override;
        // A new selection, without observers, of newly restored items; items that have become
        // equal ignoring parts are merged.
        RCShdPtr<SnSelection> restore() const;
        int getSize() const noexcept { return static_cast<int>(_items.size()); }

    private:
        friend class SnSelection;
        Snapshot() = default;
        std::vector<RCShdPtr<SnItem::Snapshot>> _items;
    };

    // Tells observers with a SnSelectionDestroyHint while the items are still listed.
    ~SnSelection() override;

    virtual SnSelection* cloneRaw() const;
    // The same items, shared, without observers.
    virtual RCShdPtr<SnSelection> clone() const;
    // Adds the item at the end, or merges its parts into the listed item of the same thing.
    virtual void append(ItemPtr const& item);
    // A whole item takes the listed one away; a narrowed one takes its parts away from it.
    virtual bool remove(ItemPtr const& item);
    // Puts the item ahead of the listed item equal to before, first for a null before, last
    // when before is not listed. An item already listed, whatever its parts, is not inserted.
    virtual void insert(ItemPtr const& before, ItemPtr const& item);
    // Puts newItem in oldItem's place. False if oldItem is not listed, or if newItem would
    // repeat another listed item.
    virtual bool replace(ItemPtr const& oldItem, ItemPtr const& newItem);
    virtual void clear();
    virtual void replaceAllItems(RCShdPtr<SnSelection const> const& items);
    virtual void unionWith(RCShdPtr<SnSelection const> const& rhsItems);
    virtual void differenceWith(RCShdPtr<SnSelection const> const& rhsItems);
    virtual void xorWith(RCShdPtr<SnSelection const> const& rhsItems);
    virtual int getSize() const;
    virtual bool isEmpty() const;
    // Each item of rhs is contained in the listed item of its thing. Null or empty rhs: true.
    virtual bool contains(RCShdPtr<SnSelection const> const& rhs) const;
    virtual bool hasItem(ItemPtr const& item) const;
    virtual bool hasItemIgnoreParts(ItemPtr const& item) const;
    virtual ItemPtr findItem(ItemPtr const& item) const;
    virtual ItemPtr findItemIgnoreParts(ItemPtr const& item) const;
    virtual void dump(std::ostream& os) const;
    // A null pointer when empty.
    virtual ItemPtr const& getFirst() const;
    virtual ItemPtr const& getLast() const;
    // A new selection, without observers, of the items for which the predicate holds.
    virtual RCShdPtr<SnSelection const> filter(Predicate const& predicate) const;
    virtual RCShdPtr<SnSelection> filter(Predicate const& predicate);
    virtual RCShdPtr<Snapshot> snapshot() const;

    static RCShdPtr<SnSelection> create();
    // Holds the item, unless it is null.
    static RCShdPtr<SnSelection> create(ItemPtr const& item);
    // Takes the list's items, leaving it empty; doubles are not looked for.
    static RCShdPtr<SnSelection> create(List& items);

    // The same items in the same order.
    bool isEqual(RCShdPtr<SnSelection const> const& rhs) const;

    const_iterator begin() const noexcept { return _items.begin(); }
    const_iterator end() const noexcept { return _items.end(); }
    const_reverse_iterator rbegin() const noexcept { return _items.rbegin(); }
    const_reverse_iterator rend() const noexcept { return _items.rend(); }

protected:
    SnSelection();
    SnSelection(SnSelection const& o);
    SnSelection& operator=(SnSelection const&) = delete;

private:
    // Below this size a walk of the list beats the index.
    static constexpr std::size_t kIndexFrom = 16;

    List::iterator lookUpIgnoreParts(SnItem const& item);
    // Also gives the hash it looked up by: none without an index or for an item without one.
    List::iterator lookUpIgnoreParts(SnItem const& item, std::optional<std::size_t>& hash);
    List::const_iterator lookUpIgnoreParts(SnItem const& item) const;
    List::iterator lookUpExact(SnItem const& item);
    List::const_iterator lookUpExact(SnItem const& item) const;
    // Applies op to a clone of the listed item; the clone takes its place if op changed it.
    template <class Op>
    bool changeListed(List::iterator listed, Op op);
    // Calls perItem(item of rhs, where it is listed here or end, the hash it was looked up by)
    // for each non-null item of rhs (a copy when rhs is this selection), then notifies once if
    // any call changed something.
    template <class PerItem>
    void combineWith(RCShdPtr<SnSelection const> const& rhsItems, PerItem perItem);
    void notifyChange();
    // append without the notification: whether it changed anything.
    bool appendQuietly(ItemPtr const& item);

    // Every change of the list goes through these, to keep the index in step.
    List::iterator putItem(List::const_iterator pos, ItemPtr const& item);
    // With the hash of a lookup just made, so that the index need not ask for it again.
    List::iterator putItem(List::const_iterator pos, ItemPtr const& item,
                           std::optional<std::size_t> hash);
    void eraseItem(List::iterator it);
    void setItem(List::iterator it, ItemPtr const& item);
    void indexAdd(List::iterator it);
    void indexAdd(List::iterator it, std::size_t hash);
    void indexRemove(List::iterator it);
    // Makes room in the table for n entries without growing again.
    void indexReserve(std::size_t n);
    void buildIndexIfWorthIt();
    // After the list was replaced whole: clean says whether it is known to hold no doubles.
    void resetIndex(bool clean);
    bool holdsNoDoubles() const;

    // A slot of the index: tag 0 is free, else the item's hash with its low bit set.
    struct Slot {
        std::size_t tag = 0;
        List::iterator it;
    };
    template <class Match>
    List::iterator findIndexed(std::size_t hash, Match matches);
    std::size_t slotOf(std::size_t tag) const noexcept;

    List _items;
    // Linear probing over a power-of-two table, kept at most three quarters full.
    std::vector<Slot> _index;
    std::size_t _indexed = 0;
    unsigned _indexShift = 64;
    // No two items are equal ignoring parts.
    bool _clean = true;
    bool _hasIndex = false;
};

// "item[i] = " and the item's dump, for each item.
VN_EXPORT std::ostream& operator<<(std::ostream& os, RCShdPtr<SnSelection const> const& selection);

// Exported although RCShdPtr is not.
extern template class VN_EXPORT SnItemBasic<RCShdPtr<SnSelection const>>;
extern template class VN_EXPORT SnItemConvert<RCShdPtr<SnSelection const>>;
extern template class VN_EXPORT SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection const>>>;
extern template class VN_EXPORT SnItemBasic<RCShdPtr<SnSelection>>;
extern template class VN_EXPORT SnItemConvert<RCShdPtr<SnSelection>>;
extern template class VN_EXPORT SnIsItemDataNonNull<SnItemBasic<RCShdPtr<SnSelection>>>;

} // namespace Vn
