#include "PxDAGMonitorImp.h"

#include "Assertions.h"
#include "EnvIntVar.h"
#include "EvCallbackEvents.h"
#include "EvEventManager.h"
#include "ExBase.h"
#include "LkLock.h"
#include "LkThreadOpaqueData.h"
#include "MtThreadMgr.h"
#include "PxGraphLog.h"
#include "PxImageProtocol.h"
#include "PxImageSourceNodes.h"
#include "PxRequest.h"
#include "PxRequestMgr.h"
#include "Trace.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <map>
#include <memory>
#include <sstream>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Vn {

namespace {

using GroupId = std::uint32_t;

// The monitor's process-wide state. Never destroyed: nodes may die during static destruction.
struct MonitorState {
    LkLock _lock{"PxDAGMonitor"};
    std::map<PxNode*, GroupId> _nodes;
    std::map<GroupId, std::string> _groupNames{{0, "Unknown"}, {1, "Top Level"}};
    std::vector<GroupId> _groupStack{1};
    GroupId _nextGroupId = 2;
};

MonitorState& state() {
    static MonitorState* s = new MonitorState;
    return *s;
}

EnvIntVar s_prunedDump(__FILE__, "VN_PX_PRUNED_DAG_DUMP", 1);
// -1 while the variable decides.
std::atomic<int> s_pruningOverride{-1};

// Touched only by dumps, which are sequential, and by restartFileRun.
struct FileRun {
    int _run = 0; // 0 until settled
    int _nextSequence = 0;
    bool _hasLast = false;
    std::string _lastText;
};
FileRun& fileRun() {
    static FileRun* r = new FileRun;
    return *r;
}

bool onWorker() {
    return PxRequestMgr::isInitialized() && PxRequestMgr::getInstance().isWorkerThreadCurrent();
}

// ---- evaluation names ----

using NameStack = std::vector<std::string>;

void* makeNameStack(void*) {
    auto* stack = new NameStack;
    if (onWorker()) {
        stack->push_back("Top-level PxRequest");
    } else if (MtThreadInfo const* info = MtThreadMgr::getInstance().findCurrentThread()) {
        stack->push_back(info->getPoolName() + " " + std::to_string(info->getIndex()) + " thread");
    } else if (EvEventManager::getInstance().isEventThread()) {
        stack->push_back("Application thread");
    } else {
        stack->push_back("External thread");
    }
    return stack;
}

void freeNameStack(void* pointee, void*) {
    delete static_cast<NameStack*>(pointee);
}

NameStack& nameStack() {
    // Never destroyed: threads may end after static destruction.
    static LkThreadOpaqueData* slot =
        LkThreadOpaqueDataFactory::create("Px evaluation node names stack", &makeNameStack,
                                          &freeNameStack)
            .release();
    return *static_cast<NameStack*>(slot->getPointee());
}

// ---- the dump ----

struct DagNodeRecord {
    DagNodeRecord(PxNode const* node, GroupId group) : _node(node), _group(group) {}
    PxNode const* _node;
    GroupId _group;
    std::vector<DagNodeRecord*> _children;
    std::vector<DagNodeRecord*> _parents;
    std::int32_t _mark = -1;
    // On the DOT writer's path: a cycle must not send it round forever.
    bool _visiting = false;
};

std::string demangledClassName(PxNode const& node) {
    char const* mangled = typeid(node).name();
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    std::string name = status == 0 && demangled ? demangled.get() : mangled;
    auto const cut = name.find("::");
    if (cut != std::string::npos)
        name.erase(0, cut + 2);
    return name;
}

std::vector<std::string> labelLines(PxNode const* node) {
    std::ostringstream address;
    address << "(" << static_cast<void const*>(node) << ")";
    return {demangledClassName(*node), address.str()};
}

std::string joinedLabel(PxNode const* node) {
    auto const lines = labelLines(node);
    std::string s;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i)
            s += "\\n";
        s += lines[i];
    }
    return s;
}

// Group names come from tools: a quote would end the DOT string early.
std::string dotEscaped(std::string const& text) {
    std::string s;
    for (char c : text) {
        if (c == '"')
            s += "\\\"";
        else if (c == '\n')
            s += "\\n";
        else
            s += c;
    }
    return s;
}

