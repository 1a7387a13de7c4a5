#pragma once

namespace Vn {

// The measurement programs "ScanlinePerf" and "CompPerf", registered at package start.
struct PerfProbes {
    static void registerProbes();
    static void unregisterProbes();
};

} // namespace Vn
