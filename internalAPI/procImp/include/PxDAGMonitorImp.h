#pragma once

#include "PxDAGMonitor.h"
#include "VnExport.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Vn {

class Trace;

// The engine's DAG monitor. It has no fields: the node list, the groups and the lock are shared
// by the process, so that nodes may come and go from any thread. A dump is a sequential request:
// no node evaluates while the graph is read.
class VN_EXPORT PxDAGMonitorImp final : public PxDAGMonitor {
public:
    PxDAGMonitorImp();
    // Empties the node list: without a monitor, nodes that die cannot leave it.
    ~PxDAGMonitorImp() override;

    void dump(ExecMode execMode, DumpStyle style) override;
    std::string const& getCurrentEvaluationName() override;
    void nodeCreated(PxWeakHndl<PxNode> const& node) override;
    void nodeDestroyed(PxNode* node) override;
    void pushGroup(std::string const& name) override;
    void pushTopLevelGroup() override;
    void popGroup() override;

    // Names what the constructing thread evaluates while it lives.
    class VN_EXPORT PxNodeEvaluationGuard {
    public:
        explicit PxNodeEvaluationGuard(std::string const& name);
        PxNodeEvaluationGuard(PxNodeEvaluationGuard const&) = delete;
        PxNodeEvaluationGuard& operator=(PxNodeEvaluationGuard const&) = delete;
        ~PxNodeEvaluationGuard();
    };

    // Writes the DOT text of `root` and of every node below it into `fileName`, replacing the
    // file, and returns when it is written. The graph is pruned as in the other dumps. Nodes only
    // reach the dump through the monitor's list: call it outside the workers, and while the
    // graph is not being edited. Raises when the file cannot be written.
    static void writeDOTFile(PxStrongHndl<PxNode const> const& root, std::string const& fileName);

    // Where the tree and the DOT text go; VN_TRACE_PxDAGMonitor sets its level at start.
    static Trace& getTrace();
    // Whether dumps leave out the black sources and the nodes other than image nodes where the
    // graph neither forks nor joins; from
    // VN_PX_PRUNED_DAG_DUMP (default on) until set here.
    static bool isPruning() noexcept;
    static void setPruning(bool pruning) noexcept;

    // Forgets the file run, its sequence number and the last text written, as at process start;
    // for a program that moves to another directory between dumps.
    static void restartFileRun();

    // What the list holds, for diagnosis.
    static std::size_t getNbNodes();
    // The group of a listed node; false when it is not listed.
    static bool findNodeGroup(PxNode const* node, std::uint32_t* group);
    // The group new nodes join.
    static std::uint32_t getCurrentGroup();
    // "" for an id never given.
    static std::string getGroupName(std::uint32_t group);
};

} // namespace Vn
