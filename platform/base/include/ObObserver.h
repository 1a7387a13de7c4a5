#pragma once

#include "ObHint.h"
#include "VnExport.h"

namespace Vn {

template <class Tag>
class ObSubject;
template <class Tag>
class ObNotifier;
template <class Tag>
class ObChangeManager;

// The untyped face of an observer, by which the change manager keeps it.
class VN_EXPORT ObObserverAny {
public:
    ObObserverAny(ObObserverAny const&) = delete;
    ObObserverAny& operator=(ObObserverAny const&) = delete;
    virtual ~ObObserverAny();

    bool areUpdatesEnabled() const noexcept { return _updatesEnabled; }

protected:
    ObObserverAny() = default;
    void markUpdatesDisabled() noexcept { _updatesEnabled = false; }

private:
    bool _updatesEnabled = true;
};

// Watches subjects of the family Tag. It hears of them through its private hooks, which the
// family's notifier calls; an observer overrides those it needs.
template <class Tag>
class VN_EXPORT ObObserver : public ObObserverAny {
public:
    // Detaches from every subject, unless updates were disabled before.
    ~ObObserver() override;

protected:
    ObObserver() = default;
    // Detaches from every subject for good: later attachments are refused.
    void disableUpdates();

private:
    friend class ObNotifier<Tag>;
    virtual void attachedTo(ObSubject<Tag>* subject);
    // Also called from the destructor of a dying subject: then the subject may be compared
    // with others, but not used.
    virtual void detachedFrom(ObSubject<Tag>* subject);
    // The subject that notified, and what it said.
    virtual void update(ObSubject<Tag>* subject, ObHints const& hints);
};

} // namespace Vn

#include "ObChangeManager.h"
