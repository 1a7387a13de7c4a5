#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

namespace Vn {

// Base of everything a tool graph holds: nodes, sockets, stored values. Each object gets an id
// that no other object of the process ever had; undo and redo bring back the same object, so
// the id survives them.
class VN_EXPORT PiGraphObject : public RCSWBase<LkCounter<int>> {
public:
    PiGraphObject(PiGraphObject const&) = delete;
    PiGraphObject& operator=(PiGraphObject const&) = delete;

    int getId() const noexcept { return _id; }
    // False once the object has left its graph; true again when undo puts it back.
    virtual bool isValid() const = 0;
    bool isSame(PiGraphObject const& other) const noexcept { return this == &other; }

    // Identity; two nulls are equal, a null and an object are not.
    static bool areEqual(PiGraphObject const* a, PiGraphObject const* b) noexcept { return a == b; }
    template <class A, class B>
    static bool areEqual(RCShdPtr<A> const& a, RCShdPtr<B> const& b) noexcept {
        return areEqual(static_cast<PiGraphObject const*>(a.get()),
                        static_cast<PiGraphObject const*>(b.get()));
    }

    // Orders by id, null first.
    struct VN_EXPORT SortById {
        bool operator()(PiGraphObject const* a, PiGraphObject const* b) const noexcept {
            return b && (!a || a->getId() < b->getId());
        }
        template <class A, class B>
        bool operator()(RCShdPtr<A> const& a, RCShdPtr<B> const& b) const noexcept {
            return (*this)(static_cast<PiGraphObject const*>(a.get()),
                           static_cast<PiGraphObject const*>(b.get()));
        }
    };

    // The highest id handed out so far.
    static int getLastId() noexcept;

protected:
    PiGraphObject();
    ~PiGraphObject() override;

private:
    int _id;
};

} // namespace Vn
