#include "PiNodeTopologies.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiCommandStack.h"
#include "PiGraph.h"
#include "PiGroupTopology.h"
#include "PiNode.h"
#include "PiProcAnimValueNode.h"
#include "PiProcNodeFactory.h"
#include "PiToolTopologyInterfaceImp.h"
#include "PiTopologyInterface.h"
#include "PiTopologyUtil.h"
#include "PiUserSettings.h"
#include "PiValue.h"
#include "PiValueChangeInterface.h"
#include "PiValueInterface.h"
#include "PiValueTopologyInterface.h"
#include "PxGraphLog.h"
#include "PxPassThroughProtocol.h"
#include "PxValueNode.h"

#include <cmath>
#include <string>
#include <utility>

namespace Vn {

namespace {

using PiTopologyUtil::makeFace;
using PiTopologyUtil::setChild;
using PiTopologyUtil::sourceOf;

using Node = PiTopologyInterface::Imp::Node;
using WeakNode = PiTopologyInterface::Imp::WeakNode;

// The processing side of a value node: one pass-through facing its consumers, over the
// controller's processing node, or over what drives the node's input while it is connected.
class ValueImp final : public PiTopologyInterface::Imp {
public:
    explicit ValueImp(PiValueTopologyInterface& owner) : _owner(owner) {}
    ~ValueImp() noexcept override {}

    WeakNode getInputProcNode(std::string const&) override { return face(); }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const&) override { return face(); }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const&) override { return face(); }
    void createProcNodes() override {
        if (_created)
            return;
        RCShdPtr<PiValueNode> node = rcDynamicCast<PiValueNode>(_owner.getNode());
        if (!node)
            return;
        PiDeferredInvalidation::Scope deferred;
        _created = true;
        PiSocketType const type = node->getOutput()->getType();
        // Faces first: consumers that come back here during the build find the face.
        _node = makeFace(type);
        RCShdPtr<PiInput> const in = node->getInput();
        Node const source =
            in->isConnected() ? sourceOf(in) : (_valueNode = _owner.createValueProcNode());
        setChild(_node, source);
    }
    void forceCreateProcNodes() override { createProcNodes(); }
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const&, Node const& child) override { return child; }
    Node createOutputProcNode(RCShdPtr<PiOutput> const&, Node const& child) override {
        return child;
    }
    void inputConnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        if (!_created)
            return; // the first build sees the connection
        _valueNode = {};
        setChild(_node, sourceOf(in));
    }
    void inputDisconnected(RCShdPtr<PiInput> const& in, RCShdPtr<PiOutput> const&) override {
        if (!in->retrieveNode()->isSame(*_owner.getNode()))
            Assertions::throwAssertionFailed(
                __FILE__, __LINE__, "in->retrieveNode()->isSame( *( _interface.getNode() ) )");
        if (!_created)
            return;
        // Straight to a fresh value node: no reader sees the type's null value in between.
        _valueNode = _owner.createValueProcNode();
        setChild(_node, _valueNode);
    }
    void resultStateChanged(RCShdPtr<PiOutput> const&) override {}

    // The controller's processing node while it drives the value; null otherwise.
    Node const& getValueNode() const noexcept { return _valueNode; }

private:
    WeakNode face() {
        createProcNodes();
        if (_node.isNull())
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
        return WeakNode(Node(_node));
    }

    PiValueTopologyInterface& _owner;
    PxStrongHndl<PxPassThroughProtocol> _node;
    Node _valueNode;
    bool _created = false;
};

