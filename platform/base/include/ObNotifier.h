#pragma once

#include "ObHint.h"
#include "ObObserver.h"
#include "ObSubject.h"
#include "VnExport.h"

namespace Vn {

class ObObserverAny;
class ObSubjectAny;

// How a change manager reaches observers: it keeps them untyped, and its notifier calls the
// typed hooks of the family.
class VN_EXPORT ObNotifierBase {
public:
    ObNotifierBase() = default;
    ObNotifierBase(ObNotifierBase const&) = delete;
    ObNotifierBase& operator=(ObNotifierBase const&) = delete;
    virtual ~ObNotifierBase();
    virtual void attachedTo(ObObserverAny* observer, ObSubjectAny* subject) = 0;
    virtual void detachedFrom(ObObserverAny* observer, ObSubjectAny* subject) = 0;
    virtual void update(ObObserverAny* observer, ObSubjectAny* subject, ObHints const& hints) = 0;
};

// Delivers attach and detach notices between subjects and observers of one tag.
template <class Tag>
class VN_EXPORT ObNotifier final : public ObNotifierBase {
public:
    void attachedTo(ObObserverAny* observer, ObSubjectAny* subject) override {
        typed(observer)->attachedTo(typed(subject));
    }
    void detachedFrom(ObObserverAny* observer, ObSubjectAny* subject) override {
        typed(observer)->detachedFrom(typed(subject));
    }
    void update(ObObserverAny* observer, ObSubjectAny* subject, ObHints const& hints) override {
        typed(observer)->update(typed(subject), hints);
    }

private:
    // The manager of Tag only ever holds observers and subjects of Tag.
    static ObObserver<Tag>* typed(ObObserverAny* o) { return static_cast<ObObserver<Tag>*>(o); }
    static ObSubject<Tag>* typed(ObSubjectAny* s) { return static_cast<ObSubject<Tag>*>(s); }
};

} // namespace Vn
