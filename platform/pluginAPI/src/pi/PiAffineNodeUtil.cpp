#include "PiAffineNodeUtil.h"

#include "Assertions.h"
#include "ExBase.h"
#include "PiTool.h"
#include "PxValidityInterval.h"

#include <cmath>
#include <limits>

namespace Vn {

template <class T>
PiRangeAvoidZeroInputPolicy<T>::PiRangeAvoidZeroInputPolicy(T min, T max, T defaultValue, T epsilon,
                                                            bool hidden, bool animatable)
    : PiRangeInputPolicy<T>(min, max, defaultValue, hidden, animatable), _epsilon(epsilon) {
    if (!(epsilon >= T(0)))
        VN_THROW_MSG(ExBase, "PiRangeAvoidZeroInputPolicy: the epsilon " + std::to_string(epsilon) +
                                 " is not a positive number");
    // A range that touches the epsilon is the tool author's mistake.
    if (-epsilon <= min && min <= epsilon)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "! (-epsilon <= minVal && minVal <= epsilon )");
    if (-epsilon <= max && max <= epsilon)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "! (-epsilon <= maxVal && maxVal <= epsilon )");
    if (-epsilon < defaultValue && defaultValue < epsilon)
        VN_THROW_MSG(ExBase, "PiRangeAvoidZeroInputPolicy: the default " +
                                 std::to_string(defaultValue) + " lies within " +
                                 std::to_string(epsilon) + " of zero");
}

template <class T>
PiRangeAvoidZeroInputPolicy<T>::~PiRangeAvoidZeroInputPolicy() = default;

template <class T>
RCShdPtr<PiRangeAvoidZeroInputPolicy<T> const>
PiRangeAvoidZeroInputPolicy<T>::create(T min, T max, T defaultValue, T epsilon, bool hidden,
                                       bool animatable) {
    return RCShdPtr<PiRangeAvoidZeroInputPolicy const>(
        new PiRangeAvoidZeroInputPolicy(min, max, defaultValue, epsilon, hidden, animatable));
}

template <class T>
T PiRangeAvoidZeroInputPolicy<T>::filterValue(T const& v) const {
    T const r = PiRangeInputPolicy<T>::filterValue(v);
    if (-_epsilon <= r && r < T(0))
        return -_epsilon;
    if (T(0) <= r && r <= _epsilon)
        return _epsilon;
    return r;
}

template <class T>
bool PiRangeAvoidZeroInputPolicy<T>::canSetValue(T const& v) const {
    return PiRangeInputPolicy<T>::canSetValue(v) && !(-_epsilon < v && v < _epsilon);
}

template class PiRangeAvoidZeroInputPolicy<double>;

namespace {

constexpr double kDegrees = 0.017453292519943295;
constexpr double kLimit = 2147483647.0;
constexpr double kScaleEpsilon = 0.0001;
constexpr double kTinyScale = 1e-40;

std::string joined(char const* group, char const* member) {
    return std::string(group) + "." + member;
}

void describeGroups(PiStructuredPolicyDescriptor& d) {
    auto const plain = PiRangeInputPolicy<double>::create(-kLimit, kLimit, 0.0);
    auto const scale =
        PiRangeAvoidZeroInputPolicy<double>::create(-kLimit, kLimit, 1.0, kScaleEpsilon);
    PiStructuredPolicyDescriptor& t = d.requireStructured("Translation");
    t.require("X", PiSocketType::DOUBLE, plain);
    t.require("Y", PiSocketType::DOUBLE, plain);
    d.require("Rotation", PiSocketType::DOUBLE, plain);
    PiStructuredPolicyDescriptor& s = d.requireStructured("Scale");
    s.require("X", PiSocketType::DOUBLE, scale);
    s.require("Y", PiSocketType::DOUBLE, scale);
    PiStructuredPolicyDescriptor& p = d.requireStructured("Pivot");
    p.require("X", PiSocketType::DOUBLE, plain);
    p.require("Y", PiSocketType::DOUBLE, plain);
    p.require("Rotation", PiSocketType::DOUBLE, plain);
}

PxNodePtr<PxAnimValueProtocol<double> const>
doubleInput(PiToolTopologyInterface::OutputPublisher& p, std::string const& name) {
    PxStrongHndl<PxNode const> const n = p.getInputNode(name);
    auto const* typed = dynamic_cast<PxAnimValueProtocol<double> const*>(n.get());
    if (!typed)
        VN_THROW_MSG(ExBase, "the input \"" + name + "\" does not give numbers");
    return PxNodePtr<PxAnimValueProtocol<double> const>(
        PxStrongHndl<PxAnimValueProtocol<double> const>(typed));
}

// A scale never reaches 0, so the backward matrix always exists.
double awayFromZero(double s) {
    if (std::isnan(s))
        return kTinyScale;
    return s >= 0.0 ? std::max(s, kTinyScale) : std::min(s, -kTinyScale);
}

GeAffineMatrix2<double> rotation(double degrees) {
    return GeRotation2<double>{degrees * kDegrees}.getMatrix();
}

GeAffineMatrix2<double> translation(double x, double y) {
    return GeAffineMatrix2<double>(1.0, 0.0, 0.0, 1.0, x, y);
}

GeAffineMatrix2<double> scaling(double x, double y) {
    return GeAffineMatrix2<double>(x, 0.0, 0.0, y, 0.0, 0.0);
}

} // namespace

