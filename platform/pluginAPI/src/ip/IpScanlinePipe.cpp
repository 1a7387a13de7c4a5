#include "IpScanlinePipe.h"
#include "IxImageOps.h"

#include "Assertions.h"
#include "IxGuardBase.h"
#include "PxRequestMgr.h"

#include <algorithm>
#include <climits>
#include <exception>
#include <type_traits>
#include <utility>

namespace Vn {

namespace {

int slotOf(int y, int y0, int n) {
    int const r = (y - y0) % n;
    return r < 0 ? r + n : r;
}

template <class T>
void makeRing(Vector<OPtr<IxScanline<T>>>& rows, Vector<int>& rowOf, int n,
              GeRectangle<int> const& region) {
    rows.clear();
    rowOf.assign(static_cast<std::size_t>(n), INT_MIN);
    for (int i = 0; i < n; ++i)
        rows.emplace_back(new IxScanline<T>(region.xmin, region.xmax, IxPaddingPolicy<T>()));
}

template <class T>
IxScanline<T> const* findRow(Vector<OPtr<IxScanline<T>>> const& rows, Vector<int> const& rowOf,
                             int y, int y0) {
    if (rows.empty())
        return nullptr;
    int const s = slotOf(y, y0, static_cast<int>(rows.size()));
    return rowOf[static_cast<std::size_t>(s)] == y ? rows[static_cast<std::size_t>(s)].get()
                                                   : nullptr;
}

} // namespace

void IpScanlinePipe::checkCancelled() {
    if (PxRequestMgr::isInitialized())
        PxRequestMgr::getInstance().checkCancelled();
}

// ---- IpScanlinePipe

IpScanlinePipe::IpScanlinePipe(Vector<IpScanlinePipePtr> inputs, int marginX, int marginY)
    : _inputs(std::move(inputs)), _marginX(marginX), _marginY(marginY), _outputDelay(marginY) {
    VN_ASSERT(marginX >= 0 && marginY >= 0);
    for (IpScanlinePipePtr const& p : _inputs)
        VN_ASSERT(!p.isNull());
}

IpScanlinePipe::~IpScanlinePipe() = default;

IpScanlinePipePtr const& IpScanlinePipe::getInput(int i) const {
    VN_ASSERT(0 <= i && i < getNbInputs());
    return _inputs[static_cast<std::size_t>(i)];
}

Vector<IpSourceNode*> IpScanlinePipe::getAllInputs() const {
    Vector<IpSourceNode*> out;
    Vector<IpScanlinePipe const*> stack{this};
    Vector<IpScanlinePipe const*> seen;
    while (!stack.empty()) {
        IpScanlinePipe const* n = stack.back();
        stack.pop_back();
        if (std::find(seen.begin(), seen.end(), n) != seen.end())
            continue;
        seen.push_back(n);
        if (auto* s = dynamic_cast<IpSourceNode const*>(n))
            out.push_back(const_cast<IpSourceNode*>(s));
        for (auto it = n->_inputs.rbegin(); it != n->_inputs.rend(); ++it)
            stack.push_back(it->get());
    }
    return out;
}

GeRectangle<int> IpScanlinePipe::getSrcRegion() const {
    if (_dstRegion.isEmpty())
        return {};
    return {_dstRegion.xmin - _marginX, _dstRegion.xmax + _marginX, _dstRegion.ymin - _marginY,
            _dstRegion.ymax + _marginY};
}

void IpScanlinePipe::setDstRegion(GeRectangle<int> const& region) {
    _dstRegion = region;
}

GeRectangle<int> IpScanlinePipe::getImageRegion() const {
    GeRectangle<int> shown;
    for (IpScanlinePipePtr const& in : _inputs)
        shown = shown.unite(in->getImageRegion());
    return grow(shown, _marginX, _marginY);
}

GeRectangle<int> IpScanlinePipe::grow(GeRectangle<int> const& r, long long x, long long y) {
    if (r.isEmpty())
        return {};
    auto const bound = [](long long v) {
        return static_cast<int>(std::clamp<long long>(v, -kUnbounded, kUnbounded));
    };
    return {bound(r.xmin - x), bound(r.xmax + x), bound(r.ymin - y), bound(r.ymax + y)};
}

IxScanline<float> const& IpScanlinePipe::getAlphaScanline(int y) const {
    IxScanline<float> const* row = findAlphaRow(y);
    // clang-format off
    VN_ASSERT(row != nullptr && "row not held: the graph was not laid out for this read");
    // clang-format on
    return *row;
}

IxScanline<IpScanlinePipe::Color> const& IpScanlinePipe::getColorScanline(int y) const {
    IxScanline<Color> const* row = findColorRow(y);
    // clang-format off
    VN_ASSERT(row != nullptr && "row not held: the graph was not laid out for this read");
    // clang-format on
    return *row;
}

IxScanline<float> const* IpScanlinePipe::findAlphaRow(int) const {
    return nullptr;
}
IxScanline<IpScanlinePipe::Color> const* IpScanlinePipe::findColorRow(int) const {
    return nullptr;
}

void IpScanlinePipe::initializeProcessing() {}
void IpScanlinePipe::finishProcessing() {}

// ---- IpScanlinePipeOutput

template <class T>
IpScanlinePipeOutput<T>::IpScanlinePipeOutput(Vector<IpScanlinePipePtr> inputs, int marginX,
                                              int marginY)
    : IpScanlinePipe(std::move(inputs), marginX, marginY) {}

template <class T>
IpScanlinePipeOutput<T>::~IpScanlinePipeOutput() = default;

template <class T>
bool IpScanlinePipeOutput<T>::givesAlphaRows() const noexcept {
    return std::is_same_v<T, float>;
}

template <class T>
bool IpScanlinePipeOutput<T>::givesColorRows() const noexcept {
    return std::is_same_v<T, Color>;
}

template <class T>
IxScanline<T> const& IpScanlinePipeOutput<T>::getOutputScanline(int y) const {
    if constexpr (std::is_same_v<T, float>)
        return getAlphaScanline(y);
    else
        return getColorScanline(y);
}

// The row of y when this output holds rows of U, as a view where one stands in for it.
template <class T>
template <class U>
IxScanline<U> const* IpScanlinePipeOutput<T>::findRowOf(int y) const {
    if constexpr (std::is_same_v<T, U>) {
        IxScanline<T> const* row = findRow(_rows, _rowOf, y, _dstRegion.ymin);
        if (row && !_isView.empty()) {
            auto const s = static_cast<std::size_t>(
                slotOf(y, _dstRegion.ymin, static_cast<int>(_rows.size())));
            return _isView[s] ? _views[s].get() : row;
        }
        return row;
    } else {
        return nullptr;
    }
}

template <class T>
IxScanline<float> const* IpScanlinePipeOutput<T>::findAlphaRow(int y) const {
    return findRowOf<float>(y);
}

template <class T>
IxScanline<IpScanlinePipe::Color> const* IpScanlinePipeOutput<T>::findColorRow(int y) const {
    return findRowOf<Color>(y);
}

template <class T>
void IpScanlinePipeOutput<T>::initializeProcessing() {
    _rows.clear();
    _rowOf.clear();
    _views.clear();
    _isView.clear();
    if (_consumers == 0 || _dstRegion.isEmpty())
        return;
    int const n = std::clamp(_nbKeptRows, 1, _dstRegion.height());
    makeRing(_rows, _rowOf, n, _dstRegion);
    if (_direct) {
        for (int i = 0; i < n; ++i)
            _views.emplace_back(new IxScanline<T>(nullptr, 0, 0, {}));
        _isView.assign(static_cast<std::size_t>(n), 0);
    }
}

template <class T>
void IpScanlinePipeOutput<T>::tick(int t) {
    int const y = t - _latency;
    if (y < _dstRegion.ymin || y >= _dstRegion.ymax || _rows.empty())
        return;
    auto const s =
        static_cast<std::size_t>(slotOf(y, _dstRegion.ymin, static_cast<int>(_rows.size())));
    _rowOf[s] = INT_MIN;
    IxScanline<T>* out = _rows[s].get();
    if (!_isView.empty()) {
        // Straight into the target when it holds the whole row in this node's format.
        IxWriteGuard const& g = *_direct;
        bool const whole = ipHoldsPixels(g, IxScanline<T>::PIXEL_FORMAT,
                                         {_dstRegion.xmin, _dstRegion.xmax, y, y + 1});
        _isView[s] = whole;
        if (whole) {
            _views[s]->rebuild(g.getPixel<T>(_dstRegion.xmin, y), _dstRegion.xmin, _dstRegion.xmax);
            out = _views[s].get();
        }
    }
    computeScanline(y, *out);
    _rowOf[s] = y;
}

template <class T>
void IpScanlinePipeOutput<T>::finishProcessing() {
    _rows.clear();
    _rowOf.clear();
    _views.clear();
    _isView.clear();
}

template <class T>
IpScanlinePipe1In<T>::IpScanlinePipe1In(IpScanlinePipePtr const& input, int marginX, int marginY)
    : IpScanlinePipeOutput<T>({input}, marginX, marginY) {
    if constexpr (std::is_same_v<T, float>)
        VN_ASSERT(input->givesAlphaRows());
    else
        VN_ASSERT(input->givesColorRows());
}

template <class T>
IpScanlinePipe1In<T>::~IpScanlinePipe1In() = default;

template <class T>
CoRgbaColorTyped<float> IpScanlinePipe1In<T>::getFillColor() const {
    return this->_inputs[0]->getFillColor();
}

template <class T>
IxScanline<T> const& IpScanlinePipe1In<T>::getInputScanline(int y) const {
    if constexpr (std::is_same_v<T, float>)
        return this->_inputs[0]->getAlphaScanline(y);
    else
        return this->_inputs[0]->getColorScanline(y);
}

template <class T>
IpScanlinePipe2In<T>::IpScanlinePipe2In(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b)
    : IpScanlinePipeOutput<T>({a, b}, 0, 0) {
    if constexpr (std::is_same_v<T, float>)
        VN_ASSERT(a->givesAlphaRows() && b->givesAlphaRows());
    else
        VN_ASSERT(a->givesColorRows() && b->givesColorRows());
}

template <class T>
IpScanlinePipe2In<T>::~IpScanlinePipe2In() = default;

template <class T>
IxScanline<T> const& IpScanlinePipe2In<T>::getInputScanline(int i, int y) const {
    if constexpr (std::is_same_v<T, float>)
        return this->_inputs[static_cast<std::size_t>(i)]->getAlphaScanline(y);
    else
        return this->_inputs[static_cast<std::size_t>(i)]->getColorScanline(y);
}

template class IpScanlinePipeOutput<float>;
template class IpScanlinePipeOutput<CoRgbaColorTyped<float>>;
template class IpScanlinePipe1In<float>;
template class IpScanlinePipe2In<float>;

// ---- IpSourceNode

IpSourceNode::IpSourceNode(IxPixelFormat::Comps comps) : _comps(comps) {
    // clang-format off
    VN_ASSERT(comps == IxPixelFormat::ALPHA || comps == IxPixelFormat::RGB || comps == IxPixelFormat::RGBA);
    // clang-format on
}

IpSourceNode::~IpSourceNode() = default;

IpScanlinePipe::Color IpSourceNode::getFillColor() const {
    if (_sources && !_sources->empty())
        return _sources->front().getTile().getFillColor();
    return {};
}

void IpSourceNode::initializeProcessing() {
    VN_ASSERT(_sources != nullptr);
    int const n = std::clamp(_nbKeptRows, 1, std::max(1, _dstRegion.height()));
    _alpha = {};
    _color = {};
    if (_dstRegion.isEmpty() || _consumers == 0)
        return;
    auto make = [&](auto& ring) {
        using T = typename std::remove_reference_t<decltype(*ring.rows.front())>;
        makeRing(ring.rows, ring.rowOf, n, _dstRegion);
        for (int i = 0; i < n; ++i)
            ring.views.emplace_back(new T(nullptr, 0, 0, {}));
        ring.isView.assign(static_cast<std::size_t>(n), 0);
    };
    if (givesAlphaRows())
        make(_alpha);
    else
        make(_color);
}

void IpSourceNode::tick(int t) {
    if (t < _dstRegion.ymin || t >= _dstRegion.ymax)
        return;
    Color const fill = getFillColor();
    // The one tile that holds the whole row in the rows' own format, if there is one.
    IxReadGuard const* whole = nullptr;
    if (_sources->size() == 1) {
        IxReadGuard const& g = _sources->front();
        IxPixelFormat const& want =
            givesAlphaRows() ? IxScanline<float>::PIXEL_FORMAT : IxScanline<Color>::PIXEL_FORMAT;
        if (_inPlace && ipHoldsPixels(g, want, {_dstRegion.xmin, _dstRegion.xmax, t, t + 1}))
            whole = &g;
    }
    auto read = [&](auto& ring, auto const& padValue) {
        using T = std::remove_cv_t<std::remove_reference_t<decltype(padValue)>>;
        if (ring.rows.empty())
            return;
        auto const s = static_cast<std::size_t>(
            slotOf(t, _dstRegion.ymin, static_cast<int>(ring.rows.size())));
        ring.rowOf[s] = INT_MIN;
        if (whole) {
            ring.views[s]->rebuild(const_cast<T*>(whole->getPixel<T>(_dstRegion.xmin, t)),
                                   _dstRegion.xmin, _dstRegion.xmax);
            ring.isView[s] = 1;
        } else {
            IxScanline<T>& row = *ring.rows[s];
            row.setPaddingPolicy({IxPaddingPolicy<T>::CONSTANT, padValue});
            row.readFrom(*_sources, t);
            ring.isView[s] = 0;
        }
        ring.rowOf[s] = t;
    };
    if (givesAlphaRows())
        read(_alpha, fill.a);
    else
        read(_color, fill);
}

void IpSourceNode::finishProcessing() {
    _alpha = {};
    _color = {};
}

namespace {
template <class Ring>
auto const* findSourceRow(Ring const& ring, int y, int y0) {
    auto const* row = findRow(ring.rows, ring.rowOf, y, y0);
    if (!row)
        return row;
    auto const s = static_cast<std::size_t>(slotOf(y, y0, static_cast<int>(ring.rows.size())));
    return ring.isView[s] ? ring.views[s].get() : row;
}
} // namespace

IxScanline<float> const* IpSourceNode::findAlphaRow(int y) const {
    return findSourceRow(_alpha, y, _dstRegion.ymin);
}

IxScanline<IpScanlinePipe::Color> const* IpSourceNode::findColorRow(int y) const {
    return findSourceRow(_color, y, _dstRegion.ymin);
}

// ---- IpDestNode

IpDestNode::IpDestNode(IpScanlinePipePtr const& input) : IpScanlinePipe({input}, 0, 0) {
    VN_ASSERT(input->givesAlphaRows() || input->givesColorRows());
}

IpDestNode::~IpDestNode() = default;

IpScanlinePipe::Color IpDestNode::getFillColor() const {
    return _inputs[0]->getFillColor();
}

void IpDestNode::setDstRegion(GeRectangle<int> const& region) {
    // Producers before consumers: a depth-first walk that lists a node after its inputs.
    _order.clear();
    struct Frame {
        IpScanlinePipe* node;
        std::size_t next;
    };
    Vector<Frame> stack{{this, 0}};
    Vector<IpScanlinePipe*> onPath{this};
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next < f.node->_inputs.size()) {
            IpScanlinePipe* in = f.node->_inputs[f.next++].get();
            // clang-format off
            VN_ASSERT(std::find(onPath.begin(), onPath.end(), in) == onPath.end() && "a pipe graph has no cycles");
            // clang-format on
            if (std::find(_order.begin(), _order.end(), in) == _order.end()) {
                stack.push_back({in, 0});
                onPath.push_back(in);
            }
            continue;
        }
        _order.push_back(f.node);
        stack.pop_back();
        onPath.pop_back();
    }

    for (IpScanlinePipe* n : _order) {
        n->_requested = {};
        n->_consumers = 0;
        n->_outputDelay = n->_marginY;
        n->_nbKeptRows = 0;
    }
    _requested = region;
    // Consumers first: each node's region is the union of what its consumers need.
    for (auto it = _order.rbegin(); it != _order.rend(); ++it) {
        IpScanlinePipe* n = *it;
        if (n == this)
            IpScanlinePipe::setDstRegion(n->_requested);
        else
            n->setDstRegion(n->_requested);
        GeRectangle<int> const need = n->getSrcRegion();
        for (IpScanlinePipePtr const& in : n->_inputs) {
            in->_requested = in->_requested.unite(need);
            ++in->_consumers;
        }
    }
    for (IpScanlinePipe* n : _order) {
        int l = 0;
        for (IpScanlinePipePtr const& in : n->_inputs)
            l = std::max(l, in->_latency);
        n->_latency = l + n->_outputDelay;
    }
    // The rows an input keeps: from the tick it hands one out to the last tick a consumer reads
    // it, which for a consumer with margin m is m rows past the row it makes from it.
    for (IpScanlinePipe* c : _order)
        for (IpScanlinePipePtr const& in : c->_inputs) {
            int const hold =
                c->readsInputsOnArrival() ? 0 : c->_latency + c->_marginY - in->_latency;
            in->_nbKeptRows = std::max(in->_nbKeptRows, hold + 1);
        }
}

