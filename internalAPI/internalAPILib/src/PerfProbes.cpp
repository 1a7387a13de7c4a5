#include "PerfProbes.h"

#include "CompProc.h"
#include "IpTestPerf.h"
#include "IxGuardBase.h"
#include "TestScanlinePipeUtils.h"

#include <cstdlib>
#include <map>
#include <string>

namespace Vn {

namespace {

using Ops = TestScanlinePipeUtils::Operations;

std::map<std::string, Ops> const kOperations{
    {"NOOP", TestScanlinePipeUtils::PASS_THROUGH},
    {"BLUR", TestScanlinePipeUtils::BLUR},
    {"BLUR_OLD", TestScanlinePipeUtils::BLUR_ORIGINAL},
    {"DILATE", TestScanlinePipeUtils::DILATE},
    {"EDGE", TestScanlinePipeUtils::DETECT_EDGE},
    {"CONTROL_EDGE", TestScanlinePipeUtils::CONTROL_EDGE},
    {"FILL", TestScanlinePipeUtils::FILL},
    {"DISTANCE", TestScanlinePipeUtils::DISTANCE_TRANSFORM},
};
// The option word of each operation, for reports.
std::map<Ops, std::string> const kOperationWords = [] {
    std::map<Ops, std::string> m;
    for (auto const& [word, op] : kOperations)
        m.emplace(op, word);
    return m;
}();

std::map<std::string, IxScanlineComp::CompOp> const kCompOps{
    {"OVER", IxScanlineComp::OVER},       {"REPLACE", IxScanlineComp::REPLACE},
    {"ATOP", IxScanlineComp::ATOP},       {"INSIDE", IxScanlineComp::INSIDE},
    {"OUTSIDE", IxScanlineComp::OUTSIDE}, {"CUTOUT", IxScanlineComp::CUTOUT},
    {"XOR", IxScanlineComp::XOR},
};
std::map<std::string, IxScanlineComp::Correlation> const kCorrelations{
    {"NONE", IxScanlineComp::NONE},
    {"SUPERPOSED", IxScanlineComp::SUPERPOSED},
    {"ADJACENT", IxScanlineComp::ADJACENT},
};

// The value of key, looked up in words; the messages for a missing and an unknown one.
template <class V>
V lookUp(TestPerfBase::Options const& options, char const* key,
         std::map<std::string, V> const& words, char const* missing, char const* unknown) {
    auto const it = options.find(key);
    if (it == options.end())
        throw TestPerfBase::ExUsageError(__FILE__, __LINE__, missing);
    auto const w = words.find(it->second);
    if (w == words.end())
        throw TestPerfBase::ExUsageError(__FILE__, __LINE__, unknown);
    return w->second;
}

// The alpha scanline pipes against the older tile filter.
class ScanlinePipePerf final : public IpTestPerf {
public:
    ScanlinePipePerf() : IpTestPerf("ScanlinePerf", 2) {}
    ~ScanlinePipePerf() override = default;

    void run() override {
        getProfiler().start();
        auto const r = static_cast<float>(_radius);
        TestScanlinePipeUtils::performOperation(_dst, _src, _operation, IpDilate::DISC, r, r,
                                                nullptr);
        getProfiler().stop();
    }
    void cleanUp() override {
        _dst.reset();
        _src.reset();
        IpTestPerf::cleanUp();
    }
    std::string getUsage() const override {
        return "operation : BLUR,BLUR_OLD,DILATE,EDGE,CONTROL_EDGE,FILLDISTANCE,NOOP\n"
               "radius : 1.0-512.0 : filter radius\n";
    }
    void initialize(Options const& options) override {
        IpTestPerf::initialize(options);
        _dst = IxWriteGuard(getTile(1));
        _src = IxReadGuard(getTile(0));
        _operation = lookUp(options, "operation", kOperations, "No operation specified.",
                            "Unknown operation specified.");
        auto const radius = options.find("radius");
        if (radius == options.end())
            throw ExUsageError(__FILE__, __LINE__, "No radius specified.");
        _radius = std::atof(radius->second.c_str());
        if (!(_radius >= 1.0 && _radius <= 512.0))
            throw ExUsageError(__FILE__, __LINE__, "Radius must be from 1 to 512.");
    }

private:
    IxWriteGuard _dst;
    IxReadGuard _src;
    Ops _operation = TestScanlinePipeUtils::PASS_THROUGH;
    double _radius = 1.0;
};

// The compositing of two tiles.
class CompPerf final : public IpTestPerf {
public:
    CompPerf() : IpTestPerf("CompPerf", 3) {}
    ~CompPerf() override = default;

    void run() override {
        GeRectangle<int> const& span = getTile(1).getPixelRegion();
        using Color = CoRgbaColorTyped<float>;
        Color const white{1.0f, 1.0f, 1.0f, 1.0f};
        IxScanline<Color> mask(span.xmin, span.xmax,
                               IxPaddingPolicy<Color>(IxPaddingPolicy<Color>::CONSTANT, white));
        for (int x = span.xmin; x < span.xmax; ++x)
            mask[x] = white;
        CompProc proc(_dst, mask, _op, _correlation, 1.0f, 1.0f, 1.0f, 1.0f);
        getProfiler().start();
        proc.process(_fg, _bg);
        getProfiler().stop();
    }
    void cleanUp() override {
        _dst.reset();
        _fg.reset();
        _bg.reset();
        IpTestPerf::cleanUp();
    }
    std::string getUsage() const override {
        return "compositing : OVER,REPLACE,ATOP,INSIDE,OUTSIDE,CUTOUT,XOR\n"
               "correlation : NONE,SUPERPOSED,ADJACENT\n";
    }
    void initialize(Options const& options) override {
        IpTestPerf::initialize(options);
        _dst = IxWriteGuard(getTile(2));
        _fg = IxReadGuard(getTile(0));
        _bg = IxReadGuard(getTile(1));
        _op = lookUp(options, "compositing", kCompOps, "No compositing operation specified.",
                     "Unknown compositing operation specified.");
        _correlation = lookUp(options, "correlation", kCorrelations, "No correlation specified.",
                              "Unknown correlation specified.");
    }

private:
    IxWriteGuard _dst;
    IxReadGuard _fg;
    IxReadGuard _bg;
    IxScanlineComp::CompOp _op = IxScanlineComp::OVER;
    IxScanlineComp::Correlation _correlation = IxScanlineComp::NONE;
};

} // namespace

void PerfProbes::registerProbes() {
    TestPerfRegistry::registerProbe("ScanlinePerf",
                                    []() -> TestPerfBase* { return new ScanlinePipePerf; });
    TestPerfRegistry::registerProbe("CompPerf", []() -> TestPerfBase* { return new CompPerf; });
}

void PerfProbes::unregisterProbes() {
    TestPerfRegistry::unregisterProbe("CompPerf");
    TestPerfRegistry::unregisterProbe("ScanlinePerf");
}

} // namespace Vn
