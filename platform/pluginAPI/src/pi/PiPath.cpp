#include "PiPath.h"

#include <sstream>

namespace Vn {

// Hears of the nodes of one path leaving their graph, and of the inputs on it being cut.
class PiPath::Watcher final : public CbHandler<RCShdPtr<PiNode>>, public CbHandler<PiNodeEvent> {
public:
    explicit Watcher(PiPath& path) : _path(path) {}
    void execute(RCShdPtr<PiNode> const&) override { _path.invalidate(); }
    void execute(PiNodeEvent const& e) override {
        if (e.type != PiNodeEvent::SocketDisconnected || !e.input)
            return;
        for (Step const& s : _path._steps)
            if (s.input && s.input.get() == e.input.get()) {
                _path.invalidate();
                return;
            }
    }

private:
    PiPath& _path;
};

PiPath::PiPath() : _watcher(new Watcher(*this)) {}

PiPath::~PiPath() = default;

RCShdPtr<PiPath> PiPath::create() {
    return RCShdPtr<PiPath>(new PiPath);
}

void PiPath::invalidate() {
    // A subscriber may drop the last reference to the path: hold one until all are called.
    RCShdPtr<PiPath> self(this);
    _invalidated.call(self);
}

void PiPath::watch(Step const& step) {
    if (!step.node)
        return;
    step.node->addRemovedHandler(_watcher.get());
    step.node->addEventHandler(_watcher.get());
    // The input's connection is announced on the input's node, which may differ from the
    // step's for a group's socket.
    if (step.input)
        if (RCShdPtr<PiNode> owner = step.input->retrieveNode(); owner && owner != step.node)
            owner->addEventHandler(_watcher.get());
}

void PiPath::addStep(Step step) {
    watch(step);
    _steps.push_back(std::move(step));
}

void PiPath::addStepFront(Step step) {
    watch(step);
    _steps.insert(_steps.begin(), std::move(step));
}

void PiPath::popTail() {
    if (_steps.empty())
        return;
    Step const gone = std::move(_steps.back());
    _steps.pop_back();
    auto const uses = [&](PiNode const* n) {
        for (Step const& s : _steps)
            if (s.node.get() == n || (s.input && s.input->retrieveNode().get() == n))
                return true;
        return false;
    };
    for (RCShdPtr<PiNode> const& n :
         {gone.node, gone.input ? gone.input->retrieveNode() : RCShdPtr<PiNode>()})
        if (n && !uses(n.get())) {
            n->removeRemovedHandler(_watcher.get());
            n->removeEventHandler(_watcher.get());
        }
}

RCShdPtr<PiPath> PiPath::copy() const {
    RCShdPtr<PiPath> p(new PiPath);
    for (Step const& s : _steps)
        p->addStep(s);
    return p;
}

RCShdPtr<PiPath> PiPath::tail() const {
    RCShdPtr<PiPath> p(new PiPath);
    for (std::size_t i = 1; i < _steps.size(); ++i)
        p->addStep(_steps[i]);
    return p;
}

std::string PiPath::dump() const {
    std::ostringstream os;
    for (Step const& s : _steps) {
        if (s.node)
            os << s.node->getNodeName() << "(" << s.node->getId() << ")";
        else
            os << "<null>";
        if (s.input)
            os << " in:" << s.input->getDottedName();
        if (s.output)
            os << " out:" << s.output->getName();
        os << "\n";
    }
    return os.str();
}

} // namespace Vn
