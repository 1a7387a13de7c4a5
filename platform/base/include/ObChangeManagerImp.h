#pragma once

#include "LkLock.h"
#include "OPtr.h"
#include "ObHint.h"
#include "VnExport.h"

#include <unordered_map>
#include <vector>

namespace Vn {

class ObNotifierBase;
class ObObserverAny;
class ObSubjectAny;

// Who watches whom, for one family of subjects. Observers of a subject are kept in the order
// they attached. The tables are guarded by a lock, but no hook is ever called under it: an
// observer may attach, detach or notify from inside its hooks.
class VN_EXPORT ObChangeManagerImp {
public:
    explicit ObChangeManagerImp(OPtr<ObNotifierBase> notifier);
    ObChangeManagerImp(ObChangeManagerImp const&) = delete;
    ObChangeManagerImp& operator=(ObChangeManagerImp const&) = delete;
    ~ObChangeManagerImp();

    // Calls attachedTo on success. False for null, a repeat, or an observer with updates
    // disabled.
    bool attach(ObObserverAny* observer, ObSubjectAny* subject);
    // Calls detachedFrom on success. False when the observer was not attached.
    bool detach(ObObserverAny* observer, ObSubjectAny* subject);
    // The subject is going: every observer of it is detached and told so.
    void forgetSubject(ObSubjectAny* subject);
    // The observer is going or has disabled its updates: it is detached everywhere, silently.
    void forgetObserver(ObObserverAny* observer);
    // Calls update of each observer attached when the notification starts and still attached
    // when its turn comes. An observer that attaches meanwhile hears from the next one.
    void notify(ObSubjectAny* subject, ObHints const& hints);
    bool isAttached(ObObserverAny const* observer, ObSubjectAny const* subject) const;
    int getNbObservers(ObSubjectAny const* subject) const;

private:
    bool isAttachedLocked(ObObserverAny const* observer, ObSubjectAny const* subject) const;

    OPtr<ObNotifierBase> _notifier;
    mutable LkLock _lock{"ObChangeManager lock"};
    std::unordered_map<ObSubjectAny const*, std::vector<ObObserverAny*>> _observersOf;
    std::unordered_map<ObObserverAny const*, std::vector<ObSubjectAny*>> _subjectsOf;
};

} // namespace Vn
