#pragma once

#include "PxNode.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// Keeps the list of live processing nodes, sorted into named groups, and writes the node graph
// out for diagnosis. The engine library supplies the one instance at start; nodes tell it when
// they come and go, and whoever builds a part of the graph opens a group around it.
class VN_EXPORT PxDAGMonitor {
public:
    enum DumpStyle : int {
        TREE_IN_TRACE = 0,
        DOT_IN_TRACE = 1,
        DOT_FILE = 2,
        TREE_IN_TRACE_AND_DOT_FILE = 3,
    };
    enum ExecMode : int {
        SYNCHRONOUS = 0,
        ASYNCHRONOUS = 1,
    };

    // Takes ownership.
    static void initialize(PxDAGMonitor* monitor);
    // Destroys the instance; without one, what nodes report is dropped.
    static void finalize();
    static PxDAGMonitor& getInstance();
    static PxDAGMonitor* tryGetInstance() noexcept;
    static bool isInitialized() noexcept;

    virtual void dump(ExecMode execMode, DumpStyle style) = 0;
    // What the calling thread is evaluating.
    virtual std::string const& getCurrentEvaluationName() = 0;
    virtual ~PxDAGMonitor();
    // Not on a worker.
    virtual void nodeCreated(PxWeakHndl<PxNode> const& node) = 0;
    virtual void nodeDestroyed(PxNode* node) = 0;
    virtual void pushGroup(std::string const& name) = 0;
    virtual void pushTopLevelGroup() = 0;
    virtual void popGroup() = 0;

protected:
    PxDAGMonitor() = default;
    PxDAGMonitor(PxDAGMonitor const&) = delete;
    PxDAGMonitor& operator=(PxDAGMonitor const&) = delete;
};

// Nodes made while it lives join a group: a new named one, or the top level. Does nothing when
// no monitor exists.
class VN_EXPORT PxDAGMonitorGroupGuard {
public:
    struct TopLevel {};
    explicit PxDAGMonitorGroupGuard(std::string const& name);
    explicit PxDAGMonitorGroupGuard(TopLevel);
    PxDAGMonitorGroupGuard(PxDAGMonitorGroupGuard const&) = delete;
    PxDAGMonitorGroupGuard& operator=(PxDAGMonitorGroupGuard const&) = delete;
    ~PxDAGMonitorGroupGuard();

private:
    bool _pushed = false;
};

} // namespace Vn
