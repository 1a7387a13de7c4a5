#pragma once

// A pool whose thread 0 burns CPU while the others only start; then every thread notes its own
// CPU clock and id and sleeps until the pool stops: what the CPU time readers are measured on.
#include "LkCondVar.h"
#include "LkSema.h"
#include "MtThread.h"
#include "MtThreadPool.h"
#include "MtThreadTimes.h"

#include <cstddef>
#include <vector>

namespace VnTest {

// Burns CPU on the calling thread until it has used at least seconds of it.
inline void burnCpu(double seconds) {
    using Vn::MtThreadTimes;
    MtThreadTimes::Split const start = MtThreadTimes::timeSplit();
    volatile double sink = 0;
    while (MtThreadTimes::cpuTime(start, MtThreadTimes::timeSplit()) < seconds)
        for (int i = 0; i < 10000; ++i)
            sink = sink + 1.0;
}

class WorkThenSleepPool : public Vn::MtThreadPool {
public:
    WorkThenSleepPool(int n, double work)
        : MtThreadPool("cpuclock", 0, false, 0), _work(work), _lock("WorkThenSleepPool"),
          _cv("WorkThenSleepPool"), _ready("WorkThenSleepPool", 0),
          _own(static_cast<std::size_t>(n), 0), _ids(static_cast<std::size_t>(n), 0) {
        start(n);
        for (int i = 0; i < n; ++i)
            _ready.wait();
    }
    ~WorkThenSleepPool() override { stop(); }

    double _work;
    Vn::LkLock _lock;
    Vn::LkCondVar _cv;
    Vn::LkSema _ready;
    std::vector<Vn::MtThreadTimes::Split> _own;
    std::vector<Vn::MtThread::Id> _ids;

protected:
    void main(int index) override {
        if (index == 0)
            burnCpu(_work);
        {
            Vn::LkGuard g(_lock);
            _own[static_cast<std::size_t>(index)] = Vn::MtThreadTimes::timeSplit();
            _ids[static_cast<std::size_t>(index)] = Vn::MtThread::current().getId();
        }
        _ready.post();
        Vn::LkGuard g(_lock);
        while (!isStopping())
            _cv.wait(g);
    }
    void notifyStop() override {
        Vn::LkGuard g(_lock);
        _cv.broadcast();
    }
};

} // namespace VnTest