// A value node's controller until values animate: its processing node holds the stored value
// and follows every edit of it (undo and redo too). Time values do not animate.
template <class T>
class PiSimpleValueController final : public PiValueTopologyInterface,
                                      public PiValueChangeInterface,
                                      public PiValueInterface<T> {
public:
    void setValue(T const& value) override {
        RCShdPtr<PiNode> node = getNode();
        auto v = node ? rcDynamicCast<PiTypedValue<T>>(node->findValue(PiValueNode::VALUE_NAME))
                      : RCShdPtr<PiTypedValue<T>>();
        if (!v)
            RCExUtil::throwExNullPtr(typeid(PiTypedValue<T>).name());
        v->set(value);
    }
    T getValue() const override { return current(); }
    using ProcNode =
        std::conditional_t<std::is_same_v<T, DtTime>, PxValueNode<T>, PxAnimValueNode<T>>;
    using SetRequest = std::conditional_t<std::is_same_v<T, DtTime>, PxValueSetRequest<T>,
                                          PxAnimValueSetRequest<T>>;

    PiSimpleValueController() : _imp(*this) {}
    ~PiSimpleValueController() noexcept override {}
    Imp* getImp() override { return &_imp; }
    PxStrongHndl<PxNode const> createValueProcNode() override {
        PxStrongHndl<ProcNode> n(new ProcNode(PxNode::Init{"ValueNode"}, PxResult<T>(current())));
        PxNode::init(PxStrongHndl<PxNode>(n));
        return PxStrongHndl<PxNode const>(n);
    }

private:
    void valueChanged(RCShdPtr<PiValue> const& value) override {
        auto const* node = dynamic_cast<ProcNode const*>(_imp.getValueNode().get());
        if (!node || value->getName() != PiValueNode::VALUE_NAME)
            return;
        if (auto typed = rcDynamicCast<PiTypedValue<T>>(value))
            PxMutationRequest::submit(new SetRequest(
                PxUPtr<ProcNode>(PxStrongHndl<ProcNode>(const_cast<ProcNode*>(node))),
                PxResult<T>(typed->get())));
    }
    T current() const {
        RCShdPtr<PiNode> node = getNode();
        auto value = node ? rcDynamicCast<PiTypedValue<T>>(node->findValue(PiValueNode::VALUE_NAME))
                          : RCShdPtr<PiTypedValue<T>>();
        return value ? value->get() : T();
    }

    ValueImp _imp;
};

// The names of the stored values of an animation, in the order they are made.
struct CurveValue {
    char const* name;
    PiValueType type;
};
constexpr CurveValue kCurveValues[] = {
    {"Keyframes", PiValueType::DoubleArray},       {"Interpolations", PiValueType::IntArray},
    {"Constraints", PiValueType::IntArray},        {"Extrapolation", PiValueType::Int},
    {"Interpolation", PiValueType::Int},           {"IsDiddling", PiValueType::Bool},
    {"BackupKeyframes", PiValueType::DoubleArray}, {"BackupInterpolations", PiValueType::IntArray},
    {"BackupConstraints", PiValueType::IntArray},
};

bool isCurveValue(std::string const& name) {
    for (CurveValue const& c : kCurveValues)
        if (name == c.name)
            return true;
    return false;
}

RCPvtEngPtr<TcTimeCurve> emptyCurve() {
    return RCPvtEngPtr<TcTimeCurve>(
        new TcTimeCurve(TcTimeCurve::DEFAULT_EXTRAPOLATION, TcTimeCurve::DEFAULT_INTERPOLATION));
}

// Sets a flag for the length of a scope.
class FlagGuard {
public:
    explicit FlagGuard(bool& flag) : _flag(flag), _was(flag) { _flag = true; }
    ~FlagGuard() { _flag = _was; }

private:
    bool& _flag;
    bool _was;
};

