#pragma once

#include "DtTime.h"
#include "DtTimeIndex.h"
#include "GeRectangle.h"
#include "GeVector.h"
#include "PiSocket.h"
#include "PiValue.h"
#include "PxImageFormat.h"
#include "PxImageRequests.h"
#include "PxNode.h"
#include "PxTimeContext.h"
#include "PxValueProtocol.h"
#include "VnExport.h"

namespace Vn {

// Whether a wrapper may stand for nothing: a null socket, or a socket whose processing node
// does not give what the wrapper reads.
enum class PiCheckNull : int { ALLOW_NULL = 0, CHECK_NOT_NULL = 1 };

// A socket's value read from the processing graph: one request on the node that stands behind
// the socket, built on first use. Stack objects of the interface thread; they cache nothing.
template <class T, class Socket>
class VN_EXPORT PiTypedSocket {
public:
    using CheckNull = PiCheckNull;
    static constexpr CheckNull ALLOW_NULL = PiCheckNull::ALLOW_NULL;
    PiTypedSocket(RCShdPtr<Socket const> const& socket,
                  CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    T getValue() const;
    bool isNull() const { return !_pxNode.lock(); }

private:
    RCShdPtr<Socket const> _socket;
    PxWeakHndl<PxValueProtocol<T> const> _pxNode;
};

// The same for animated values, read at a time.
template <class T, class Socket>
class VN_EXPORT PiTypedAnimSocket {
public:
    using CheckNull = PiCheckNull;
    static constexpr CheckNull ALLOW_NULL = PiCheckNull::ALLOW_NULL;
    PiTypedAnimSocket(RCShdPtr<Socket const> const& socket,
                      CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    T getValue(double seconds) const;
    bool isNull() const { return !_pxNode.lock(); }

private:
    RCShdPtr<Socket const> _socket;
    PxWeakHndl<PxAnimValueProtocol<T> const> _pxNode;
};

// An input's value read as PiTypedSocket does, and written through the controller of the value
// node that feeds the input, found again at each write.
template <class T>
class VN_EXPORT PiTypedInput : public PiTypedSocket<T, PiInput> {
public:
    PiTypedInput(RCShdPtr<PiInput> const& input, PiCheckNull check = PiCheckNull::CHECK_NOT_NULL);
    void setValue(T const& value) const;

private:
    RCShdPtr<PiInput> _input;
};

// An animatable input's value read at a time, and written as the value controller does: the
// time-less form removes the animation, the timed form obeys auto-key and tries changes out.
template <class T>
class VN_EXPORT PiTypedAnimInput : public PiTypedAnimSocket<T, PiInput> {
public:
    PiTypedAnimInput(RCShdPtr<PiInput> const& input,
                     PiCheckNull check = PiCheckNull::CHECK_NOT_NULL);
    void setValue(T const& value) const;
    void setValue(double seconds, T const& value) const;
    void setKey(double seconds, T const& value) const;

private:
    RCShdPtr<PiInput> _input;
};

// A socket's images: format, region of definition and tiles, each one request.
template <class Socket>
class VN_EXPORT PiImageSocket {
public:
    using CheckNull = PiCheckNull;
    // `requestParam` goes to the multi-tile request as it is.
    PiImageSocket(RCShdPtr<Socket const> const& socket, int requestParam = 0,
                  CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    // Only that rectangle; one of zero width or height asks for the whole image.
    PiImageSocket(RCShdPtr<Socket const> const& socket, GeRectangle<int> const& rect,
                  int requestParam = 0, CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    // Only the tile at that position; (0, 0) asks for the whole image. Wins over a rectangle.
    PiImageSocket(RCShdPtr<Socket const> const& socket, GeVector2<int> const& tilePos,
                  CheckNull check = PiCheckNull::CHECK_NOT_NULL);

    PxImageFormat getFormat() const;
    PxRODResult getROD(double seconds, int stream) const;
    // The index is turned into seconds with the images' frame rate.
    PxRODResult getROD(DtTimeIndex const& index, int stream) const;
    // The tiles of the stream `option`, at full scale.
    RCShdPtr<PxImageResults> getValue(PxTimeInfo const& time, int option = 0) const;
    RCShdPtr<PxImageResults> getValue(DtTimeIndex const& index, int option = 0) const;
    bool isNull() const { return !_pxNode.lock(); }
    PxStrongHndl<PxImageProtocol const> getNode() const { return _pxNode.lock(); }

private:
    void init(CheckNull check);

    RCShdPtr<Socket const> _socket;
    PxWeakHndl<PxImageProtocol const> _pxNode;
    int _requestParam = 0;
    GeRectangle<int> _rect{};
    GeVector2<int> _tilePos{};
};

// A stored value narrowed to its type. An empty wrapper raises ExNullPtr on use.
template <class T>
class VN_EXPORT PiTypedValueUtil {
public:
    using CheckNull = PiCheckNull;
    PiTypedValueUtil() = default;
    explicit PiTypedValueUtil(RCShdPtr<PiValue> const& value,
                              CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    T get() const;
    void set(T const& v) const;
    bool isNull() const noexcept { return !_value; }

private:
    RCShdPtr<PiTypedValue<T>> _value;
};

// The same over a value that is only read.
template <class T>
class VN_EXPORT PiConstTypedValueUtil {
public:
    using CheckNull = PiCheckNull;
    PiConstTypedValueUtil() = default;
    explicit PiConstTypedValueUtil(RCShdPtr<PiValue const> const& value,
                                   CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    T get() const;
    bool isNull() const noexcept { return !_value; }

private:
    RCShdPtr<PiTypedValue<T> const> _value;
};

// A stored array narrowed to its element type.
template <class T>
class VN_EXPORT PiTypedValueArrayUtil {
public:
    using CheckNull = PiCheckNull;
    PiTypedValueArrayUtil() = default;
    explicit PiTypedValueArrayUtil(RCShdPtr<PiValue> const& value,
                                   CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    typename PiTypedValueArray<T>::ArrayPtr getArray() const;
    void setArray(typename PiTypedValueArray<T>::Array values) const;
    bool isNull() const noexcept { return !_value; }

private:
    RCShdPtr<PiTypedValueArray<T>> _value;
};

// The same over an array that is only read.
template <class T>
class VN_EXPORT PiConstTypedValueArrayUtil {
public:
    using CheckNull = PiCheckNull;
    PiConstTypedValueArrayUtil() = default;
    explicit PiConstTypedValueArrayUtil(RCShdPtr<PiValue const> const& value,
                                        CheckNull check = PiCheckNull::CHECK_NOT_NULL);
    typename PiTypedValueArray<T>::ArrayPtr getArray() const;
    bool isNull() const noexcept { return !_value; }

private:
    RCShdPtr<PiTypedValueArray<T> const> _value;
};

extern template class PiTypedSocket<DtTime, PiInput>;
extern template class PiTypedSocket<DtTime, PiOutput>;
extern template class PiTypedAnimSocket<bool, PiInput>;
extern template class PiTypedAnimSocket<bool, PiOutput>;
extern template class PiTypedAnimSocket<int, PiInput>;
extern template class PiTypedAnimSocket<int, PiOutput>;
extern template class PiTypedAnimSocket<double, PiInput>;
extern template class PiTypedAnimSocket<double, PiOutput>;
extern template class PiTypedAnimSocket<std::string, PiInput>;
extern template class PiTypedAnimSocket<std::string, PiOutput>;
extern template class PiImageSocket<PiInput>;
extern template class PiTypedInput<DtTime>;
extern template class PiTypedAnimInput<bool>;
extern template class PiTypedAnimInput<int>;
extern template class PiTypedAnimInput<double>;
extern template class PiTypedAnimInput<std::string>;
extern template class PiImageSocket<PiOutput>;

} // namespace Vn