void IpDestNode::tick(int t) {
    int const y = t - _latency;
    if (y < _dstRegion.ymin || y >= _dstRegion.ymax)
        return;
    auto const write = [&](auto const& row) {
        // Rows computed straight into the target are there already.
        if (row.getWidth() > 0 && _target->getPixelRegion().contains(row.getX0(), y) &&
            static_cast<void const*>(row.getData()) == _target->getAddress(row.getX0(), y))
            return;
        row.writeTo(*_target, y);
    };
    if (_inputs[0]->givesAlphaRows())
        write(_inputs[0]->getAlphaScanline(y));
    else
        write(_inputs[0]->getColorScanline(y));
}

void IpDestNode::process(IxWriteGuard& dst, Vector<IxReadGuard> const& sources) {
    // clang-format off
    VN_ASSERT(!_order.empty() && "the destination region is set before processing");
    // clang-format on
    _target = &dst;
    int tFirst = INT_MAX;
    int tLast = INT_MIN;
    // A result written over its own sources must not be read from them in place: rows still
    // to be read would be overwritten.
    auto const target = ipByteSpan(dst);
    bool inPlace = true;
    for (IxReadGuard const& g : sources) {
        auto const span = ipByteSpan(g);
        inPlace = inPlace && (span.second <= target.first || target.second <= span.first);
    }
    for (IpScanlinePipe* n : _order) {
        if (auto* s = dynamic_cast<IpSourceNode*>(n)) {
            s->setSources(&sources);
            s->setRowsInPlace(inPlace);
        }
        GeRectangle<int> const& r = n->_dstRegion;
        if (r.isEmpty())
            continue;
        tFirst = std::min(tFirst, r.ymin + n->_latency);
        tLast = std::max(tLast, r.ymax - 1 + n->_latency);
    }
    // Every node is finished, even after one fails; the first failure is raised, unless the run
    // is already unwinding, whose failure is the one that counts.
    struct Finish {
        Vector<IpScanlinePipe*> const& order;
        int const unwinding = std::uncaught_exceptions();
        ~Finish() noexcept(false) {
            std::exception_ptr failure;
            for (IpScanlinePipe* n : order) {
                try {
                    n->finishProcessing();
                } catch (...) {
                    if (!failure)
                        failure = std::current_exception();
                }
            }
            for (IpScanlinePipe* n : order)
                if (auto* s = dynamic_cast<IpSourceNode*>(n))
                    s->setSources(nullptr);
            if (failure && std::uncaught_exceptions() == unwinding)
                std::rethrow_exception(failure);
        }
    } finish{_order};
    IpScanlinePipe* const last = _inputs[0].get();
    struct Direct {
        IpScanlinePipe* node;
        ~Direct() { node->setDirectTarget(nullptr); }
    } direct{last};
    if (last->_consumers == 1)
        last->setDirectTarget(&dst);
    for (IpScanlinePipe* n : _order)
        n->initializeProcessing();
    for (int t = tFirst; t <= tLast; ++t) {
        for (IpScanlinePipe* n : _order)
            n->tick(t);
        checkCancelled();
    }
    dst.setFillColor(getFillColor());
    _target = nullptr;
}

} // namespace Vn
