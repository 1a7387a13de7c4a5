#include "PiSockets.h"

#include "Assertions.h"
#include "PiNode.h"
#include "PiTopologyInterface.h"
#include "PiValueInterface.h"
#include "PxRequestMgr.h"
#include "RCExUtil.h"

#include <typeinfo>

namespace Vn {

namespace {

RCShdPtr<PiTopologyInterface> topologyOf(PiSocket const& socket) {
    RCShdPtr<PiNode> node = socket.retrieveNode();
    RCShdPtr<PiNodeController> controller =
        node ? node->getController().lock() : RCShdPtr<PiNodeController>();
    auto topo = rcDynamicCast<PiTopologyInterface>(controller);
    if (!topo)
        RCExUtil::throwExNullPtr(typeid(PiTopologyInterface).name());
    return topo;
}

PxWeakHndl<PxNode const> procNodeOf(RCShdPtr<PiInput const> const& in) {
    return topologyOf(*in)->getInputProcNode(RCShdPtr<PiInput>(const_cast<PiInput*>(in.get())));
}

PxWeakHndl<PxNode const> procNodeOf(RCShdPtr<PiOutput const> const& out) {
    return topologyOf(*out)->getOutputProcNode(
        RCShdPtr<PiOutput>(const_cast<PiOutput*>(out.get())));
}

template <class Socket>
char const* assignText() {
    return std::is_same_v<Socket, PiInput>
               ? "_pxNode.dynamicAssign( topo->getInputProcNode( in ) ) || check == ALLOW_NULL"
               : "_pxNode.dynamicAssign( topo->getOutputProcNode( out ) ) || check == ALLOW_NULL";
}

// The socket's node as protocol P; empty when the socket is null or the node has another
// protocol, which only ALLOW_NULL accepts.
template <class P, class Socket>
PxWeakHndl<P const> lookUp(RCShdPtr<Socket const> const& socket, PiCheckNull check) {
    if (!socket) {
        if (check != PiCheckNull::ALLOW_NULL)
            RCExUtil::throwExNullPtr(typeid(Socket).name());
        return {};
    }
    PxStrongHndl<PxNode const> node = procNodeOf(socket).lock();
    auto const* typed = dynamic_cast<P const*>(node.get());
    if (!typed) {
        if (check != PiCheckNull::ALLOW_NULL)
            Assertions::throwAssertionFailed(__FILE__, __LINE__, assignText<Socket>());
        return {};
    }
    return PxWeakHndl<P const>(PxStrongHndl<P const>(typed));
}

// Runs a request on the node while it lives, else on no node, and gives what `read` reads.
template <class R, class Read>
auto run(R* request, Read read) {
    PxRequestPtr<R> held(request);
    PxRequestMgr::getInstance().executeRequest(request, false);
    return read(*request);
}

} // namespace

template <class T, class Socket>
PiTypedSocket<T, Socket>::PiTypedSocket(RCShdPtr<Socket const> const& socket, CheckNull check)
    : _socket(socket), _pxNode(lookUp<PxValueProtocol<T>>(socket, check)) {}

template <class T, class Socket>
T PiTypedSocket<T, Socket>::getValue() const {
    PxStrongHndl<PxValueProtocol<T> const> const node = _pxNode.lock();
    return run(new PxValueRequest<T>(PxUPtr<PxValueProtocol<T> const>(node)),
               [](PxValueRequest<T>& r) { return r.getValue().getValue(); });
}

template <class T, class Socket>
PiTypedAnimSocket<T, Socket>::PiTypedAnimSocket(RCShdPtr<Socket const> const& socket,
                                                CheckNull check)
    : _socket(socket), _pxNode(lookUp<PxAnimValueProtocol<T>>(socket, check)) {}

template <class T, class Socket>
T PiTypedAnimSocket<T, Socket>::getValue(double seconds) const {
    PxStrongHndl<PxAnimValueProtocol<T> const> const node = _pxNode.lock();
    return run(new PxAnimValueRequest<T>(PxUPtr<PxAnimValueProtocol<T> const>(node),
                                         PxTimeContext(seconds)),
               [](PxAnimValueRequest<T>& r) { return r.getValue().getValue(); });
}

// The controller of the value node that feeds the input, as interface I; raises ExNullPtr when
// there is none.
template <class I>
RCShdPtr<I> valueControllerOf(RCShdPtr<PiInput> const& input) {
    RCShdPtr<PiOutput> out = input ? input->getConnectedOutput() : RCShdPtr<PiOutput>();
    RCShdPtr<PiNode> node = out ? out->retrieveNode() : RCShdPtr<PiNode>();
    auto c = node ? rcDynamicCast<I>(node->getController().lock()) : RCShdPtr<I>();
    if (!c)
        RCExUtil::throwExNullPtr(typeid(I).name());
    return c;
}

template <class T>
PiTypedInput<T>::PiTypedInput(RCShdPtr<PiInput> const& input, PiCheckNull check)
    : PiTypedSocket<T, PiInput>(input, check), _input(input) {
    if (check != PiCheckNull::ALLOW_NULL)
        valueControllerOf<PiValueInterface<T>>(input);
}

template <class T>
void PiTypedInput<T>::setValue(T const& value) const {
    valueControllerOf<PiValueInterface<T>>(_input)->setValue(value);
}

template <class T>
PiTypedAnimInput<T>::PiTypedAnimInput(RCShdPtr<PiInput> const& input, PiCheckNull check)
    : PiTypedAnimSocket<T, PiInput>(input, check), _input(input) {
    if (check != PiCheckNull::ALLOW_NULL)
        valueControllerOf<PiAnimValueInterface<T>>(input);
}

template <class T>
void PiTypedAnimInput<T>::setValue(T const& value) const {
    valueControllerOf<PiAnimValueInterface<T>>(_input)->setValue(value);
}

template <class T>
void PiTypedAnimInput<T>::setValue(double seconds, T const& value) const {
    valueControllerOf<PiAnimValueInterface<T>>(_input)->setValue(seconds, value);
}

template <class T>
void PiTypedAnimInput<T>::setKey(double seconds, T const& value) const {
    valueControllerOf<PiAnimValueInterface<T>>(_input)->setKey(seconds, value);
}

template <class Socket>
PiImageSocket<Socket>::PiImageSocket(RCShdPtr<Socket const> const& socket, int requestParam,
                                     CheckNull check)
    : _socket(socket), _requestParam(requestParam) {
    init(check);
}

template <class Socket>
PiImageSocket<Socket>::PiImageSocket(RCShdPtr<Socket const> const& socket,
                                     GeRectangle<int> const& rect, int requestParam,
                                     CheckNull check)
    : _socket(socket), _requestParam(requestParam), _rect(rect) {
    init(check);
}

template <class Socket>
PiImageSocket<Socket>::PiImageSocket(RCShdPtr<Socket const> const& socket,
                                     GeVector2<int> const& tilePos, CheckNull check)
    : _socket(socket), _tilePos(tilePos) {
    init(check);
}

template <class Socket>
void PiImageSocket<Socket>::init(CheckNull check) {
    _pxNode = lookUp<PxImageProtocol>(_socket, check);
}

template <class Socket>
PxImageFormat PiImageSocket<Socket>::getFormat() const {
    PxStrongHndl<PxImageProtocol const> const node = _pxNode.lock();
    return run(new PxImageFormatRequest(PxUPtr<PxImageFormatProtocol const>(node)),
               [](PxImageFormatRequest& r) { return r.getImageFormat(); });
}

template <class Socket>
PxRODResult PiImageSocket<Socket>::getROD(double seconds, int stream) const {
    PxStrongHndl<PxImageProtocol const> const node = _pxNode.lock();
    return run(new PxImageRODRequest(PxUPtr<PxImageProtocol const>(node),
                                     PxTimeStreamContext(seconds, stream)),
               [](PxImageRODRequest& r) { return r.getImageROD(); });
}

template <class Socket>
PxRODResult PiImageSocket<Socket>::getROD(DtTimeIndex const& index, int stream) const {
    PxStrongHndl<PxImageProtocol const> const node = _pxNode.lock();
    // The format request lives until the second request has been read.
    PxRequestPtr<PxImageFormatRequest> format(
        new PxImageFormatRequest(PxUPtr<PxImageFormatProtocol const>(node)));
    PxRequestMgr::getInstance().executeRequest(format.get(), false);
    double const seconds = index.toSeconds(format->getImageFormat().getFrameRate());
    return run(new PxImageRODRequest(PxUPtr<PxImageProtocol const>(node),
                                     PxTimeStreamContext(seconds, stream)),
               [](PxImageRODRequest& r) { return r.getImageROD(); });
}

template <class Socket>
RCShdPtr<PxImageResults> PiImageSocket<Socket>::getValue(PxTimeInfo const& time, int option) const {
    PxStrongHndl<PxImageProtocol const> const node = _pxNode.lock();
    PxUPtr<PxImageProtocol const> const n(node);
    PxImageMultiTileRequest* request;
    if (_tilePos.x != 0 || _tilePos.y != 0)
        request = new PxImageMultiTileRequest(n, _tilePos, option, time, 0);
    else if (_rect.width() > 0 && _rect.height() > 0)
        request = new PxImageMultiTileRequest(n, _rect, option, time, 0, _requestParam);
    else
        request = new PxImageMultiTileRequest(n, option, time, 0, _requestParam);
    return run(request, [](PxImageMultiTileRequest& r) { return r.getResults(); });
}

template <class Socket>
RCShdPtr<PxImageResults> PiImageSocket<Socket>::getValue(DtTimeIndex const& index,
                                                         int option) const {
    return getValue(PxTimeInfo(index.toSeconds(getFormat().getFrameRate())), option);
}

template <class T>
PiTypedValueUtil<T>::PiTypedValueUtil(RCShdPtr<PiValue> const& value, CheckNull check)
    : _value(rcDynamicCast<PiTypedValue<T>>(value)) {
    if (!(check == PiCheckNull::ALLOW_NULL || !_value.isNull()))
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "check == ALLOW_NULL || !_value.isNull()");
}

