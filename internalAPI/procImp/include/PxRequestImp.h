#pragma once

#include "Cb.h"
#include "VnExport.h"

namespace Vn {

// Exported controls of the request engine.
class VN_EXPORT PxRequestImp {
public:
    // The pool size for the next start: the smaller of n and VN_NB_PXREQUEST_THREADS, at least 2.
    // Refused, with a log line, while the pool runs.
    static void setNbWorkerThreads(int n);

    // One handler each, run on the GFX worker: before its first GFX request, and when it ends.
    static void registerGFXInitialize(CbHandler<CbEmptyType>* cb);
    static void registerGFXFinalize(CbHandler<CbEmptyType>* cb);

    // CPU time of one scope on a thread, without the scopes nested in it but with the requests
    // it waited for. Off until enabled from a sequential request.
    class VN_EXPORT CascadingTimer {
    public:
        CascadingTimer();
        CascadingTimer(CascadingTimer const&) = delete;
        CascadingTimer& operator=(CascadingTimer const&) = delete;
        ~CascadingTimer();
        // Ends the scope once; later calls give the same value. 0 when the timer is off.
        double stop();

        static bool isEnabled();
        static void enable(bool on);

    private:
        bool _running = true;
        bool _levelStarted = false;
        float _elapsed = 0.0f;
    };
};

} // namespace Vn
