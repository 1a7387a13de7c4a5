#include "PiProcNodeFactory.h"

#include "Assertions.h"
#include "EnvIntVar.h"
#include "PiNode.h"
#include "PiNodeController.h"
#include "PiToolInterface.h"
#include "PiValueProcNodes.h"
#include "PxGeometryCacheNode.h"
#include "PxImageSourceNodes.h"
#include "PxNodeSingleton.h"
#include "PxPassThroughNode.h"
#include "RCExUtil.h"

#include <map>
#include <string>
#include <typeinfo>

namespace Vn {

namespace {

using Node = PiProcNodeFactory::Node;

// Read with the other settings at load; a non-zero value leaves geometry outputs uncached.
EnvIntVar const s_disableGeometryCaching(__FILE__, "VN_DISABLE_GEOMETRY_CACHING", 0);

// Filled at the framework's start, read on the interface thread only.
std::map<int, OPtr<PiProcNodeFactory>>& factories() {
    static std::map<int, OPtr<PiProcNodeFactory>> table;
    return table;
}

PiProcNodeFactory& factoryFor(int type) {
    auto facIt = factories().find(type);
    if (facIt == factories().end())
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "facIt != factories.end()");
    return *facIt->second;
}

template <class N>
Node finished(N* node) {
    PxStrongHndl<N> h(node);
    PxNode::init(PxStrongHndl<PxNode>(h));
    return Node(h);
}

// The child as the type's protocol; another protocol is an assertion failure.
template <class Protocol>
PxStrongHndl<Protocol const> typedChild(Node const& child) {
    auto const* typed = dynamic_cast<Protocol const*>(child.get());
    if (!typed)
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "typedChild.dynamicAssign( child )");
    return PxStrongHndl<Protocol const>(typed);
}

// ---- the value types ----

template <class T>
RCShdPtr<PiTypedInputPolicy<T> const> typedPolicyOf(PiInput const& in) {
    RCShdPtr<PiNode> node = in.retrieveNode();
    RCShdPtr<PiNodeController> c =
        node ? node->getController().lock() : RCShdPtr<PiNodeController>();
    auto tool = rcDynamicCast<PiToolInterface>(c);
    if (!tool)
        return {};
    return rcDynamicCast<PiTypedInputPolicy<T> const>(tool->getInputPolicy(in));
}

// A value type's factory: Protocol is read through, InputNode filters by the input's policy,
// Generator answers T() when nothing is connected.
template <class T, class Protocol, class InputNode, class Generator>
class ValueNodeFactory final : public PiProcNodeFactory, public PxNodeSingleton<PxNode> {
public:
    Node createInputNode(PiInput const& in, Node const& child) override {
        auto policy = typedPolicyOf<T>(in);
        if (!policy || (policy->canAnimate() && policy->isPassAll()))
            return createPassThroughNode(child);
        return finished(
            new InputNode(PxNode::Init{"ValueInputNode"}, typedChild<Protocol>(child), policy));
    }
    Node createGeneratorNode() override { return Node(getNodeInstance()); }
    Node createOutputNode(PiOutput const&, Node const& child) override {
        return createPassThroughNode(child);
    }
    Node createPassThroughNode(Node const& child) override {
        return finished(new PxPassThroughNode<Protocol>(PxNode::Init{"ValuePassThroughNode"},
                                                        typedChild<Protocol>(child)));
    }

protected:
    PxStrongHndl<PxNode> createNode() override {
        PxStrongHndl<PxNode> h(new Generator(PxNode::Init{"ValueGeneratorNode"}));
        PxNode::init(h);
        return h;
    }
};

template <class T>
using AnimValueNodeFactory =
    ValueNodeFactory<T, PxAnimValueProtocol<T>, AnimValueInputNode<T>, AnimValueGeneratorNode<T>>;
template <class T>
using NonAnimValueNodeFactory =
    ValueNodeFactory<T, PxValueProtocol<T>, NonAnimValueInputNode<T>, NonAnimValueGeneratorNode<T>>;

// ---- the scene types and images: a shared null node, collapsing pass-throughs ----

class NullCameraNode final : public PxCameraProtocol {
public:
    NullCameraNode() : PxNode(Init{"NullCameraNode"}) {}
    PxCameraResult getCamera(PxTimeContext const&) const override {
        return PxCameraResult(VwCamera());
    }
};