void eraseOne(std::vector<DagNodeRecord*>& list, DagNodeRecord const* r) {
    auto it = std::find(list.begin(), list.end(), r);
    if (it != list.end())
        list.erase(it);
}

std::string runLetters(int run) {
    std::string digits;
    for (int n = run; n > 0; n /= 26)
        digits.insert(digits.begin(), static_cast<char>(64 + n % 26));
    return digits;
}

std::string dumpFileName(int run, int sequence) {
    char number[32];
    std::snprintf(number, sizeof number, "%06d", sequence);
    return "PxDAG_" + runLetters(run) + "_" + number + ".dot";
}

bool canOpenForReading(std::string const& name) {
    std::FILE* f = std::fopen(name.c_str(), "r");
    if (!f)
        return false;
    std::fclose(f);
    return true;
}

// Writes the whole text; false with errno set when the file could not be completed.
bool writeWhole(std::FILE* f, std::string const& text) {
    bool ok = std::fprintf(f, "%s", text.c_str()) >= 0;
    ok = std::fclose(f) == 0 && ok;
    return ok;
}

class DumpDAGRequest final : public PxRequest {
public:
    DumpDAGRequest(ReferencingMode mode, PxDAGMonitor::DumpStyle style)
        : _requestRefMode(mode), _style(style) {}

    // Writes the graph under one node into a named file instead.
    DumpDAGRequest(PxNode const* root, std::string fileName)
        : _requestRefMode(REFERENCED), _style(PxDAGMonitor::DOT_FILE), _root(root),
          _fileName(std::move(fileName)) {}

    RequestType getRequestType() const override {
        return RequestType(SEQUENTIAL, ReferencingMode(_requestRefMode), CPU);
    }
    void performExecute() override;
    void postExecute() override;
    void performCleanUp() override {
        _records.clear();
        _roots.clear();
        _groupNames.clear();
    }

    void waitDump() {
        Trace& trace = PxDAGMonitorImp::getTrace();
        if (trace.isEnabled(Trace::MainTraceLevel))
            trace.log(Trace::MainTraceLevel,
                      std::string("_requestRefMode == REFERENCED is ") +
                          (_requestRefMode == REFERENCED ? "true" : "false"));
        VN_ASSERT(_requestRefMode == REFERENCED);
        PxRequestMgr::getInstance().waitRequest(this);
    }

private:
    void collect();
    void keepOnlyUnderRoot();
    void prune();
    void writeTree();
    std::string dotText();
    void writeGroup(std::string& text, GroupId group,
                    std::map<GroupId, std::vector<DagNodeRecord*>> const& byGroup);
    void writeDumpFile(std::string const& text);
    void writeNamedFile(std::string const& text);
    std::string groupName(GroupId group) const {
        auto it = _groupNames.find(group);
        return it == _groupNames.end() ? std::string() : it->second;
    }

    std::uint32_t _requestRefMode;
    PxDAGMonitor::DumpStyle _style;
    std::int32_t _nbDumped = 0;
    std::map<PxNode const*, DagNodeRecord> _records;
    std::map<GroupId, std::string> _groupNames;
    std::vector<DagNodeRecord*> _roots;
    PxNode const* _root = nullptr;
    std::string _fileName;
    std::vector<PxNode const*> _held; // strong references, while the dump runs
};

