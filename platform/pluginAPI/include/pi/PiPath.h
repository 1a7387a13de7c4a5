#pragma once

#include "Cb.h"
#include "OPtr.h"
#include "PiNode.h"
#include "RCBase.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

// A route through a graph: steps of a node and the input and output it was reached by (either
// may be null). Subscribers hear, with the path itself, when the route breaks: a node on it
// leaves its graph, or an input on it loses its connection. Paths are shared objects: made by
// create(), copy() and tail(), held by RCShdPtr.
class VN_EXPORT PiPath : public RCBase<LkCounter<int>> {
public:
    struct VN_EXPORT Step {
        RCShdPtr<PiNode> node;
        RCShdPtr<PiInput> input;
        RCShdPtr<PiOutput> output;
        bool operator==(Step const& o) const noexcept {
            return node == o.node && input == o.input && output == o.output;
        }
    };
    using InvalidateCb = CbHandler<RCShdPtr<PiPath>>;

    static RCShdPtr<PiPath> create();
    PiPath(PiPath const&) = delete;
    PiPath& operator=(PiPath const&) = delete;
    ~PiPath() override;

    void addStep(Step step);
    void addStepFront(Step step);
    // Drops the last step.
    void popTail();
    std::vector<Step> const& getSteps() const noexcept { return _steps; }
    int getSize() const noexcept { return static_cast<int>(_steps.size()); }
    bool isEmpty() const noexcept { return _steps.empty(); }
    // An independent path with the same steps, equal to this one, with no subscribers.
    RCShdPtr<PiPath> copy() const;
    // The path without its first step.
    RCShdPtr<PiPath> tail() const;
    bool operator==(PiPath const& o) const noexcept { return _steps == o._steps; }
    // One line per step: "node name(id) in:input out:output".
    std::string dump() const;

    // The path stays alive while its subscribers are called, even when the last holder lets it
    // go from inside a callback.
    void addInvalidateCb(InvalidateCb* cb) const { _invalidated.addHandler(cb); }
    void removeInvalidateCb(InvalidateCb* cb) const { _invalidated.removeHandler(cb); }

private:
    PiPath();
    class Watcher;
    void watch(Step const& step);
    void invalidate();
    std::vector<Step> _steps;
    OPtr<Watcher> _watcher;
    mutable CbDispatcher<RCShdPtr<PiPath>> _invalidated;
};

using PiPathPtr = RCShdPtr<PiPath>;

// A path and the time at which it is looked at, in seconds.
class VN_EXPORT PiTimePath {
public:
    PiTimePath(PiPathPtr path, double seconds) : _path(std::move(path)), _seconds(seconds) {}
    PiPathPtr const& getPath() const noexcept { return _path; }
    double getTime() const noexcept { return _seconds; }
    bool operator==(PiTimePath const& o) const noexcept {
        return _seconds == o._seconds &&
               (_path == o._path || (_path && o._path && *_path == *o._path));
    }

private:
    PiPathPtr _path;
    double _seconds;
};

} // namespace Vn
