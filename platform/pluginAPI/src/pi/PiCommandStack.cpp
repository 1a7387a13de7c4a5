#include "PiCommandStack.h"

#include "Assertions.h"
#include "PiGraph.h"

#include <exception>

namespace Vn {

PiAction::~PiAction() = default;

PiCommandStack::PiCommandStack() = default;
PiCommandStack::~PiCommandStack() = default;

namespace {
thread_local int t_toolBuilds = 0;
} // namespace

PiCommandStack::ToolBuildScope::ToolBuildScope() noexcept {
    ++t_toolBuilds;
}

PiCommandStack::ToolBuildScope::~ToolBuildScope() {
    --t_toolBuilds;
}

bool PiCommandStack::isInToolBuild() noexcept {
    return t_toolBuilds > 0;
}

void PiCommandStack::record(OPtr<PiAction> action) {
    if (t_toolBuilds > 0)
        Assertions::throwAssertionFailed(
            __FILE__, __LINE__, "a tool edited a graph while building its processing nodes");
    VN_ASSERT(!_replaying);
    VN_ASSERT(_depth > 0);
    action->apply();
    PiAction& a = *action;
    // Unlogged actions stay in the open command until it closes, so that a failure rolls them
    // back like the others; they never reach the history.
    _current.actions.push_back(std::move(action));
    _logged.push_back(_noLogDepth == 0);
    a.notifyApplied();
}

std::string const& PiCommandStack::getUndoLabel(int i) const {
    VN_ASSERT(i >= 0 && i < getUndoCount());
    return _undo[_undo.size() - 1 - static_cast<std::size_t>(i)].label;
}

std::string const& PiCommandStack::getRedoLabel(int i) const {
    VN_ASSERT(i >= 0 && i < getRedoCount());
    return _redo[_redo.size() - 1 - static_cast<std::size_t>(i)].label;
}

std::size_t PiCommandStack::open(std::string const& label, bool log) {
    VN_ASSERT(!_replaying);
    if (_depth++ == 0) {
        _current.label = label;
        _current.actions.clear();
        _logged.clear();
    }
    if (!log)
        ++_noLogDepth;
    return _current.actions.size();
}

void PiCommandStack::close(bool log, std::size_t mark, bool failed) {
    if (failed) {
        // The exception in flight is the one that matters.
        try {
            revertFrom(_current, mark);
        } catch (...) {
        }
    }
    if (!log)
        --_noLogDepth;
    if (--_depth > 0)
        return;
    Command c = std::move(_current);
    _current = Command();
    bool changed = false;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < c.actions.size(); ++i) {
        changed = true;
        if (_logged[i])
            c.actions[kept++] = std::move(c.actions[i]);
    }
    c.actions.resize(kept);
    _logged.clear();
    if (!c.actions.empty()) {
        _undo.push_back(std::move(c));
        _redo.clear();
    }
    if (changed)
        _processed.call();
}

void PiCommandStack::revertFrom(Command& c, std::size_t mark) {
    std::exception_ptr first;
    while (c.actions.size() > mark) {
        OPtr<PiAction> a = std::move(c.actions.back());
        c.actions.pop_back();
        if (&c == &_current)
            _logged.pop_back();
        a->revert();
        try {
            a->notifyReverted();
        } catch (...) {
            if (!first)
                first = std::current_exception();
        }
    }
    if (first)
        std::rethrow_exception(first);
}

// Every action is replayed even when a notification fails, so that the graph ends in the
// state the history says; the first failure is raised at the end.
void PiCommandStack::replay(Command& c, bool forward) {
    _replaying = true;
    std::exception_ptr first;
    auto step = [&](PiAction& a) {
        if (forward)
            a.apply();
        else
            a.revert();
        try {
            if (forward)
                a.notifyApplied();
            else
                a.notifyReverted();
        } catch (...) {
            if (!first)
                first = std::current_exception();
        }
    };
    // Each action's object is asked for two strides ahead, and what it changes one stride
    // ahead, once the object itself has arrived.
    constexpr std::size_t kStride = 8;
    std::size_t const n = c.actions.size();
    auto at = [&](std::size_t k) -> PiAction* {
        return c.actions[forward ? k : n - 1 - k].get();
    };
    for (std::size_t k = 0; k < n; ++k) {
        if (k + 2 * kStride < n)
            __builtin_prefetch(at(k + 2 * kStride));
        if (k + kStride < n)
            at(k + kStride)->prefetch();
        step(*at(k));
    }
    _replaying = false;
    _processed.call();
    if (first)
        std::rethrow_exception(first);
}

void PiCommandStack::undo() {
    VN_ASSERT(_depth == 0);
    VN_ASSERT(canUndo());
    _redo.push_back(std::move(_undo.back()));
    _undo.pop_back();
    replay(_redo.back(), false);
}

void PiCommandStack::redo() {
    VN_ASSERT(_depth == 0);
    VN_ASSERT(canRedo());
    _undo.push_back(std::move(_redo.back()));
    _redo.pop_back();
    replay(_undo.back(), true);
}

void PiCommandStack::clear() {
    VN_ASSERT(_depth == 0);
    _undo.clear();
    _redo.clear();
}

PiUndoGuard::PiUndoGuard(PiGraph& graph, std::string const& label)
    : PiUndoGuard(graph.getCommandStack(), label) {}

PiUndoGuard::PiUndoGuard(PiCommandStack& stack, std::string const& label)
    : _stack(stack), _mark(stack.open(label, true)), _exceptions(std::uncaught_exceptions()) {}

PiUndoGuard::~PiUndoGuard() {
    _stack.close(true, _mark, std::uncaught_exceptions() > _exceptions);
}

PiUndoGuardNoLog::PiUndoGuardNoLog(PiGraph& graph) : PiUndoGuardNoLog(graph.getCommandStack()) {}

PiUndoGuardNoLog::PiUndoGuardNoLog(PiCommandStack& stack)
    : _stack(stack), _mark(stack.open(std::string(), false)),
      _exceptions(std::uncaught_exceptions()) {}

PiUndoGuardNoLog::~PiUndoGuardNoLog() {
    _stack.close(false, _mark, std::uncaught_exceptions() > _exceptions);
}

} // namespace Vn
