#pragma once

#include "Cb.h"
#include "LkCounter.h"
#include "OPtr.h"
#include "RCBase.h"
#include "VnExport.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace Vn {

class PiGraph;

// One elementary, reversible edit. `apply` and `revert` change state only and must not fail
// once the action is made; the notifications follow them, so that an edit, its undo and its
// redo tell controllers the same things through the same code.
class VN_EXPORT PiAction {
public:
    virtual ~PiAction();
    virtual void apply() = 0;
    virtual void revert() = 0;
    virtual void notifyApplied() {}
    virtual void notifyReverted() {}
    // Asks the cache for the objects the action changes. An undo or redo of many actions
    // calls it a few actions ahead, so that a long history does not wait on memory at each.
    virtual void prefetch() const noexcept {}
};

// The undo history of a graph: commands of actions, each made by the outermost undo guard.
// Shared, so that an interface may hand it out; once its graph is gone it holds no history.
class VN_EXPORT PiCommandStack : public RCBase<LkCounter<int>> {
public:
    PiCommandStack();
    PiCommandStack(PiCommandStack const&) = delete;
    PiCommandStack& operator=(PiCommandStack const&) = delete;
    ~PiCommandStack() override;

    // Applies the action and its notifications, and keeps it in the open command (or drops it
    // under a PiUndoGuardNoLog). Requires an open guard and no undo or redo running.
    void record(OPtr<PiAction> action);

    bool canUndo() const noexcept { return !_undo.empty(); }
    bool canRedo() const noexcept { return !_redo.empty(); }
    int getUndoCount() const noexcept { return static_cast<int>(_undo.size()); }
    int getRedoCount() const noexcept { return static_cast<int>(_redo.size()); }
    // Labels of the commands, the next one to undo (or redo) first.
    std::string const& getUndoLabel(int i = 0) const;
    std::string const& getRedoLabel(int i = 0) const;
    void undo();
    void redo();
    // Forgets the history; requires no open guard.
    void clear();

    bool isOpen() const noexcept { return _depth > 0; }
    // While a tool builds its processing nodes (on this thread), no graph may be edited: a
    // build runs inside the graph's notifications. Scopes nest.
    class VN_EXPORT ToolBuildScope {
    public:
        ToolBuildScope() noexcept;
        ToolBuildScope(ToolBuildScope const&) = delete;
        ToolBuildScope& operator=(ToolBuildScope const&) = delete;
        ~ToolBuildScope();
    };
    static bool isInToolBuild() noexcept;
    bool isReplaying() const noexcept { return _replaying; }
    // Called once after each command, undo and redo that changed something.
    void addProcessedHandler(CbHandler<CbEmptyType>* h) { _processed.addHandler(h); }
    void removeProcessedHandler(CbHandler<CbEmptyType>* h) { _processed.removeHandler(h); }

private:
    friend class PiUndoGuard;
    friend class PiUndoGuardNoLog;
    struct Command {
        std::string label;
        std::vector<OPtr<PiAction>> actions;
    };
    std::size_t open(std::string const& label, bool log);
    void close(bool log, std::size_t mark, bool failed);
    void revertFrom(Command& c, std::size_t mark);
    void replay(Command& c, bool forward);

    std::deque<Command> _undo;
    std::deque<Command> _redo;
    Command _current;
    // For each action of the open command: whether it enters the history.
    std::vector<bool> _logged;
    int _depth = 0;
    int _noLogDepth = 0;
    bool _replaying = false;
    CbDispatcher<CbEmptyType> _processed;
};

// Every user-level edit runs under one. The outermost guard makes one command with its label,
// which inner guards join; a command that changed nothing leaves no step, and a new command
// clears the redo history. When the guard ends by an exception, what was done under it is
// undone and the command goes on without it.
class VN_EXPORT PiUndoGuard {
public:
    PiUndoGuard(PiGraph& graph, std::string const& label);
    PiUndoGuard(PiCommandStack& stack, std::string const& label);
    PiUndoGuard(PiUndoGuard const&) = delete;
    PiUndoGuard& operator=(PiUndoGuard const&) = delete;
    ~PiUndoGuard();

private:
    PiCommandStack& _stack;
    std::size_t _mark;
    int _exceptions;
};

// Edits under it apply without entering the history; when it ends by an exception, they are
// undone like those of a logged guard.
class VN_EXPORT PiUndoGuardNoLog {
public:
    explicit PiUndoGuardNoLog(PiGraph& graph);
    explicit PiUndoGuardNoLog(PiCommandStack& stack);
    PiUndoGuardNoLog(PiUndoGuardNoLog const&) = delete;
    PiUndoGuardNoLog& operator=(PiUndoGuardNoLog const&) = delete;
    ~PiUndoGuardNoLog();

private:
    PiCommandStack& _stack;
    std::size_t _mark;
    int _exceptions;
};

} // namespace Vn
