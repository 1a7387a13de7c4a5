#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <functional>

namespace Vn {

// Work handed to the event thread.
class VN_EXPORT EvRequestEvent {
public:
    virtual ~EvRequestEvent();
    virtual void execute() = 0;
};

// Runs posted events on one event thread, in the order they were posted. The thread starts with
// the first event. A failing event is reported and does not stop the ones after it.
class VN_EXPORT EvEventManager {
public:
    static EvEventManager& getInstance();

    void postEvent(OPtr<EvRequestEvent> event);
    void post(std::function<void()> fn);
    // Returns when every event posted before the call has run. Called on the event thread it
    // returns at once.
    void flush();
    // Runs what is queued, then ends the thread; a later post starts it again.
    void stop();
    bool isEventThread() const;

    struct Impl;

private:
    EvEventManager();
    ~EvEventManager();
    Impl* _impl;
};

} // namespace Vn
