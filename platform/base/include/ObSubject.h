#pragma once

#include "ObHint.h"
#include "VnExport.h"

namespace Vn {

template <class Tag>
class ObObserver;
template <class Tag>
class ObChangeManager;

// The untyped face of a subject, by which the change manager keeps it.
class VN_EXPORT ObSubjectAny {
public:
    virtual ~ObSubjectAny();

protected:
    ObSubjectAny() = default;
    ObSubjectAny(ObSubjectAny const&) noexcept {}
    ObSubjectAny& operator=(ObSubjectAny const&) noexcept { return *this; }
};

// Something observers of the family Tag watch. The subject holds no list of its own: the
// family's change manager keeps who watches whom. A copy starts unobserved, and a subject that
// dies is forgotten by the manager.
template <class Tag>
class VN_EXPORT ObSubject : public ObSubjectAny {
public:
    ~ObSubject() override;

    // False for null, for an observer already attached, and for one whose updates are disabled.
    bool attachObserver(ObObserver<Tag>* observer);
    // False when the observer was not attached.
    bool detachObserver(ObObserver<Tag>* observer);
    // Calls update of every observer attached now.
    void notify(ObHints const& hints);

    bool hasObserver(ObObserver<Tag> const* observer) const;
    int getNbObservers() const;

protected:
    ObSubject() = default;
    ObSubject(ObSubject const&) noexcept : ObSubjectAny() {}
    ObSubject& operator=(ObSubject const&) noexcept { return *this; }
};

} // namespace Vn

// The definitions above need the manager, which needs the subject.
#include "ObChangeManager.h"
