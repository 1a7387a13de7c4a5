#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <utility>
#include <vector>

namespace Vn {

// What a subject says about a change. Counted atomically: a hint may outlive the notification
// that carried it, in whatever an observer keeps.
class VN_EXPORT ObHint : public RCBase<LkCounter<int>> {
public:
    ~ObHint() override;

protected:
    ObHint() = default;
};

// The hints of one notification.
class VN_EXPORT ObHints {
public:
    ObHints() = default;
    explicit ObHints(RCShdPtr<ObHint> hint) { add(std::move(hint)); }

    // A null hint is not added.
    void add(RCShdPtr<ObHint> hint);
    std::vector<RCShdPtr<ObHint>> const& getHints() const noexcept { return _hints; }
    bool isEmpty() const noexcept { return _hints.empty(); }

    // The first hint that is an H, or null.
    template <class H>
    H const* find() const {
        for (auto const& h : _hints)
            if (auto* p = dynamic_cast<H const*>(h.get()))
                return p;
        return nullptr;
    }

private:
    std::vector<RCShdPtr<ObHint>> _hints;
};

} // namespace Vn