// A parameter's controller: its constant value, or its animation as a master curve (and a
// backup while a change is tried out), kept in the node's stored values and sent to the
// processing node that evaluates it on the workers.
template <class T>
class PiValueController final : public PiValueChangeInterface,
                                public PiValueTopologyInterface,
                                public PiValueInterface<T>,
                                public PiAnimValueInterface<T> {
public:
    using Anim = PiAnimValueInterface<T>;
    PiValueController() : _imp(*this), _master(emptyCurve()), _command(*this) {}
    ~PiValueController() noexcept override { listen(false); }
    PiTopologyInterface::Imp* getImp() override { return &_imp; }

    PxStrongHndl<PxNode const> createValueProcNode() override {
        PxStrongHndl<PiProcAnimValueNode<T>> n(
            new PiProcAnimValueNode<T>(PxNode::Init{"PiProcAnimValueNode"}, data()));
        PxNode::init(PxStrongHndl<PxNode>(n));
        return PxStrongHndl<PxNode const>(n);
    }

    // ---- values ----
    T getValue() const override { return _current; }
    T getValue(double seconds) const override {
        return _animated ? Anim::fromDouble(_master->evaluate(seconds)) : _current;
    }
    void setValue(T const& value) override {
        RCShdPtr<PiNode> node = getNode();
        PiUndoGuard guard(*node->getGraph(), "Set Value");
        _master = defaultCurve();
        bool const removed = _animated;
        if (_animated) {
            _backup = {};
            _animated = false;
            {
                FlagGuard removing(_removingCurveValues);
                for (CurveValue const& c : kCurveValues)
                    node->removeValue(c.name);
            }
            if (_current == value)
                send();
        }
        store(value);
        letGoOfDriver(node);
        if (removed)
            PiNodeControllerManip::signalEvent(*this, PiNodeEvent(PiNodeEvent::AnimRemoved));
    }
    void setValue(double seconds, T const& value) override {
        bool const autoKey =
            PiUserSettings::isInitialized() && PiUserSettings::getInstance().getAutoKey();
        if (autoKey || hasKey(seconds)) {
            setKey(seconds, value);
            return;
        }
        if (!_animated) {
            setValue(value);
            return;
        }
        // Tried out: a temporary key on the master, the curve as keyed waits in the backup.
        PiUndoGuard guard(*getNode()->getGraph(), "Set Value");
        if (!_backup)
            _backup = _master;
        _master = _master->clone();
        _master->setKey(seconds, Anim::toDouble(value));
        writeCurveValues();
    }
    void setKey(double seconds, T const& value) override {
        double const newD = Anim::toDouble(value);
        PiUndoGuard guard(*getNode()->getGraph(), "Set Keyframe");
        double const oldD = _master->evaluate(seconds);
        int const n0 = _master->getNbKeys();
        RCPvtEngPtr<TcTimeCurve> master = _master->clone();
        master->setKey(seconds, newD);
        int const n1 = master->getNbKeys();
        bool const wasDiddling = isDiddling();
        if (!_animated) {
            FlagGuard adding(_addingCurveValues);
            for (CurveValue const& c : kCurveValues)
                getNode()->addValue(c.name, c.type);
        }
        _master = master;
        _backup = {};
        _animated = true;
        bool const unchanged = !wasDiddling && n1 <= n0;
        double const scale = std::max(std::fabs(oldD), std::fabs(newD));
        double const tolerance = std::isinf(scale) ? 0.0 : scale * 2.220446049250313e-16;
        if (unchanged && std::fabs(oldD - newD) <= tolerance)
            return;
        writeCurveValues();
    }
    void setKey(double seconds) override { setKey(seconds, getValue(seconds)); }
    void makeConstant(double seconds) override { setValue(getValue(seconds)); }

    // ---- animation ----
    bool isAnimated() const override { return _animated; }
    bool hasKey(double seconds) const override { return getCurve()->hasKey(seconds); }
    bool hasKeys() const override { return !getCurve()->isEmpty(); }
    bool isDiddling() const override { return static_cast<bool>(_backup); }
    RCPvtEngPtr<TcTimeCurve> getCurve() const override { return _backup ? _backup : _master; }
    RCPvtEngPtr<TcTimeCurve> getMasterTimeCurve() const override { return _master; }
    void setCurve(RCPvtEngPtr<TcTimeCurve> const& curve) override {
        if (curve && curve->hasTimeTransform())
            Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                             "!_masterCurve->hasTimeTransform()");
        RCShdPtr<PiNode> node = getNode();
        PiUndoGuard guard(*node->getGraph(), "Set Curve");
        _master = curve ? curve->clone() : defaultCurve();
        if (!_animated) {
            FlagGuard adding(_addingCurveValues);
            for (CurveValue const& c : kCurveValues)
                node->addValue(c.name, c.type);
            _animated = true;
        }
        writeCurveValues();
    }
    void setDefaultExtrapolationType(int type) override {
        setDefaultType("DefaultExtrapolation", type, TcTimeCurve::DEFAULT_EXTRAPOLATION,
                       "Set Default Extrapolation Type");
    }
    int getDefaultExtrapolationType() const override {
        auto v = stored<PiTypedValue<int>>("DefaultExtrapolation");
        return v ? v->get() : TcTimeCurve::DEFAULT_EXTRAPOLATION;
    }
    void setDefaultInterpolationType(int type) override {
        setDefaultType("DefaultInterpolation", type, TcTimeCurve::DEFAULT_INTERPOLATION,
                       "Set Default Interpolation Type");
    }
    int getDefaultInterpolationType() const override {
        auto v = stored<PiTypedValue<int>>("DefaultInterpolation");
        return v ? v->get() : TcTimeCurve::DEFAULT_INTERPOLATION;
    }
    void resetValue() override {
        if (!_backup)
            return;
        PiUndoGuard guard(*getNode()->getGraph(), "Reset Value");
        _master = _backup;
        _backup = {};
        writeCurveValues();
    }