void DumpDAGRequest::performExecute() {
    Trace& trace = PxDAGMonitorImp::getTrace();
    VN_TRACE_SCOPE(trace, Trace::MainTraceLevel, "Px DAG dump");
    // The listed nodes are held strongly while the dump runs, and let go after the monitor's
    // lock: the last of them may go then, and going takes that lock.
    struct LetGo {
        std::vector<PxNode const*>& held;
        ~LetGo() {
            for (PxNode const* n : std::exchange(held, {})) {
                try {
                    n->releaseStrongRef();
                } catch (...) {
                    // the node's own end failed; the dump has nothing to add
                }
            }
        }
    } letGo{_held};
    // Nodes met only as parents are not held: a node on its way out tells the monitor first,
    // under this lock, so held from the walk to the last label it keeps their memory.
    LkGuard monitorLock(state()._lock);
    collect();
    if (_root)
        keepOnlyUnderRoot();
    if (PxDAGMonitorImp::isPruning())
        prune();

    if (_style == PxDAGMonitor::DOT_FILE)
        trace.log(Trace::MainTraceLevel, "Dumping DOT file");
    else
        trace.log(Trace::MainTraceLevel, std::to_string(_records.size()) + " nodes.");

    switch (_style) {
    case PxDAGMonitor::TREE_IN_TRACE:
        writeTree();
        break;
    case PxDAGMonitor::DOT_IN_TRACE:
        trace.log(Trace::MainTraceLevel, dotText());
        break;
    case PxDAGMonitor::DOT_FILE:
        if (_root)
            writeNamedFile(dotText());
        else
            writeDumpFile(dotText());
        break;
    case PxDAGMonitor::TREE_IN_TRACE_AND_DOT_FILE:
        writeTree();
        writeDumpFile(dotText());
        break;
    }
}

void DumpDAGRequest::postExecute() {
    // A synchronous dump's caller raises the failure from its own wait; an asynchronous one has
    // only the log.
    try {
        PxRequestMgr::getInstance().waitRequest(this);
    } catch (ExBase const& e) {
        if (_requestRefMode == FIRE_AND_FORGET)
            VN_LOG_GROUP(PxGraph, 0, "The DAG dump failed: " << e.getDetailedReason());
    } catch (std::exception const& e) {
        if (_requestRefMode == FIRE_AND_FORGET)
            VN_LOG_GROUP(PxGraph, 0, "The DAG dump failed: " << e.what());
    } catch (...) {
        if (_requestRefMode == FIRE_AND_FORGET)
            VN_LOG_GROUP(PxGraph, 0, "The DAG dump failed");
    }
}

void DumpDAGRequest::collect() {
    MonitorState& st = state();
    std::vector<std::pair<PxNode const*, GroupId>> work;
    work.reserve(st._nodes.size());
    for (auto const& [node, group] : st._nodes) {
        if (!node)
            continue;
        // Held whole while a handle exists; one without handles is still a child somewhere, and
        // the monitor's lock keeps its memory.
        if (node->tryAddStrongRef())
            _held.push_back(node);
        work.emplace_back(node, group);
    }
    _groupNames = st._groupNames;
    for (auto const& [node, group] : work)
        _records.try_emplace(node, node, group);
    if (_root && _records.find(_root) == _records.end()) {
        _records.try_emplace(_root, _root, 0u);
        work.emplace_back(_root, 0);
    }

    while (!work.empty()) {
        auto const [node, group] = work.back();
        work.pop_back();
        if (!node)
            continue;
        DagNodeRecord& rec = _records.try_emplace(node, node, group).first->second;
        int const nbParents = node->getNbParents();
        if (nbParents == 0)
            _roots.push_back(&rec);
        for (int i = 0; i < nbParents; ++i) {
            PxNode const* parent = node->getParent(i);
            auto [it, inserted] = _records.try_emplace(parent, parent, 0u);
            if (inserted)
                work.emplace_back(parent, 0);
            rec._parents.push_back(&it->second);
            it->second._children.push_back(&rec);
        }
    }
}

// The graph under the root is the root and what it reaches through children; links to anything
// else are cut, so the root heads the dump.
void DumpDAGRequest::keepOnlyUnderRoot() {
    DagNodeRecord& root = _records.at(_root);
    std::vector<DagNodeRecord*> todo{&root};
    root._mark = 0;
    while (!todo.empty()) {
        DagNodeRecord* r = todo.back();
        todo.pop_back();
        for (DagNodeRecord* c : r->_children)
            if (c->_mark == -1) {
                c->_mark = 0;
                todo.push_back(c);
            }
    }
    _roots.clear();
    // Cut the links first: the records they lead to are still there to be asked.
    for (auto& [node, r] : _records)
        if (r._mark != -1)
            std::erase_if(r._parents, [](DagNodeRecord const* p) { return p->_mark == -1; });
    std::erase_if(_records, [](auto const& entry) { return entry.second._mark == -1; });
    for (auto& [node, r] : _records) {
        r._mark = -1;
        if (r._parents.empty())
            _roots.push_back(&r);
    }
}

