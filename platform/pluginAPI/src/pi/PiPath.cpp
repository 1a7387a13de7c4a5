#include "PiPath.h"

#include <sstream>

namespace Vn {

// Hears of the nodes of one path leaving their graph.
class PiPath::Watcher final : public CbHandler<RCShdPtr<PiNode>> {
public:
    explicit Watcher(PiPath& path) : _path(path) {}
    void execute(RCShdPtr<PiNode> const&) override { _path._invalidated.call(&_path); }

private:
    PiPath& _path;
};

PiPath::PiPath() : _watcher(new Watcher(*this)) {}

PiPath::PiPath(PiPath const& other) : PiPath() {
    for (Step const& s : other._steps)
        addStep(s);
}

PiPath& PiPath::operator=(PiPath const& other) {
    if (this == &other)
        return *this;
    _watcher.reset(new Watcher(*this));
    _steps.clear();
    for (Step const& s : other._steps)
        addStep(s);
    return *this;
}

PiPath::~PiPath() = default;

void PiPath::watch(PiNode const& node) {
    node.addRemovedHandler(_watcher.get());
}

void PiPath::addStep(Step step) {
    if (step.node)
        watch(*step.node);
    _steps.push_back(std::move(step));
}

void PiPath::addStepFront(Step step) {
    if (step.node)
        watch(*step.node);
    _steps.insert(_steps.begin(), std::move(step));
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