private:
    class CommandHandler final : public CbHandler<PiGraphEvent> {
    public:
        explicit CommandHandler(PiValueController& c) : _c(c) {}
        void execute(PiGraphEvent const& e) override {
            if (e.type == PiGraphEvent::CommandProcessed)
                _c.commandProcessed();
        }

    private:
        PiValueController& _c;
    };

    ValData<T> data() const { return ValData<T>{_current, _master, _animated}; }
    // A constant set on a driven value wins: the input lets go, and a value node that fed it
    // alone goes too. A tool, a boundary or a value shared with others stays: it is the user's.
    static void letGoOfDriver(RCShdPtr<PiNode> const& node) {
        auto value = rcDynamicCast<PiValueNode>(node);
        RCShdPtr<PiInput> const in = value ? value->getInput() : RCShdPtr<PiInput>();
        if (!in || !in->isConnected())
            return;
        RCShdPtr<PiOutput> const out = in->getConnectedOutput();
        RCShdPtr<PiNode> const driver = out->retrieveNode();
        RCShdPtr<PiGroupNode> const group = driver->retrieveGroupNode();
        if (driver->getNodeKind() == PiNode::VALUE && out->getConnectedInputCount() == 1 && group)
            group->removeNode(driver);
        else
            in->disconnect();
        if (in->isConnected())
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "!input->isConnected()");
    }
    // An empty curve of the types this value's new curves take.
    RCPvtEngPtr<TcTimeCurve> defaultCurve() const {
        // Checked: a stored type from a file may be anything.
        try {
            return RCPvtEngPtr<TcTimeCurve>(
                new TcTimeCurve(getDefaultExtrapolationType(), getDefaultInterpolationType()));
        } catch (ExBase const&) {
            return emptyCurve();
        }
    }
    void setDefaultType(char const* name, int type, int fallback, char const* label) {
        // An unknown type is refused as a curve of it would be.
        bool const extrapolation = fallback == TcTimeCurve::DEFAULT_EXTRAPOLATION &&
                                   std::string(name) == "DefaultExtrapolation";
        (void)TcTimeCurve(extrapolation ? type : TcTimeCurve::DEFAULT_EXTRAPOLATION,
                          extrapolation ? TcTimeCurve::DEFAULT_INTERPOLATION : type);
        RCShdPtr<PiNode> node = getNode();
        PiUndoGuard guard(*node->getGraph(), label);
        auto v = stored<PiTypedValue<int>>(name);
        if (!v) {
            if (type == fallback)
                return;
            FlagGuard adding(_addingCurveValues);
            v = rcDynamicCast<PiTypedValue<int>>(node->addValue(name, PiValueType::Int));
        }
        FlagGuard writing(_writingCurveValues);
        v->set(type);
    }
    void send() {
        auto const* node = dynamic_cast<PiProcAnimValueNode<T> const*>(_imp.getValueNode().get());
        if (!node)
            return;
        PxStrongHndl<PiProcAnimValueNode<T>> h(const_cast<PiProcAnimValueNode<T>*>(node));
        if (PiAnimInterface::isAccumulatingChanges())
            PiAnimInterface::addChangeFunctor(
                std::make_unique<SetValueFunctor<T>>(PxUPtr<PiProcAnimValueNode<T>>(h), data()),
                PxValidityInterval::FULL);
        else
            PxMutationRequest::submit(new PxSetRequest<PiProcAnimValueNode<T>, ValData<T>>(
                PxUPtr<PiProcAnimValueNode<T>>(h), &PiProcAnimValueNode<T>::setData, data()));
        PiNodeControllerManip::signalEvent(*this, PiNodeEvent(PiNodeEvent::Invalidation));
    }
    void store(T const& value) {
        _current = value;
        if (auto v = rcDynamicCast<PiTypedValue<T>>(getNode()->findValue(PiValueNode::VALUE_NAME)))
            v->set(value); // its notification sends the value
    }
    template <class V>
    RCShdPtr<V> stored(char const* name) const {
        RCShdPtr<PiNode> node = getNode();
        return node ? rcDynamicCast<V>(node->findValue(name)) : RCShdPtr<V>();
    }
    void writeCurveValues() {
        {
            FlagGuard writing(_writingCurveValues);
            if (!stored<PiValue>("Keyframes"))
                return;
            auto put = [&](char const* name, auto const& data, auto* tag) {
                using V = std::remove_pointer_t<decltype(tag)>;
                stored<V>(name)->setArray(typename V::Array(data.begin(), data.end()));
            };
            put("Keyframes", _master->getKeyframeData(), (PiTypedValueArray<double>*)nullptr);
            put("Interpolations", _master->getInterpolationData(),
                (PiTypedValueArray<int>*)nullptr);
            put("Constraints", _master->getConstraintData(), (PiTypedValueArray<int>*)nullptr);
            stored<PiTypedValue<int>>("Extrapolation")->set(_master->getExtrapolationType());
            stored<PiTypedValue<int>>("Interpolation")->set(_master->getInterpolationType());
            stored<PiTypedValue<bool>>("IsDiddling")->set(static_cast<bool>(_backup));
            std::vector<double> const none;
            std::vector<int> const noInts;
            put("BackupKeyframes", _backup ? _backup->getKeyframeData() : none,
                (PiTypedValueArray<double>*)nullptr);
            put("BackupInterpolations", _backup ? _backup->getInterpolationData() : noInts,
                (PiTypedValueArray<int>*)nullptr);
            put("BackupConstraints", _backup ? _backup->getConstraintData() : noInts,
                (PiTypedValueArray<int>*)nullptr);
        }
        send();
        PiNodeControllerManip::signalEvent(*this, PiNodeEvent(PiNodeEvent::AnimValueChanged));
    }
    // The animation as the stored values hold it; values from a file that do not make a curve
    // leave the value constant, with a log line.
    void reload() {
        _master = defaultCurve();
        _backup = {};
        _animated = false;
        auto keys = stored<PiTypedValueArray<double>>("Keyframes");
        if (!keys)
            return;
        try {
            auto ints = [&](char const* n) {
                auto v = stored<PiTypedValueArray<int>>(n);
                if (!v)
                    VN_THROW_MSG(ExBase, std::string("\"") + n + "\" is missing");
                auto a = v->getArray();
                return Vector<int>(a->begin(), a->end());
            };
            auto doubles = [&](char const* n) {
                auto v = stored<PiTypedValueArray<double>>(n);
                if (!v)
                    VN_THROW_MSG(ExBase, std::string("\"") + n + "\" is missing");
                auto a = v->getArray();
                return Vector<double>(a->begin(), a->end());
            };
            auto extrapolation = stored<PiTypedValue<int>>("Extrapolation");
            auto interpolation = stored<PiTypedValue<int>>("Interpolation");
            if (!extrapolation || !interpolation)
                VN_THROW_MSG(ExBase, "the curve's types are missing");
            RCPvtEngPtr<TcTimeCurve> master(
                new TcTimeCurve(doubles("Keyframes"), ints("Interpolations"), ints("Constraints"),
                                extrapolation->get(), interpolation->get()));
            RCPvtEngPtr<TcTimeCurve> backup;
            if (auto diddling = stored<PiTypedValue<bool>>("IsDiddling");
                diddling && diddling->get())
                backup = RCPvtEngPtr<TcTimeCurve>(new TcTimeCurve(
                    doubles("BackupKeyframes"), ints("BackupInterpolations"),
                    ints("BackupConstraints"), extrapolation->get(), interpolation->get()));
            _master = master;
            _backup = backup;
            _animated = true;
        } catch (ExBase const& e) {
            VN_LOG_GROUP(PxGraph, 0,
                         "The animation of \"" << getNode()->getNodeName()
                                               << "\" is not readable, its value stays"
                                               << " constant: " << e.getReason());
        }
    }
    // The graph is held weakly: it owns the node that owns this controller.
    void listen(bool on) {
        if (RCShdPtr<PiGraph> g = _listened.lock())
            g->removeCallback(&_command);
        _listened = {};
        if (!on)
            return;
        RCShdPtr<PiNode> node = getNode();
        if (RCShdPtr<PiGraph> g = node ? node->getGraph() : RCShdPtr<PiGraph>()) {
            g->addCallback(&_command);
            _listened = RCWeakPtr<PiGraph>(g.get());
        }
    }
    void start() {
        auto v = stored<PiTypedValue<T>>(PiValueNode::VALUE_NAME);
        _current = v ? v->get() : T();
        listen(true);
    }
    void nodeCreated() override { start(); }
    void nodeLoaded() override {
        start();
        reload();
        send();
    }
    void valueChanged(RCShdPtr<PiValue> const& value) override {
        if (value->getName() == PiValueNode::VALUE_NAME) {
            if (auto typed = rcDynamicCast<PiTypedValue<T>>(value))
                _current = typed->get();
            if (!_animated)
                send();
            return;
        }
        if (isCurveValue(value->getName()) && !_writingCurveValues)
            _curveDirty = true;
    }
    void dynamicValueAdded(RCShdPtr<PiValue> const& value) override {
        if (isCurveValue(value->getName()) && !_addingCurveValues)
            _curveDirty = true;
    }
    void dynamicValueRemoved(std::string const& name, int) override {
        if (isCurveValue(name) && !_removingCurveValues)
            _curveDirty = true;
    }
    // Undo and redo replay the stored values: once the command is done, read them again.
    void commandProcessed() {
        if (!std::exchange(_curveDirty, false))
            return;
        reload();
        send();
    }

    ValueImp _imp;
    T _current{};
    RCPvtEngPtr<TcTimeCurve> _master;
    RCPvtEngPtr<TcTimeCurve> _backup;
    bool _animated = false;
    bool _addingCurveValues = false;
    bool _removingCurveValues = false;
    bool _writingCurveValues = false;
    bool _curveDirty = false;
    CommandHandler _command;
    RCWeakPtr<PiGraph> _listened;
};