template <class T>
T PiTypedValueUtil<T>::get() const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValue<T>).name());
    return _value->get();
}

template <class T>
void PiTypedValueUtil<T>::set(T const& v) const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValue<T>).name());
    _value->set(v);
}

template <class T>
PiConstTypedValueUtil<T>::PiConstTypedValueUtil(RCShdPtr<PiValue const> const& value,
                                                CheckNull check)
    : _value(rcDynamicCast<PiTypedValue<T> const>(value)) {
    if (!(check == PiCheckNull::ALLOW_NULL || !_value.isNull()))
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "check == ALLOW_NULL || !_value.isNull()");
}

template <class T>
T PiConstTypedValueUtil<T>::get() const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValue<T>).name());
    return _value->get();
}

template <class T>
PiTypedValueArrayUtil<T>::PiTypedValueArrayUtil(RCShdPtr<PiValue> const& value, CheckNull check)
    : _value(rcDynamicCast<PiTypedValueArray<T>>(value)) {
    if (!(check == PiCheckNull::ALLOW_NULL || !_value.isNull()))
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "check == ALLOW_NULL || !_value.isNull()");
}

template <class T>
typename PiTypedValueArray<T>::ArrayPtr PiTypedValueArrayUtil<T>::getArray() const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValueArray<T>).name());
    return _value->getArray();
}