void DumpDAGRequest::prune() {
    for (auto it = _records.begin(); it != _records.end();) {
        DagNodeRecord& r = it->second;
        bool const goes = dynamic_cast<PxBlackSourceNode const*>(r._node) ||
                          (r._parents.size() <= 1 && r._children.size() <= 1 &&
                           !dynamic_cast<PxImageFormatProtocol const*>(r._node));
        if (!goes) {
            ++it;
            continue;
        }
        // A link is bridged only from one parent to one child, so that both of its ends know
        // it: a black source with several parents and a child would otherwise leave one end
        // pointing at a record that a later removal frees.
        bool const bridge = r._parents.size() == 1 && r._children.size() == 1;
        for (DagNodeRecord* p : r._parents) {
            eraseOne(p->_children, &r);
            if (bridge)
                p->_children.push_back(r._children.front());
        }
        for (DagNodeRecord* c : r._children) {
            eraseOne(c->_parents, &r);
            if (bridge)
                c->_parents.push_back(r._parents.front());
        }
        eraseOne(_roots, &r);
        it = _records.erase(it);
    }
}

// Iterative: a chain of any length fits in the heap, not in a worker's stack.
void DumpDAGRequest::writeTree() {
    Trace& trace = PxDAGMonitorImp::getTrace();
    if (!trace.isEnabled(Trace::MainTraceLevel))
        return; // nobody would see it
    std::vector<std::pair<DagNodeRecord*, int>> stack;
    for (DagNodeRecord* root : _roots) {
        stack.emplace_back(root, 1);
        while (!stack.empty()) {
            auto const [r, depth] = stack.back();
            stack.pop_back();
            std::string line(static_cast<std::size_t>(depth) * 4, ' ');
            bool const isNew = r->_mark == -1;
            if (isNew)
                r->_mark = ++_nbDumped;
            else
                line += "<";
            line += "Node " + std::to_string(r->_mark) + ":";
            if (r->_group != 1)
                line += " " + groupName(r->_group) + "-";
            for (auto const& l : labelLines(r->_node))
                line += " " + l;
            if (!isNew)
                line += " " + std::to_string(r->_children.size()) + " children>";
            trace.log(Trace::MainTraceLevel, line);
            if (isNew)
                for (auto c = r->_children.rbegin(); c != r->_children.rend(); ++c)
                    stack.emplace_back(*c, depth + 1);
        }
    }
}

void DumpDAGRequest::writeGroup(std::string& text, GroupId group,
                                std::map<GroupId, std::vector<DagNodeRecord*>> const& byGroup) {
    bool const cluster = group != 0 && group != 1;
    std::string const tab = cluster ? "\t" : "";
    if (cluster) {
        text += "\tsubgraph cluster_" + std::to_string(group) + " {\n";
        text += "\t\tlabel = \"" + dotEscaped(groupName(group)) + "\";\n";
    }
    auto it = byGroup.find(group);
    if (it != byGroup.end()) {
        for (DagNodeRecord* r : it->second) {
            r->_mark = 0;
            text += tab + "\t\"" + joinedLabel(r->_node) + "\"";
            if (r->_parents.size() == 1) {
                text += "->\"" + joinedLabel(r->_parents.front()->_node) + "\"";
            } else if (r->_parents.size() > 1) {
                text += "->{\n";
                for (DagNodeRecord* p : r->_parents)
                    text += tab + "\t\t\"" + joinedLabel(p->_node) + "\"\n";
                text += tab + "\t}";
            }
            text += "\n";
        }
    }
    if (cluster)
        text += "\t}\n";
}