// The processing side of a link node: one pass-through over the target socket's node in the
// linked graph, over a generator while that graph is closed or the link has no target.
class LinkImp final : public PiTopologyInterface::Imp {
public:
    explicit LinkImp(PiNodeController& owner) : _owner(owner), _close(*this), _refresh(*this) {}
    ~LinkImp() noexcept override { detach(); }

    WeakNode getInputProcNode(std::string const&) override { noInputs(); }
    WeakNode getInputProcNode(RCShdPtr<PiInput> const&) override { noInputs(); }
    WeakNode getOutputProcNode(RCShdPtr<PiOutput> const& out) override {
        if (!PiGraphObject::areEqual(out->retrieveNode(), _owner.getNode()))
            Assertions::throwAssertionFailed(
                __FILE__, __LINE__,
                "PiGraphObject::areEqual( out->retrieveNode(), _interface.getNode() )");
        createProcNodes();
        if (_node.isNull())
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
        return WeakNode(Node(_node));
    }
    void createProcNodes() override {
        if (_created)
            return;
        RCShdPtr<PiLinkNode> link = linkNode();
        if (!link)
            return;
        PiDeferredInvalidation::Scope deferred;
        _created = true;
        PiSocketType const type = link->getOutput()->getType();
        _node = makeFace(type);
        try {
            attach(link);
            if (Node source = targetSource(link))
                setChild(_node, source);
        } catch (...) {
            _created = false;
            throw;
        }
    }
    void forceCreateProcNodes() override { createProcNodes(); }
    bool isRecreateProcNodesDisabled() const override { return false; }
    Node createInputProcNode(RCShdPtr<PiInput> const&, Node const& child) override { return child; }
    Node createOutputProcNode(RCShdPtr<PiOutput> const&, Node const& child) override {
        return child;
    }
    void inputConnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void inputDisconnected(RCShdPtr<PiInput> const&, RCShdPtr<PiOutput> const&) override {}
    void resultStateChanged(RCShdPtr<PiOutput> const&) override {}

