#pragma once

#include "PrdPredicate.h"
#include "RCBase.h"
#include "SnIsItem.h"
#include "SnItem.h"
#include "VnExport.h"

#include <iosfwd>
#include <string>

namespace Vn {

template <class T>
class SnItemConvert;

// An item whose thing is a payload T held by value: a text, or a shared pointer compared by
// identity. Two items are equal ignoring parts when they are of the same dynamic type and
// their payloads are equal. Made through SnItemConvert<T>.
template <class T>
class VN_EXPORT SnItemBasic : public SnItem {
public:
    ~SnItemBasic() override;

    SnItem* clone() const override;
    bool isEqualIgnoreParts(SnItem const& rhs) const override;
    // SnItem's lines, then "Data:      " and the payload.
    void dump(std::ostream& os) const override;
    std::optional<std::size_t> getIdentityHash() const override;

    T const& get() const noexcept { return _data; }

protected:
    SnItemBasic(T const& data, RCShdPtr<SnParts> const& parts);
    SnItemBasic(SnItemBasic const& o);

private:
    friend class SnItemConvert<T>;
    T _data;
    // Taken once: large selections look items up by it on every append and restore.
    std::size_t _hash;
};

// The static face of the item type of payload T.
template <class T>
class VN_EXPORT SnItemConvert {
public:
    using Item = SnItemBasic<T>;

    // Shares the given parts; null parts make a whole item.
    static RCShdPtr<Item> createItem(T const& value, RCShdPtr<SnParts> const& parts);
    static RCShdPtr<Item> createItem(T const& value);
    // The payload of an item of this type; test the type first with getPredicate(). A null
    // item raises ExNullPtr, an item of another type ExCastFailed.
    static T get(RCShdPtr<SnItem const> const& item);
    // SnIsItem of the item type for texts, SnIsItemDataNonNull for pointers.
    static PrdPredicate<RCShdPtr<SnItem const>> getPredicate();
};

// Exported whatever the visibility of the payload type.
extern template class VN_EXPORT SnItemBasic<std::string>;
extern template class VN_EXPORT SnItemConvert<std::string>;
extern template class VN_EXPORT SnIsItem<SnItemBasic<std::string>>;

} // namespace Vn
