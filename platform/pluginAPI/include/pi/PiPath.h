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
// may be null). Subscribers hear when a node on the route leaves its graph.
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

    PiPath();
    PiPath(PiPath const& other);
    PiPath& operator=(PiPath const& other);
    ~PiPath() override;

    void addStep(Step step);
    void addStepFront(Step step);
    std::vector<Step> const& getSteps() const noexcept { return _steps; }
    int getSize() const noexcept { return static_cast<int>(_steps.size()); }
    bool isEmpty() const noexcept { return _steps.empty(); }
    // The path without its first step.
    RCShdPtr<PiPath> tail() const;
    bool operator==(PiPath const& o) const noexcept { return _steps == o._steps; }
    // One line per step: "node name(id) in:input out:output".
    std::string dump() const;

    // Called with this path when a node of it leaves its graph.
    void addInvalidateHandler(CbHandler<PiPath*>* h) { _invalidated.addHandler(h); }
    void removeInvalidateHandler(CbHandler<PiPath*>* h) { _invalidated.removeHandler(h); }

private:
    class Watcher;
    void watch(PiNode const& node);
    std::vector<Step> _steps;
    OPtr<Watcher> _watcher;
    CbDispatcher<PiPath*> _invalidated;
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