    void linkChanged() {
        if (_node.isNull()) {
            createProcNodes();
            if (_node.isNull())
                Assertions::throwAssertionFailed(__FILE__, __LINE__, "!_node.isNull()");
            PiDeferredInvalidation::invalidate(Node(_node), PxValidityInterval::FULL);
            return;
        }
        closed();
        detach();
        RCShdPtr<PiLinkNode> link = linkNode();
        attach(link);
        if (Node source = targetSource(link))
            setChild(_node, source);
    }

private:
    struct CloseHandler final : CbHandler<PiGraphEvent> {
        explicit CloseHandler(LinkImp& imp) : _imp(imp) {}
        void execute(PiGraphEvent const& e) override {
            if (e.type == PiGraphEvent::CloseGraph)
                _imp.closed();
        }
        LinkImp& _imp;
    };
    struct RefreshHandler final : CbHandler<PiGraphEvent> {
        explicit RefreshHandler(LinkImp& imp) : _imp(imp) {}
        void execute(PiGraphEvent const& e) override {
            if (e.type == PiGraphEvent::GraphRefreshed)
                _imp.refreshed();
        }
        LinkImp& _imp;
    };

    [[noreturn]] static void noInputs() {
        Assertions::throwProgramAborted(
            __FILE__, __LINE__,
            "Link nodes don't have inputs: calling getInputProcNode is an error.");
    }
    RCShdPtr<PiLinkNode> linkNode() const { return rcDynamicCast<PiLinkNode>(_owner.getNode()); }
    // Listens to the linked graph and holds it open.
    void attach(RCShdPtr<PiLinkNode> const& link) {
        RCShdPtr<PiGraph> graph = link ? link->getLinkedGraph() : RCShdPtr<PiGraph>();
        if (!graph)
            return;
        _graph = RCWeakPtr<PiGraph>(graph.get());
        graph->addCallback(&_close);
        graph->addCallback(&_refresh);
        if (graph->isValid())
            _guard = graph->open();
    }
    void detach() {
        if (RCShdPtr<PiGraph> graph = _graph.lock()) {
            graph->removeCallback(&_close);
            graph->removeCallback(&_refresh);
        }
        _graph = {};
        _guard = {};
    }
    // The target socket's node in the linked graph; null without a valid target.
    Node targetSource(RCShdPtr<PiLinkNode> const& link) const {
        RCShdPtr<PiSocket> target = link ? link->getTargetSocket() : RCShdPtr<PiSocket>();
        RCShdPtr<PiGraph> const graph = _graph.lock();
        if (!target || !graph || !graph->isValid())
            return {};
        auto topo =
            rcDynamicCast<PiTopologyInterface>(target->retrieveNode()->getController().lock());
        if (!topo)
            return {};
        if (auto in = rcDynamicCast<PiInput>(target))
            return topo->getInputProcNode(in).lock();
        return topo->getOutputProcNode(rcDynamicCast<PiOutput>(target)).lock();
    }
    void closed() {
        if (_node.isNull())
            return;
        RCShdPtr<PiLinkNode> link = linkNode();
        PiSocketType const type = link ? link->getOutput()->getType() : PiSocketType();
        setChild(_node, PiProcNodeFactory::createGeneratorNode(type));
        _guard = {};
    }
    void refreshed() {
        // A refresh without a close before it is tolerated.
        RCShdPtr<PiGraph> const graph = _graph.lock();
        if (graph && graph->isValid() && !_guard)
            _guard = graph->open();
        if (_node.isNull())
            return;
        if (Node source = targetSource(linkNode()))
            setChild(_node, source);
    }

