#include "IpDilate.h"

#include "Assertions.h"
#include "ExBase.h"
#include "IpAlphaKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>

namespace Vn {

namespace {

// (d / r)^2, with a zero radius admitting only d = 0.
double ratio2(int d, int r) {
    if (r == 0)
        return d == 0 ? 0.0 : std::numeric_limits<double>::infinity();
    double const q = static_cast<double>(d) / r;
    return q * q;
}

int floorLog2(int v) {
    int k = 0;
    while ((2 << k) <= v)
        ++k;
    return k;
}

// Whole pixels, an infinite amount reaching any image.
int wholePixels(float a) {
    double const m = std::fabs(static_cast<double>(a));
    return m >= IpScanlinePipe::kUnbounded ? IpScanlinePipe::kUnbounded : static_cast<int>(m);
}

// The half width of the disc (x, y) at row offset dy: the widest w <= x with (w / x)^2 +
// (dy / y)^2 <= 1, up to a rounding margin.
int discHalfWidth(int x, int y, int dy) {
    double const rest = 1.0 + 1e-9 - ratio2(dy, y);
    if (x == 0 || rest < 0.0)
        return 0;
    auto w = static_cast<int>(std::min<double>(x, std::floor(x * std::sqrt(rest))));
    while (w < x && ratio2(w + 1, x) <= rest)
        ++w;
    while (w > 0 && ratio2(w, x) > rest)
        --w;
    return w;
}

// How far an element must reach, from every column (row) of `asked`, to cover every column
// (row) of `shown` and one beyond it, which holds the fill colour.
long long coveringReach(int askedMin, int askedMax, int shownMin, int shownMax) {
    return std::max<long long>(static_cast<long long>(askedMax) - 1 - shownMin,
                               static_cast<long long>(shownMax) - 1 - askedMin) +
           1;
}

// Refuses sizes that are not numbers or beyond the limit, before any arithmetic on them.
template <class T>
void checkSizes(char const* what, T x, T y) {
    bool const numbers = !std::isnan(static_cast<double>(x)) && !std::isnan(static_cast<double>(y));
    bool const bounded = std::fabs(static_cast<double>(x)) <= IpDilate::MAX_AMOUNT &&
                         std::fabs(static_cast<double>(y)) <= IpDilate::MAX_AMOUNT;
    if (numbers && bounded)
        return;
    std::ostringstream s;
    s << "A " << what << " of " << x << " by " << y << " pixels is refused: amounts "
      << (numbers ? "are at most " + std::to_string(IpDilate::MAX_AMOUNT) + " pixels."
                  : std::string("must be numbers."));
    VN_THROW_MSG(ExBase, s.str());
}

} // namespace

IpScanlinePipePtr IpDilate::create(IpScanlinePipePtr const& pipe, int element, float x, float y) {
    // clang-format off
    VN_ASSERT(element == DISC || element == BOX);
    // clang-format on
    if (std::isnan(x) || std::isnan(y)) {
        std::ostringstream m;
        m << "A dilation of " << x << " by " << y << " pixels is refused: amounts must be numbers.";
        VN_THROW_MSG(ExBase, m.str());
    }
    auto const e = StructuringElements(element);
    bool const erodeX = x < 0.0f;
    bool const erodeY = y < 0.0f;
    int const ix = wholePixels(x);
    int const iy = wholePixels(y);
    if (erodeX == erodeY || ix == 0 || iy == 0)
        return IpScanlinePipePtr(
            new IpDilate(pipe, e, ix, iy, (ix > 0 && erodeX) || (iy > 0 && erodeY)));
    IpScanlinePipePtr const across(new IpDilate(pipe, e, ix, 0, erodeX));
    return IpScanlinePipePtr(new IpDilate(across, e, 0, iy, erodeY));
}

IpDilate::IpDilate(IpScanlinePipePtr const& pipe, StructuringElements element, int x, int y,
                   bool erode)
    : IpScanlinePipe1In<float>(pipe, 0, 0), _element(element), _erode(erode),
      _amountX(std::min(std::abs(x), kUnbounded)), _amountY(std::min(std::abs(y), kUnbounded)) {}

void IpDilate::setDstRegion(GeRectangle<int> const& region) {
    // Past the reach that covers what the input shows from every pixel asked, a wider element
    // takes in only more of the fill colour: the result is the same, so the work stops there.
    int mx = 0;
    int my = 0;
    GeRectangle<int> const shown = _inputs[0]->getImageRegion();
    if (!region.isEmpty() && !shown.isEmpty()) {
        mx = static_cast<int>(std::min<long long>(
            _amountX, coveringReach(region.xmin, region.xmax, shown.xmin, shown.xmax)));
        my = static_cast<int>(std::min<long long>(
            _amountY, coveringReach(region.ymin, region.ymax, shown.ymin, shown.ymax)));
    }
    if (mx > MAX_AMOUNT || my > MAX_AMOUNT) {
        auto const text = [](int a) {
            return a >= kUnbounded ? std::string("unbounded") : std::to_string(a);
        };
        std::ostringstream m;
        m << "A" << (_erode ? "n erosion" : " dilation") << " of " << text(_amountX) << " by "
          << text(_amountY) << " pixels is refused: over an image this large it would reach "
          << text(mx) << " by " << text(my) << " pixels, and at most " << MAX_AMOUNT
          << " are worked with.";
        VN_THROW_MSG(ExBase, m.str());
    }
    _marginX = mx;
    _marginY = my;
    _outputDelay = my;
    _halfWidth.resize(static_cast<std::size_t>(my) + 1);
    for (int dy = 0; dy <= my; ++dy)
        _halfWidth[static_cast<std::size_t>(dy)] =
            _element == BOX ? mx : std::min(mx, discHalfWidth(_amountX, _amountY, dy));
    _nbLevels = _element == BOX ? 1 : floorLog2(2 * mx + 1) + 1;
    IpScanlinePipe1In<float>::setDstRegion(region);
}

GeRectangle<int> IpDilate::getImageRegion() const {
    return grow(_inputs[0]->getImageRegion(), _amountX, _amountY);
}

IpDilate::~IpDilate() = default;

void IpDilate::initializeProcessing() {
    IpScanlinePipe1In<float>::initializeProcessing();
    int const w = _dstRegion.width();
    _rowLength = _element == BOX ? w : w + 2 * _marginX;
    // Kept rows a multiple of 4 KiB apart would all fall in the same sets of the first-level
    // cache when read together.
    _rowStride = _rowLength % 1024 == 0 ? _rowLength + 16 : _rowLength;
    _kept.assign(static_cast<std::size_t>(2 * _marginY + 1) * _nbLevels * _rowStride, 0.0f);
    _scratch.assign(static_cast<std::size_t>(w + 2 * _marginX + 1), 0.0f);
    _rowList.assign(static_cast<std::size_t>(2 * (2 * _marginY + 1)), nullptr);
}

void IpDilate::finishProcessing() {
    IpScanlinePipe1In<float>::finishProcessing();
    _kept = {};
    _scratch = {};
    _rowList = {};
}

float* IpDilate::keptRow(int y, int level) {
    int const n = 2 * _marginY + 1;
    int slot = (y - _dstRegion.ymin) % n;
    if (slot < 0)
        slot += n;
    return _kept.data() + (static_cast<std::size_t>(slot) * _nbLevels + level) * _rowStride;
}

void IpDilate::absorb(int y) {
    int const w = _dstRegion.width();
    float const* src = &getInputScanline(y)[_dstRegion.xmin - _marginX];
    if (_element == BOX) {
        if (_erode)
            IpAlphaRows::windowMin(keptRow(y, 0), src, w, 2 * _marginX + 1, _scratch.data());
        else
            IpAlphaRows::windowMax(keptRow(y, 0), src, w, 2 * _marginX + 1, _scratch.data());
        return;
    }
    std::memcpy(keptRow(y, 0), src, sizeof(float) * static_cast<std::size_t>(_rowLength));
    for (int k = 1; k < _nbLevels; ++k) {
        int const half = 1 << (k - 1);
        float const* prev = keptRow(y, k - 1);
        int const n = _rowLength - 2 * half + 1;
        if (_erode)
            IpAlphaRows::min(keptRow(y, k), prev, prev + half, n);
        else
            IpAlphaRows::max(keptRow(y, k), prev, prev + half, n);
    }
}

void IpDilate::tick(int t) {
    if (!_dstRegion.isEmpty()) {
        int const y = t - _inputs[0]->getLatency();
        GeRectangle<int> const src = getSrcRegion();
        if (src.ymin <= y && y < src.ymax)
            absorb(y);
    }
    IpScanlinePipe1In<float>::tick(t);
}

void IpDilate::computeScanline(int y, IxScanline<float>& out) {
    // The rows under the element, gathered once per row into a list kept from the start.
    int nb = 0;
    for (int dy = -_marginY; dy <= _marginY; ++dy) {
        if (_element == BOX) {
            _rowList[static_cast<std::size_t>(nb++)] = keptRow(y + dy, 0);
            continue;
        }
        int const half = _halfWidth[static_cast<std::size_t>(std::abs(dy))];
        int const k = floorLog2(2 * half + 1);
        float const* level = keptRow(y + dy, k);
        _rowList[static_cast<std::size_t>(nb++)] = level + (_marginX - half);
        _rowList[static_cast<std::size_t>(nb++)] = level + (_marginX + half - (1 << k) + 1);
    }
    if (_erode)
        IpAlphaRows::minOfRows(out.getData(), _rowList.data(), nb, _dstRegion.width());
    else
        IpAlphaRows::maxOfRows(out.getData(), _rowList.data(), nb, _dstRegion.width());
}

IpScanlinePipePtr IpFillAlpha::create(IpScanlinePipePtr const& pipe, int x, int y) {
    float const fx = static_cast<float>(std::abs(x));
    float const fy = static_cast<float>(std::abs(y));
    IpScanlinePipePtr const grown = IpDilate::create(pipe, IpDilate::DISC, fx, fy);
    return IpDilate::create(grown, IpDilate::DISC, -fx, -fy);
}

// ---- IpDistTransform

namespace {
constexpr float kInf = std::numeric_limits<float>::infinity();
}

IpScanlinePipePtr IpDistTransform::create(IpScanlinePipePtr const& pipe, int x, int y, float scaleX,
                                          float scaleY) {
    checkSizes("distance ramp", x, y);
    return IpScanlinePipePtr(new IpDistTransform(pipe, x, y, scaleX, scaleY));
}

IpDistTransform::IpDistTransform(IpScanlinePipePtr const& pipe, int x, int y, float scaleX,
                                 float scaleY)
    : IpScanlinePipe1In<float>(pipe, std::abs(x), std::abs(y)),
      _wx(x == 0 ? kInf : std::fabs(scaleX) / static_cast<float>(std::abs(x))),
      _wy(y == 0 ? kInf : std::fabs(scaleY) / static_cast<float>(std::abs(y))) {}

IpDistTransform::~IpDistTransform() = default;

IpScanlinePipe::Color IpDistTransform::getFillColor() const {
    Color c = IpScanlinePipe1In<float>::getFillColor();
    c.a = c.a >= 0.5f ? 1.0f : 0.0f;
    return c;
}

void IpDistTransform::setDstRegion(GeRectangle<int> const& region) {
    setOutputDelay(std::max(0, region.height() + getOutputDelay() - 1));
    IpScanlinePipe1In<float>::setDstRegion(region);
}

void IpDistTransform::initializeProcessing() {
    // The result is held whole, not in the base's ring.
    int const w = _dstRegion.width();
    int const h = _dstRegion.height();
    _plane.assign(static_cast<std::size_t>(w) * (h + 2 * _marginY), kInf);
    _out.assign(static_cast<std::size_t>(w) * h, 0.0f);
    _rows.clear();
    for (int r = 0; r < h; ++r)
        _rows.emplace_back(new IxScanline<float>(_out.data() + static_cast<std::size_t>(r) * w,
                                                 _dstRegion.xmin, _dstRegion.xmax,
                                                 IxPaddingPolicy<float>()));
    _done = false;
}

void IpDistTransform::finishProcessing() {
    _rows.clear();
    _plane = {};
    _out = {};
}

void IpDistTransform::tick(int t) {
    if (_dstRegion.isEmpty())
        return;
    int const y = t - _inputs[0]->getLatency();
    GeRectangle<int> const src = getSrcRegion();
    if (y < src.ymin || y >= src.ymax)
        return;
    rowPass(y);
    if (y == src.ymax - 1) {
        columnPass();
        _done = true;
    }
}

void IpDistTransform::rowPass(int y) {
    int const w = _dstRegion.width();
    int const x0 = _dstRegion.xmin;
    IxScanline<float> const& in = getInputScanline(y);
    float* g = _plane.data() + static_cast<std::size_t>(y - getSrcRegion().ymin) * w;
    if (std::isinf(_wx)) {
        for (int i = 0; i < w; ++i)
            g[i] = in[x0 + i] >= 0.5f ? 0.0f : kInf;
        return;
    }
    // The nearest inside pixel on each side, over the row grown by the margin.
    int const lo = x0 - _marginX;
    int const hi = _dstRegion.xmax + _marginX;
    int last = INT32_MIN / 2;
    for (int x = lo; x < _dstRegion.xmax; ++x) {
        if (in[x] >= 0.5f)
            last = x;
        if (x >= x0)
            g[x - x0] = last > INT32_MIN / 2 ? _wx * _wx * float(x - last) * float(x - last) : kInf;
    }
    int next = INT32_MAX / 2;
    for (int x = hi - 1; x >= x0; --x) {
        if (in[x] >= 0.5f)
            next = x;
        if (x < _dstRegion.xmax && next < INT32_MAX / 2) {
            float const d = _wx * float(next - x);
            g[x - x0] = std::min(g[x - x0], d * d);
        }
    }
}

void IpDistTransform::columnPass() {
    int const w = _dstRegion.width();
    int const h = _dstRegion.height();
    int const n = h + 2 * _marginY;
    Vector<float> f(static_cast<std::size_t>(n));
    Vector<int> v(static_cast<std::size_t>(n));
    Vector<float> z(static_cast<std::size_t>(n) + 1);
    for (int x = 0; x < w; ++x) {
        for (int q = 0; q < n; ++q)
            f[static_cast<std::size_t>(q)] = _plane[static_cast<std::size_t>(q) * w + x];
        auto put = [&](int r, float d2) {
            _out[static_cast<std::size_t>(r) * w + x] = std::max(0.0f, 1.0f - std::sqrt(d2));
        };
        if (std::isinf(_wy) || _wy == 0.0f) {
            float best = kInf;
            if (_wy == 0.0f)
                best = *std::min_element(f.begin(), f.end());
            for (int r = 0; r < h; ++r)
                put(r, _wy == 0.0f ? best : f[static_cast<std::size_t>(r + _marginY)]);
            continue;
        }
        // The lower envelope of the parabolas (wy (y - q))^2 + f(q), over the finite f(q).
        int k = -1;
        auto pos = [&](int q) {
            return _wy * static_cast<float>(q);
        };
        for (int q = 0; q < n; ++q) {
            float const fq = f[static_cast<std::size_t>(q)];
            if (std::isinf(fq))
                continue;
            float s = -kInf;
            while (k >= 0) {
                int const p = v[static_cast<std::size_t>(k)];
                float const sp = pos(p);
                float const sq = pos(q);
                s = ((fq + sq * sq) - (f[static_cast<std::size_t>(p)] + sp * sp)) /
                    (2.0f * (sq - sp));
                if (s > z[static_cast<std::size_t>(k)])
                    break;
                --k;
            }
            ++k;
            v[static_cast<std::size_t>(k)] = q;
            z[static_cast<std::size_t>(k)] = k == 0 ? -kInf : s;
            z[static_cast<std::size_t>(k) + 1] = kInf;
        }
        int j = 0;
        for (int r = 0; r < h; ++r) {
            if (k < 0) {
                put(r, kInf);
                continue;
            }
            float const sr = pos(r + _marginY);
            while (z[static_cast<std::size_t>(j) + 1] < sr)
                ++j;
            int const p = v[static_cast<std::size_t>(j)];
            float const d = sr - pos(p);
            put(r, d * d + f[static_cast<std::size_t>(p)]);
        }
        checkCancelled();
    }
}

IxScanline<float> const& IpDistTransform::getOutputScanline(int y) const {
    return getAlphaScanline(y);
}

IxScanline<float> const* IpDistTransform::findAlphaRow(int y) const {
    if (!_done || y < _dstRegion.ymin || y >= _dstRegion.ymax)
        return nullptr;
    return _rows[static_cast<std::size_t>(y - _dstRegion.ymin)].get();
}

} // namespace Vn