class NullMatrixNode final : public PxAffineMatrix2Protocol {
public:
    NullMatrixNode() : PxNode(Init{"NullMatrixNode"}) {}
    PxResult<GeAffineMatrix2<float>> getMatrix(PxTimeContext const&) const override {
        return PxResult<GeAffineMatrix2<float>>(GeAffineMatrix2<float>());
    }
};

class NullShape2dNode final : public PxShape2dProtocol {
public:
    NullShape2dNode() : PxNode(Init{"NullShape2dNode"}) {}
    PxShape2dResult getShape(PxTimeContext const&) const override { return PxShape2dResult(); }
};

class NullMaterialNode final : public PxMaterialProtocol {
public:
    NullMaterialNode() : PxNode(Init{"NullMaterialNode"}) {}
    PxMaterialResult getMaterial(PxTimeContext const&) const override { return PxMaterialResult(); }
};

class NullObject3dNode final : public PxObject3dProtocol {
public:
    NullObject3dNode() : PxNode(Init{"NullObject3dNode"}) {}
    PxObject3dResult getScene(PxObject3dContext const&) const override {
        return PxObject3dResult();
    }
};

class NullGeometryNode final : public PxGeometryProtocol {
public:
    NullGeometryNode() : PxNode(Init{"NullGeometryNode"}) {}
    PxGeometryResult getGeometry(PxGeometryContext const&) const override {
        return PxGeometryResult();
    }
};

class NullGraphObjIdsNode final : public PxGraphObjIdsProtocol {
public:
    NullGraphObjIdsNode() : PxNode(Init{"NullGraphObjIdsNode"}) {}
    int getNodeId() const override { return -1; }
    int getOutputSocketId() const override { return -1; }
};

template <class Protocol, class NullNode>
class SceneNodeFactory : public PiProcNodeFactory, public PxNodeSingleton<PxNode> {
public:
    explicit SceneNodeFactory(char const* passThroughName) : _passThroughName(passThroughName) {}
    Node createInputNode(PiInput const&, Node const& child) override {
        return createPassThroughNode(child);
    }
    Node createGeneratorNode() override { return Node(getNodeInstance()); }
    Node createOutputNode(PiOutput const&, Node const& child) override {
        return createPassThroughNode(child);
    }
    Node createPassThroughNode(Node const& child) override {
        return finished(new PxCollapsingPassThroughNode<Protocol>(PxNode::Init{_passThroughName},
                                                                  typedChild<Protocol>(child)));
    }

protected:
    PxStrongHndl<PxNode> createNode() override {
        PxStrongHndl<PxNode> h;
        if constexpr (std::is_default_constructible_v<NullNode>)
            h = PxStrongHndl<PxNode>(new NullNode());
        else // an image without pixels
            h = PxStrongHndl<PxNode>(new NullNode(PxNode::Init{"NullImageNode"}));
        PxNode::init(h);
        return h;
    }

private:
    char const* _passThroughName;
};

class GeometryNodeFactory final : public SceneNodeFactory<PxGeometryProtocol, NullGeometryNode> {
public:
    GeometryNodeFactory()
        : SceneNodeFactory("GeometryPassThroughNode"),
          _caching(s_disableGeometryCaching.getValue() == 0) {}
    Node createOutputNode(PiOutput const& out, Node const& child) override {
        if (!_caching)
            return createPassThroughNode(child);
        (void)out;
        return createPassThroughNode(finished(new PxGeometryCacheNode(
            PxNode::Init{"PxGeometryCacheNode"}, typedChild<PxGeometryProtocol>(child))));
    }

private:
    bool _caching;
};

template <class F, class... A>
void add(int type, A&&... args) {
    PiProcNodeFactory::registerFactory(PiSocketType(type),
                                       OPtr<PiProcNodeFactory>(new F(std::forward<A>(args)...)));
}

} // namespace

PiProcNodeFactory::~PiProcNodeFactory() = default;

void PiProcNodeFactory::registerFactory(PiSocketType const& type, OPtr<PiProcNodeFactory> factory) {
    VN_ASSERT(factory);
    auto facIt = factories().find(type.getType());
    if (facIt != factories().end())
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "facIt == factories.end()");
    factories().emplace(type.getType(), std::move(factory));
}

void PiProcNodeFactory::unregisterFactory(PiSocketType const& type) {
    factories().erase(type.getType());
}

bool PiProcNodeFactory::isFactoryRegistered(PiSocketType const& type) {
    return factories().count(type.getType()) != 0;
}