// The groups of a node's parents are written before its own. Iterative, as the tree writer.
std::string DumpDAGRequest::dotText() {
    std::map<GroupId, std::vector<DagNodeRecord*>> byGroup;
    for (auto& [node, r] : _records) {
        r._mark = -1; // the tree writer may have marked them
        byGroup[r._group].push_back(&r);
    }
    std::string text = "digraph G {\n\trankdir=LR;\n";
    struct Frame {
        DagNodeRecord* _record;
        std::size_t _nextParent;
    };
    std::vector<Frame> stack;
    for (auto& [node, start] : _records) {
        if (start._mark != -1)
            continue;
        stack.push_back({&start, 0});
        start._visiting = true;
        while (!stack.empty()) {
            Frame& f = stack.back();
            if (f._nextParent < f._record->_parents.size()) {
                DagNodeRecord* p = f._record->_parents[f._nextParent++];
                if (p->_mark == -1 && !p->_visiting) {
                    p->_visiting = true;
                    stack.push_back({p, 0});
                }
                continue;
            }
            DagNodeRecord* r = f._record;
            stack.pop_back();
            r->_visiting = false;
            if (r->_mark == -1)
                writeGroup(text, r->_group, byGroup);
        }
    }
    text += "}";
    return text;
}

void DumpDAGRequest::writeDumpFile(std::string const& text) {
    FileRun& run = fileRun();
    if (run._run == 0) {
        int n = 1;
        while (canOpenForReading(dumpFileName(n, 0)))
            ++n;
        run._run = n;
    }
    if (run._hasLast && run._lastText == text)
        return;
    std::string const name = dumpFileName(run._run, run._nextSequence);
    std::FILE* f = std::fopen(name.c_str(), "w");
    // clang-format off
    VN_ASSERT(f != 0);
    // clang-format on
    if (!writeWhole(f, text))
        throw MsgException<ExBase>(__FILE__, __LINE__,
                                   "Could not write the DAG dump \"" + name +
                                       "\": " + std::strerror(errno));
    // Remembered once written: after a failure the same graph is tried again.
    run._lastText = text;
    run._hasLast = true;
    ++run._nextSequence;
}

void DumpDAGRequest::writeNamedFile(std::string const& text) {
    std::FILE* f = std::fopen(_fileName.c_str(), "w");
    if (!f || !writeWhole(f, text))
        throw MsgException<ExBase>(__FILE__, __LINE__,
                                   "Could not write the DAG dump \"" + _fileName +
                                       "\": " + std::strerror(errno));
}

// Runs dump(ASYNCHRONOUS, style) again on the application thread.
void dumpOnApplicationThread(PxDAGMonitor::DumpStyle const& style, PxDAGMonitor::ExecMode mode) {
    if (!PxRequestMgr::isInitialized())
        return;
    if (PxDAGMonitor* monitor = PxDAGMonitor::tryGetInstance())
        monitor->dump(mode, style);
}

CbDataFunction<PxDAGMonitor::DumpStyle const, PxDAGMonitor::ExecMode>& applicationThreadHandler() {
    static auto* handler =
        new CbDataFunction<PxDAGMonitor::DumpStyle const, PxDAGMonitor::ExecMode>(
            &dumpOnApplicationThread, PxDAGMonitor::ASYNCHRONOUS);
    return *handler;
}

} // namespace

// ---- the monitor ----

PxDAGMonitorImp::PxDAGMonitorImp() = default;

PxDAGMonitorImp::~PxDAGMonitorImp() {
    MonitorState& st = state();
    LkGuard g(st._lock);
    st._nodes.clear();
}

void PxDAGMonitorImp::dump(ExecMode execMode, DumpStyle style) {
    VN_ASSERT(style >= TREE_IN_TRACE && style <= TREE_IN_TRACE_AND_DOT_FILE);
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    if (execMode == SYNCHRONOUS) {
        // A worker waiting for a sequential request would wait for itself.
        VN_ASSERT(!mgr.isWorkerThreadCurrent());
        PxRequestPtr<DumpDAGRequest> request(new DumpDAGRequest(PxRequest::REFERENCED, style));
        mgr.executeRequest(request.get(), false);
        request->waitDump();
        return;
    }
    // In our host the event thread is the application thread.
    if (EvEventManager::getInstance().isEventThread()) {
        PxRequestPtr<DumpDAGRequest> request(new DumpDAGRequest(PxRequest::FIRE_AND_FORGET, style));
        mgr.executeRequest(request.get(), false);
        return;
    }
    EvEventManager::getInstance().postEvent(
        OPtr<EvRequestEvent>(new EvRequestCb<DumpStyle const>(&applicationThreadHandler(), style)));
}

