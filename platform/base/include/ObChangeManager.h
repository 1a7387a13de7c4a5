#pragma once

#include "LkSingleton.h"
#include "OPtr.h"
#include "ObChangeManagerImp.h"
#include "ObHint.h"
#include "ObNotifier.h"
#include "ObObserver.h"
#include "ObSubject.h"
#include "VnExport.h"

namespace Vn {

template <class Tag>
class ObNotifier;

// The process-wide register of observers of the family Tag, created on first use. Subjects
// and observers reach it on their own; callers rarely need it directly.
template <class Tag>
class VN_EXPORT ObChangeManager {
public:
    ObChangeManager(ObChangeManager const&) = delete;
    ObChangeManager& operator=(ObChangeManager const&) = delete;

    static ObChangeManager& getInstance() { return LkSingleton<ObChangeManager>::getInstance(); }
    // Null before the first use and after process end: then nobody watches anything.
    static ObChangeManager* tryGetInstance() noexcept {
        return LkSingleton<ObChangeManager>::tryGetInstance();
    }

    bool attach(ObObserver<Tag>* observer, ObSubject<Tag>* subject) {
        return _imp.attach(observer, subject);
    }
    bool detach(ObObserver<Tag>* observer, ObSubject<Tag>* subject) {
        return _imp.detach(observer, subject);
    }
    void forgetSubject(ObSubject<Tag>* subject) { _imp.forgetSubject(subject); }
    void forgetObserver(ObObserver<Tag>* observer) { _imp.forgetObserver(observer); }
    void notify(ObSubject<Tag>* subject, ObHints const& hints) { _imp.notify(subject, hints); }
    bool isAttached(ObObserver<Tag> const* observer, ObSubject<Tag> const* subject) const {
        return _imp.isAttached(observer, subject);
    }
    int getNbObservers(ObSubject<Tag> const* subject) const { return _imp.getNbObservers(subject); }

private:
    friend class LkSingleton<ObChangeManager>;
    ObChangeManager() : _imp(OPtr<ObNotifierBase>(new ObNotifier<Tag>())) {}
    ~ObChangeManager() = default;

    ObChangeManagerImp _imp;
};

template <class Tag>
ObSubject<Tag>::~ObSubject() {
    if (auto* m = ObChangeManager<Tag>::tryGetInstance())
        m->forgetSubject(this);
}

template <class Tag>
bool ObSubject<Tag>::attachObserver(ObObserver<Tag>* observer) {
    return ObChangeManager<Tag>::getInstance().attach(observer, this);
}

template <class Tag>
bool ObSubject<Tag>::detachObserver(ObObserver<Tag>* observer) {
    auto* m = ObChangeManager<Tag>::tryGetInstance();
    return m && m->detach(observer, this);
}

template <class Tag>
void ObSubject<Tag>::notify(ObHints const& hints) {
    // Without a manager nobody has ever attached.
    if (auto* m = ObChangeManager<Tag>::tryGetInstance())
        m->notify(this, hints);
}

template <class Tag>
bool ObSubject<Tag>::hasObserver(ObObserver<Tag> const* observer) const {
    auto* m = ObChangeManager<Tag>::tryGetInstance();
    return m && m->isAttached(observer, this);
}

template <class Tag>
int ObSubject<Tag>::getNbObservers() const {
    auto* m = ObChangeManager<Tag>::tryGetInstance();
    return m ? m->getNbObservers(this) : 0;
}

template <class Tag>
ObObserver<Tag>::~ObObserver() {
    if (areUpdatesEnabled())
        if (auto* m = ObChangeManager<Tag>::tryGetInstance())
            m->forgetObserver(this);
}

template <class Tag>
void ObObserver<Tag>::disableUpdates() {
    if (!areUpdatesEnabled())
        return;
    markUpdatesDisabled();
    if (auto* m = ObChangeManager<Tag>::tryGetInstance())
        m->forgetObserver(this);
}

template <class Tag>
void ObObserver<Tag>::attachedTo(ObSubject<Tag>*) {}

template <class Tag>
void ObObserver<Tag>::detachedFrom(ObSubject<Tag>*) {}

template <class Tag>
void ObObserver<Tag>::update(ObSubject<Tag>*, ObHints const&) {}

} // namespace Vn
