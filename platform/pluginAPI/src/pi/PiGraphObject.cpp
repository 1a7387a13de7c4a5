#include "PiGraphObject.h"

#include "ExBase.h"
#include "PiNode.h"
#include "PiNodeController.h"
#include "PiValue.h"

#include <atomic>
#include <limits>

namespace Vn {

namespace {
std::atomic<int> s_lastId{0};
}

PiGraphObject::PiGraphObject() {
    int id = s_lastId.load(std::memory_order_relaxed);
    do {
        if (id == std::numeric_limits<int>::max())
            VN_THROW_MSG(ExBase, "graph object ids are exhausted");
    } while (!s_lastId.compare_exchange_weak(id, id + 1, std::memory_order_relaxed));
    _id = id + 1;
}

PiGraphObject::~PiGraphObject() = default;

int PiGraphObject::getLastId() noexcept {
    return s_lastId.load(std::memory_order_relaxed);
}

bool PiInput::isPartOfComposite() const {
    RCShdPtr<PiInput> owner = getOwnerInput();
    return owner && owner->isComposite();
}

std::string PiInput::getDottedName() const {
    std::string name = getName();
    for (RCShdPtr<PiInput> o = getOwnerInput(); o; o = o->getOwnerInput())
        name = o->getName() + "." + name;
    return name;
}

void PiNode::addEventHandler(CbHandler<PiNodeEvent>* handler) const {
    if (RCShdPtr<PiNodeController> c = getController().lock())
        c->addEventHandler(handler);
}

void PiNode::removeEventHandler(CbHandler<PiNodeEvent>* handler) const {
    if (RCShdPtr<PiNodeController> c = getController().lock())
        c->removeEventHandler(handler);
}

bool PiValue::isKnownType(int code) noexcept {
    return (code >= 0 && code <= 4) || (code >= 6 && code <= 8);
}

char const* PiValue::getTypeName(PiValueType type) noexcept {
    switch (type) {
    case PiValueType::Bool:
        return "bool";
    case PiValueType::Double:
        return "double";
    case PiValueType::Int:
        return "int";
    case PiValueType::Time:
        return "time";
    case PiValueType::String:
        return "string";
    case PiValueType::DoubleArray:
        return "double array";
    case PiValueType::IntArray:
        return "int array";
    case PiValueType::StringArray:
        return "string array";
    }
    return "unknown";
}

template class PiTypedValue<bool>;
template class PiTypedValue<double>;
template class PiTypedValue<int>;
template class PiTypedValue<DtTime>;
template class PiTypedValue<std::string>;
template class PiTypedValueArray<double>;
template class PiTypedValueArray<int>;
template class PiTypedValueArray<std::string>;

} // namespace Vn