std::string const& PxDAGMonitorImp::getCurrentEvaluationName() {
    NameStack const& stack = nameStack();
    static std::string const none;
    return stack.empty() ? none : stack.back();
}

void PxDAGMonitorImp::nodeCreated(PxWeakHndl<PxNode> const& node) {
    // clang-format off
    VN_ASSERT(!onWorker());
    // clang-format on
    PxNode* key = node.lock().get();
    MonitorState& st = state();
    LkGuard g(st._lock);
    st._nodes[key] = st._groupStack.empty() ? 0 : st._groupStack.back();
}

void PxDAGMonitorImp::nodeDestroyed(PxNode* node) {
    MonitorState& st = state();
    LkGuard g(st._lock);
    st._nodes.erase(node);
}

void PxDAGMonitorImp::pushGroup(std::string const& name) {
    MonitorState& st = state();
    LkGuard g(st._lock);
    GroupId const id = st._nextGroupId++;
    st._groupNames[id] = name;
    st._groupStack.push_back(id);
}

void PxDAGMonitorImp::pushTopLevelGroup() {
    MonitorState& st = state();
    LkGuard g(st._lock);
    st._groupStack.push_back(1);
}

void PxDAGMonitorImp::popGroup() {
    MonitorState& st = state();
    LkGuard g(st._lock);
    VN_ASSERT(!st._groupStack.empty());
    st._groupStack.pop_back();
}

PxDAGMonitorImp::PxNodeEvaluationGuard::PxNodeEvaluationGuard(std::string const& name) {
    nameStack().push_back(name);
}

PxDAGMonitorImp::PxNodeEvaluationGuard::~PxNodeEvaluationGuard() {
    nameStack().pop_back();
}

void PxDAGMonitorImp::writeDOTFile(PxStrongHndl<PxNode const> const& root,
                                   std::string const& fileName) {
    if (root.isNull())
        RCExUtil::throwExNullPtr("PxNode");
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    VN_ASSERT(!mgr.isWorkerThreadCurrent());
    PxRequestPtr<DumpDAGRequest> request(new DumpDAGRequest(root.get(), fileName));
    mgr.executeRequest(request.get(), false);
    request->waitDump();
}

Trace& PxDAGMonitorImp::getTrace() {
    static Trace* trace = new Trace("PxDAGMonitor");
    return *trace;
}

bool PxDAGMonitorImp::isPruning() noexcept {
    int const o = s_pruningOverride.load(std::memory_order_relaxed);
    return o < 0 ? s_prunedDump.getValue() != 0 : o != 0;
}

void PxDAGMonitorImp::setPruning(bool pruning) noexcept {
    s_pruningOverride.store(pruning ? 1 : 0, std::memory_order_relaxed);
}

void PxDAGMonitorImp::restartFileRun() {
    fileRun() = FileRun{};
}

std::size_t PxDAGMonitorImp::getNbNodes() {
    MonitorState& st = state();
    LkGuard g(st._lock);
    return st._nodes.size();
}

bool PxDAGMonitorImp::findNodeGroup(PxNode const* node, std::uint32_t* group) {
    MonitorState& st = state();
    LkGuard g(st._lock);
    auto it = st._nodes.find(const_cast<PxNode*>(node));
    if (it == st._nodes.end())
        return false;
    if (group)
        *group = it->second;
    return true;
}

std::uint32_t PxDAGMonitorImp::getCurrentGroup() {
    MonitorState& st = state();
    LkGuard g(st._lock);
    return st._groupStack.empty() ? 0 : st._groupStack.back();
}

std::string PxDAGMonitorImp::getGroupName(std::uint32_t group) {
    MonitorState& st = state();
    LkGuard g(st._lock);
    auto it = st._groupNames.find(group);
    return it == st._groupNames.end() ? std::string() : it->second;
}

} // namespace Vn