    PiNodeController& _owner;
    PxStrongHndl<PxPassThroughProtocol> _node;
    // The linked graph is held open by the guard while resolved, and weakly otherwise.
    RCWeakPtr<PiGraph> _graph;
    RCShdPtr<PiGraphOpenGuard> _guard;
    CloseHandler _close;
    RefreshHandler _refresh;
    bool _created = false;
};

class LinkController final : public PiLinkTopologyInterface {
public:
    LinkController() : _imp(*this) {}
    ~LinkController() noexcept override {}
    Imp* getImp() override { return &_imp; }

private:
    void linkChanged() override { _imp.linkChanged(); }
    LinkImp _imp;
};

// The controllers of the nodes no tool describes, with their processing sides.
class Factory final : public PiNodeControllerFactory {
public:
    RCShdPtr<PiNodeController> createGroupController(PiTool const* tool) override {
        return PiGroupTopology::createGroupController(tool);
    }
    RCShdPtr<PiNodeController> createBoundaryController() override {
        return PiGroupTopology::createBoundaryController();
    }
    RCShdPtr<PiNodeController> createLinkController() override {
        return RCShdPtr<PiNodeController>(new LinkController);
    }
    RCShdPtr<PiNodeController> createValueController(PiSocketType type) override {
        RCShdPtr<PiNodeController> c = PiNodeTopologies::createController(type);
        return c ? c : PiNodeControllerFactory::createValueController(type);
    }
};

} // namespace

RCShdPtr<PiNodeController> PiNodeTopologies::createController(PiSocketType type) {
    switch (type.getType()) {
    case PiSocketType::BOOL:
        return RCShdPtr<PiNodeController>(new PiValueController<bool>);
    case PiSocketType::DOUBLE:
        return RCShdPtr<PiNodeController>(new PiValueController<double>);
    case PiSocketType::INT:
        return RCShdPtr<PiNodeController>(new PiValueController<int>);
    case PiSocketType::STRING:
        return RCShdPtr<PiNodeController>(new PiValueController<std::string>);
    case PiSocketType::TIME:
        return RCShdPtr<PiNodeController>(new PiSimpleValueController<DtTime>);
    default:
        return {};
    }
}

void PiNodeTopologies::initialize() {
    PiNodeControllerFactory::setInstance(OPtr<PiNodeControllerFactory>(new Factory));
}

void PiNodeTopologies::finalize() {
    PiNodeControllerFactory::setInstance(nullptr);
}

} // namespace Vn
