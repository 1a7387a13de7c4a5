#pragma once

#include "Assertions.h"
#include "PrdPredicate.h"
#include "RCBase.h"
#include "SnItem.h"
#include "VnExport.h"

namespace Vn {

// Whether an item is of the item type I. The predicate is made when the package that owns I
// starts (initialize) and dropped when it stops (finalize); asking for it outside that time is
// an assertion failure. A null item is of no type. Instantiated inside the library, once per
// item type.
template <class I>
class VN_EXPORT SnIsItem {
public:
    using Predicate = PrdPredicate<RCShdPtr<SnItem const>>;

    static Predicate getPredicate() {
        // clang-format off
        VN_ASSERT(_pred != 0);
        // clang-format on
        return *_pred;
    }
    static bool test(RCShdPtr<SnItem const> const& item) {
        return dynamic_cast<I const*>(item.get()) != nullptr;
    }
    static void initialize() {
        VN_ASSERT(_pred == nullptr);
        _pred = new Predicate(Predicate::fromFunction(&test));
    }
    static void finalize() {
        delete _pred;
        _pred = nullptr;
    }
    static bool isInitialized() noexcept { return _pred != nullptr; }

private:
    static Predicate* _pred;
};

// Whether an item is of the item type I and its payload pointer is not null.
template <class I>
class VN_EXPORT SnIsItemDataNonNull {
public:
    using Predicate = PrdPredicate<RCShdPtr<SnItem const>>;

    static Predicate getPredicate() {
        // clang-format off
        VN_ASSERT(_pred != 0);
        // clang-format on
        return *_pred;
    }
    static bool test(RCShdPtr<SnItem const> const& item) {
        auto const* i = dynamic_cast<I const*>(item.get());
        return i && !i->get().isNull();
    }
    static void initialize() {
        VN_ASSERT(_pred == nullptr);
        _pred = new Predicate(Predicate::fromFunction(&test));
    }
    static void finalize() {
        delete _pred;
        _pred = nullptr;
    }
    static bool isInitialized() noexcept { return _pred != nullptr; }

private:
    static Predicate* _pred;
};

} // namespace Vn
