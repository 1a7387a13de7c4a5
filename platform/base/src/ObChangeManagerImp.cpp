#include "ObChangeManagerImp.h"

#include "ObNotifier.h"
#include "ObObserver.h"

#include <algorithm>

namespace Vn {

ObNotifierBase::~ObNotifierBase() = default;

ObChangeManagerImp::ObChangeManagerImp(OPtr<ObNotifierBase> notifier)
    : _notifier(std::move(notifier)) {
    VN_ASSERT(!_notifier.isNull());
}

ObChangeManagerImp::~ObChangeManagerImp() = default;

bool ObChangeManagerImp::isAttachedLocked(ObObserverAny const* observer,
                                          ObSubjectAny const* subject) const {
    auto it = _observersOf.find(subject);
    return it != _observersOf.end() &&
           std::find(it->second.begin(), it->second.end(), observer) != it->second.end();
}

bool ObChangeManagerImp::attach(ObObserverAny* observer, ObSubjectAny* subject) {
    if (!observer || !subject || !observer->areUpdatesEnabled())
        return false;
    {
        LkGuard guard(_lock);
        if (isAttachedLocked(observer, subject))
            return false;
        _observersOf[subject].push_back(observer);
        _subjectsOf[observer].push_back(subject);
    }
    _notifier->attachedTo(observer, subject);
    return true;
}

bool ObChangeManagerImp::detach(ObObserverAny* observer, ObSubjectAny* subject) {
    {
        LkGuard guard(_lock);
        if (!isAttachedLocked(observer, subject))
            return false;
        auto obs = _observersOf.find(subject);
        std::erase(obs->second, observer);
        if (obs->second.empty())
            _observersOf.erase(obs);
        auto subs = _subjectsOf.find(observer);
        std::erase(subs->second, subject);
        if (subs->second.empty())
            _subjectsOf.erase(subs);
    }
    _notifier->detachedFrom(observer, subject);
    return true;
}

void ObChangeManagerImp::forgetSubject(ObSubjectAny* subject) {
    std::vector<ObObserverAny*> observers;
    {
        LkGuard guard(_lock);
        auto it = _observersOf.find(subject);
        if (it == _observersOf.end())
            return;
        observers = std::move(it->second);
        _observersOf.erase(it);
        for (auto* o : observers) {
            auto subs = _subjectsOf.find(o);
            std::erase(subs->second, subject);
            if (subs->second.empty())
                _subjectsOf.erase(subs);
        }
    }
    for (auto* o : observers)
        _notifier->detachedFrom(o, subject);
}

void ObChangeManagerImp::forgetObserver(ObObserverAny* observer) {
    LkGuard guard(_lock);
    auto it = _subjectsOf.find(observer);
    if (it == _subjectsOf.end())
        return;
    for (auto* s : it->second) {
        auto obs = _observersOf.find(s);
        std::erase(obs->second, observer);
        if (obs->second.empty())
            _observersOf.erase(obs);
    }
    _subjectsOf.erase(it);
}

void ObChangeManagerImp::notify(ObSubjectAny* subject, ObHints const& hints) {
    std::vector<ObObserverAny*> observers;
    {
        LkGuard guard(_lock);
        auto it = _observersOf.find(subject);
        if (it == _observersOf.end())
            return;
        observers = it->second;
    }
    for (auto* o : observers) {
        bool stillAttached;
        {
            LkGuard guard(_lock);
            stillAttached = isAttachedLocked(o, subject);
        }
        if (stillAttached)
            _notifier->update(o, subject, hints);
    }
}

bool ObChangeManagerImp::isAttached(ObObserverAny const* observer,
                                    ObSubjectAny const* subject) const {
    LkGuard guard(_lock);
    return isAttachedLocked(observer, subject);
}

int ObChangeManagerImp::getNbObservers(ObSubjectAny const* subject) const {
    LkGuard guard(_lock);
    auto it = _observersOf.find(subject);
    return it == _observersOf.end() ? 0 : static_cast<int>(it->second.size());
}

} // namespace Vn