std::string PiAffineNodeUtil::getXTransSocketName() {
    return joined("Translation", "X");
}
std::string PiAffineNodeUtil::getYTransSocketName() {
    return joined("Translation", "Y");
}
std::string PiAffineNodeUtil::getRotationSocketName() {
    return "Rotation";
}
std::string PiAffineNodeUtil::getXScaleSocketName() {
    return joined("Scale", "X");
}
std::string PiAffineNodeUtil::getYScaleSocketName() {
    return joined("Scale", "Y");
}
std::string PiAffineNodeUtil::getPivotXTransSocketName() {
    return joined("Pivot", "X");
}
std::string PiAffineNodeUtil::getPivotYTransSocketName() {
    return joined("Pivot", "Y");
}
std::string PiAffineNodeUtil::getPivotRotationSocketName() {
    return joined("Pivot", "Rotation");
}

void PiAffineNodeUtil::describe(PiToolPolicyDescriptor& descriptor) {
    describeGroups(descriptor);
}

PiStructuredPolicyDescriptor PiAffineNodeUtil::describe() {
    PiStructuredPolicyDescriptor d;
    describeGroups(d);
    return d;
}

PiAffineNodeUtil::Params::Params(Publisher& publisher) : Params(publisher, std::string()) {}

PiAffineNodeUtil::Params::Params(Publisher& p, std::string const& prefix)
    : _pivotX(doubleInput(p, prefix + getPivotXTransSocketName())),
      _pivotY(doubleInput(p, prefix + getPivotYTransSocketName())),
      _pivotRotation(doubleInput(p, prefix + getPivotRotationSocketName())),
      _transX(doubleInput(p, prefix + getXTransSocketName())),
      _transY(doubleInput(p, prefix + getYTransSocketName())),
      _rotation(doubleInput(p, prefix + getRotationSocketName())),
      _scaleX(doubleInput(p, prefix + getXScaleSocketName())),
      _scaleY(doubleInput(p, prefix + getYScaleSocketName())) {}

PiAffineNodeUtil::Params::Params(Inputs const& in)
    : _pivotX(in.pivotX), _pivotY(in.pivotY), _pivotRotation(in.pivotRotation), _transX(in.transX),
      _transY(in.transY), _rotation(in.rotation), _scaleX(in.scaleX), _scaleY(in.scaleY) {
    for (Input const* i :
         {&_pivotX, &_pivotY, &_pivotRotation, &_transX, &_transY, &_rotation, &_scaleX, &_scaleY})
        if (i->isNull())
            RCExUtil::throwExNullPtr("PxAnimValueProtocol<double>");
}

void PiAffineNodeUtil::Params::registerChildren(PxNode& node) const {
    for (Input const* in :
         {&_pivotX, &_pivotY, &_pivotRotation, &_transX, &_transY, &_rotation, &_scaleX, &_scaleY})
        node.registerChild(PxNodePtr<PxNode const>(*in));
}

void PiAffineNodeUtil::Params::unregisterChildren(PxNode& node) const {
    for (Input const* in :
         {&_pivotX, &_pivotY, &_pivotRotation, &_transX, &_transY, &_rotation, &_scaleX, &_scaleY})
        node.unregisterChild(PxNodePtr<PxNode const>(*in));
}

PiAffineNodeUtil::Params::Values PiAffineNodeUtil::Params::read(PxTimeContext const& context,
                                                                PxValidityInterval& vi) const {
    auto get = [&](Input const& in) {
        PxResult<double> const r = in->getValue(context);
        r.reduceVI(vi);
        return r.getValue();
    };
    Values v{};
    v.pivotRotation = get(_pivotRotation);
    v.pivotX = get(_pivotX);
    v.pivotY = get(_pivotY);
    v.scaleX = awayFromZero(get(_scaleX));
    v.scaleY = awayFromZero(get(_scaleY));
    v.rotation = get(_rotation);
    v.transX = get(_transX);
    v.transY = get(_transY);
    return v;
}

GeAffineMatrix2<double> PiAffineNodeUtil::Params::computeForward(PxTimeContext const& context,
                                                                 PxValidityInterval& vi) const {
    Values const v = read(context, vi);
    return translation(v.pivotX, v.pivotY) * rotation(v.pivotRotation) *
           translation(v.transX, v.transY) * rotation(v.rotation) * scaling(v.scaleX, v.scaleY) *
           rotation(-v.pivotRotation) * translation(-v.pivotX, -v.pivotY);
}

GeAffineMatrix2<double> PiAffineNodeUtil::Params::computeBackward(PxTimeContext const& context,
                                                                  PxValidityInterval& vi) const {
    Values const v = read(context, vi);
    return translation(v.pivotX, v.pivotY) * rotation(v.pivotRotation) *
           scaling(1.0 / v.scaleX, 1.0 / v.scaleY) * rotation(-v.rotation) *
           translation(-v.transX, -v.transY) * rotation(-v.pivotRotation) *
           translation(-v.pivotX, -v.pivotY);
}

} // namespace Vn
