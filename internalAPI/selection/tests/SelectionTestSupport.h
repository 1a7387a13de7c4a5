#pragma once

#include "SnItemBasic.h"
#include "SnSelection.h"

#include <functional>
#include <initializer_list>

namespace SnTest {

using Text = Vn::SnItemConvert<std::string>;
using Item = Vn::SnSelection::ItemPtr;

inline Vn::RCShdPtr<Vn::SnParts> ints(std::initializer_list<int> v) {
    return Vn::RCShdPtr<Vn::SnParts>(new Vn::SnPartsBasic<int>(v));
}
inline Item whole(std::string const& name) {
    return Text::createItem(name);
}
inline Item narrowed(std::string const& name, std::initializer_list<int> parts) {
    return Text::createItem(name, ints(parts));
}

// Counts the hints a selection sends.
class Watcher : public Vn::ObObserver<Vn::Sn> {
public:
    int changes = 0;
    int destroys = 0;
    Vn::SnSelection const* lastSender = nullptr;
    std::function<void(Vn::SnSelection const&)> onDestroy;

    int total() const { return changes + destroys; }

private:
    void update(Vn::ObSubject<Vn::Sn>*, Vn::ObHints const& hints) override {
        if (auto* h = hints.find<Vn::SnSelectionChangeHint>()) {
            ++changes;
            lastSender = h->getSelection();
        }
        if (auto* h = hints.find<Vn::SnSelectionDestroyHint>()) {
            ++destroys;
            lastSender = h->getSelection();
            if (onDestroy)
                onDestroy(*h->getSelection());
        }
    }
};

} // namespace SnTest
