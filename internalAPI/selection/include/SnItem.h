#pragma once

#include "OPtr.h"
#include "RCBase.h"
#include "SnParts.h"
#include "VnExport.h"

#include <cstddef>
#include <iosfwd>
#include <optional>

namespace Vn {

// One selected thing, maybe narrowed to some of its parts; null parts mean the whole thing.
// Items inside a selection are never changed: a change goes to a clone, which takes the
// listed item's place. Not safe across threads.
class VN_EXPORT SnItem : public RCBase<int> {
public:
    // A frozen copy of an item, to be restored any number of times.
    class VN_EXPORT Snapshot : public RCBase<int> {
    public:
        // Wraps the item as it is, without a copy.
        static RCShdPtr<Snapshot> create(RCShdPtr<SnItem const> const& item);
        ~Snapshot() override;
        // A new, independent item each time.
        RCShdPtr<SnItem> restore() const;
        RCShdPtr<SnItem const> const& getItem() const noexcept { return _item->item; }

        static void* operator new(std::size_t size);
        static void operator delete(void* block, std::size_t size) noexcept;

    private:
        explicit Snapshot(RCShdPtr<SnItem const> const& item);
        // The held pointer, from the same pool as the snapshot.
        struct Held {
            RCShdPtr<SnItem const> item;
            static void* operator new(std::size_t size);
            static void operator delete(void* block, std::size_t size) noexcept;
        };
        OPtr<Held> _item;
    };

    ~SnItem() override;

    // Items of every type come from the selection package's pool.
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;

    // A new item with its own copy of the parts, not yet referenced.
    virtual SnItem* clone() const = 0;
    // Names the same thing, whatever the parts.
    virtual bool isEqualIgnoreParts(SnItem const& rhs) const = 0;
    // "Item type: ", "Parts:     " lines.
    virtual void dump(std::ostream& os) const;
    // A clone, wrapped.
    virtual RCShdPtr<Snapshot> snapshot() const;

protected:
    // A clone of the item in a snapshot.
    virtual RCShdPtr<SnItem> restore() const;

public:
    // A hash of what isEqualIgnoreParts compares, for selections to index large contents. An
    // item type that gives one must give equal hashes to any two items it finds equal ignoring
    // parts; without one, lookups of the item walk the whole selection.
    virtual std::optional<std::size_t> getIdentityHash() const;

    // Same dynamic type, same thing, and equal parts.
    bool isEqual(SnItem const& rhs) const;
    // A whole item contains only the whole item; a narrowed one contains a run of its parts,
    // and the whole item.
    bool contains(SnItem const& rhs) const;
    bool hasEqualParts(SnItem const& rhs) const;
    bool hasParts() const noexcept { return !_parts.isNull(); }
    RCShdPtr<SnParts const> getParts() const { return _parts; }
    RCShdPtr<SnParts> getParts() { return _parts; }
    // Shares the given parts.
    void setParts(RCShdPtr<SnParts> const& parts) { _parts = parts; }

    // Each returns whether this item changed. They act only on items equal ignoring parts and
    // with rhs narrowed. Union and xor narrow a whole item to rhs's parts; difference and xor
    // turn an item whose last part went into a whole one.
    bool unionWith(SnItem const& rhs);
    bool differenceWith(SnItem const& rhs);
    bool xorWith(SnItem const& rhs);

protected:
    explicit SnItem(RCShdPtr<SnParts> const& parts);
    // Clones the source's parts: a copy never shares parts with its source.
    SnItem(SnItem const& o);
    SnItem& operator=(SnItem const&) = delete;

private:
    RCShdPtr<SnParts> _parts;
};

VN_EXPORT std::ostream& operator<<(std::ostream& os, SnItem const& item);

} // namespace Vn