Node PiProcNodeFactory::createInputNode(RCShdPtr<PiInput> const& in, Node const& child) {
    VN_ASSERT(in);
    return factoryFor(in->getType().getType()).createInputNode(*in, child);
}

Node PiProcNodeFactory::createOutputNode(RCShdPtr<PiOutput> const& out, Node const& child) {
    VN_ASSERT(out);
    return factoryFor(out->getType().getType()).createOutputNode(*out, child);
}

Node PiProcNodeFactory::createGeneratorNode(PiSocketType const& type) {
    return factoryFor(type.getType()).createGeneratorNode();
}

Node PiProcNodeFactory::createPassThroughNode(PiSocketType const& type, Node const& child) {
    return factoryFor(type.getType()).createPassThroughNode(child);
}

void PiProcNodeFactory::initializeValueFactories() {
    add<AnimValueNodeFactory<bool>>(PiSocketType::BOOL);
    add<AnimValueNodeFactory<double>>(PiSocketType::DOUBLE);
    add<AnimValueNodeFactory<int>>(PiSocketType::INT);
    add<AnimValueNodeFactory<std::string>>(PiSocketType::STRING);
    add<NonAnimValueNodeFactory<DtTime>>(PiSocketType::TIME);
}

void PiProcNodeFactory::initializeImageFactory() {
    add<SceneNodeFactory<PxImageProtocol, PxBlackSourceNode>>(PiSocketType::IMAGE,
                                                              "ImagePassThroughNode");
}

void PiProcNodeFactory::initializeSceneFactories() {
    add<SceneNodeFactory<PxObject3dProtocol, NullObject3dNode>>(PiSocketType::OBJECT3D,
                                                                "Object3dPassThroughNode");
    add<GeometryNodeFactory>(PiSocketType::GEOMETRY);
    add<SceneNodeFactory<PxMaterialProtocol, NullMaterialNode>>(PiSocketType::MATERIAL,
                                                                "MaterialPassThroughNode");
    add<SceneNodeFactory<PxShape2dProtocol, NullShape2dNode>>(PiSocketType::SHAPE2D,
                                                              "Shape2dPassThroughNode");
    add<SceneNodeFactory<PxAffineMatrix2Protocol, NullMatrixNode>>(PiSocketType::MATRIX,
                                                                   "MatrixPassThroughNode");
    add<SceneNodeFactory<PxGraphObjIdsProtocol, NullGraphObjIdsNode>>(PiSocketType::GRAPH_OBJ_IDS,
                                                                      "GraphObjIdsPassThroughNode");
    add<SceneNodeFactory<PxCameraProtocol, NullCameraNode>>(PiSocketType::CAMERA,
                                                            "CameraPassThroughNode");
}

void PiProcNodeFactory::finalize() {
    factories().clear();
}

// ---- value input nodes ----

template <class T>
AnimValueInputNode<T>::AnimValueInputNode(PxNode::Init const& init,
                                          PxStrongHndl<PxAnimValueProtocol<T> const> const& child,
                                          RCShdPtr<PiTypedInputPolicy<T> const> policy)
    : PxNode(init), Base(init, child), _policy(std::move(policy)) {
    VN_ASSERT(_policy);
}

template <class T>
PxResult<T> AnimValueInputNode<T>::getValue(PxTimeContext const& context) const {
    if (_policy->canAnimate()) {
        PxResult<T> r = this->getChild()->getValue(context);
        return PxResult<T>(_policy->filterValue(r.getValue()), r.getValidityInterval());
    }
    PxResult<T> r = this->getChild()->getValue(PxTimeContext(0.0));
    return PxResult<T>(_policy->filterValue(r.getValue()), PxValidityInterval::FULL);
}

template <class T>
NonAnimValueInputNode<T>::NonAnimValueInputNode(PxNode::Init const& init,
                                                PxStrongHndl<PxValueProtocol<T> const> const& child,
                                                RCShdPtr<PiTypedInputPolicy<T> const> policy)
    : PxNode(init), Base(init, child), _policy(std::move(policy)) {
    VN_ASSERT(_policy);
}

template <class T>
PxResult<T> NonAnimValueInputNode<T>::getValue() const {
    PxResult<T> r = this->getChild()->getValue();
    return PxResult<T>(_policy->filterValue(r.getValue()), r.getValidityInterval());
}

template class AnimValueInputNode<bool>;
template class AnimValueInputNode<double>;
template class AnimValueInputNode<int>;
template class AnimValueInputNode<std::string>;
template class NonAnimValueInputNode<DtTime>;

} // namespace Vn