template <class T>
void PiTypedValueArrayUtil<T>::setArray(typename PiTypedValueArray<T>::Array values) const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValueArray<T>).name());
    _value->setArray(std::move(values));
}

template <class T>
PiConstTypedValueArrayUtil<T>::PiConstTypedValueArrayUtil(RCShdPtr<PiValue const> const& value,
                                                          CheckNull check)
    : _value(rcDynamicCast<PiTypedValueArray<T> const>(value)) {
    if (!(check == PiCheckNull::ALLOW_NULL || !_value.isNull()))
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "check == ALLOW_NULL || !_value.isNull()");
}

template <class T>
typename PiTypedValueArray<T>::ArrayPtr PiConstTypedValueArrayUtil<T>::getArray() const {
    if (!_value)
        RCExUtil::throwExNullPtr(typeid(PiTypedValueArray<T>).name());
    return _value->getArray();
}

template class PiTypedSocket<DtTime, PiInput>;
template class PiTypedSocket<DtTime, PiOutput>;
template class PiTypedAnimSocket<bool, PiInput>;
template class PiTypedAnimSocket<bool, PiOutput>;
template class PiTypedAnimSocket<int, PiInput>;
template class PiTypedAnimSocket<int, PiOutput>;
template class PiTypedAnimSocket<double, PiInput>;
template class PiTypedAnimSocket<double, PiOutput>;
template class PiTypedAnimSocket<std::string, PiInput>;
template class PiTypedAnimSocket<std::string, PiOutput>;
template class PiImageSocket<PiInput>;
template class PiImageSocket<PiOutput>;
template class PiTypedInput<DtTime>;
template class PiTypedAnimInput<bool>;
template class PiTypedAnimInput<int>;
template class PiTypedAnimInput<double>;
template class PiTypedAnimInput<std::string>;
template class PiTypedValueUtil<bool>;
template class PiTypedValueUtil<int>;
template class PiTypedValueUtil<double>;
template class PiTypedValueUtil<std::string>;
template class PiTypedValueUtil<DtTime>;
template class PiConstTypedValueUtil<bool>;
template class PiConstTypedValueUtil<int>;
template class PiConstTypedValueUtil<double>;
template class PiConstTypedValueUtil<std::string>;
template class PiConstTypedValueUtil<DtTime>;
template class PiTypedValueArrayUtil<int>;
template class PiTypedValueArrayUtil<double>;
template class PiTypedValueArrayUtil<std::string>;
template class PiConstTypedValueArrayUtil<int>;
template class PiConstTypedValueArrayUtil<double>;
template class PiConstTypedValueArrayUtil<std::string>;

} // namespace Vn
