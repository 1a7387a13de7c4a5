#include "IxScanlineCacheImp.h"
#include "Assertions.h"
#include "IxConvertUtil.h"
#include "IxImageOps.h"
#include "IxMemResource.h"

#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <exception>
#include <type_traits>

namespace Vn {

namespace {

template <class T>
std::atomic<int> s_prefetchHint{3};
template <class T>
std::atomic<int> s_prefetchDistance{1};

template <class T>
T zeroValue() {
    return T{};
}
template <>
CoRgbaColorTyped<float> zeroValue<CoRgbaColorTyped<float>>() {
    return CoRgbaColorTyped<float>{0.0f, 0.0f, 0.0f, 1.0f};
}

void prefetch(void const* p, int hint) {
    switch (hint) {
    case 0:
        __builtin_prefetch(p, 0, 0);
        break;
    case 1:
        __builtin_prefetch(p, 0, 3);
        break;
    case 2:
        __builtin_prefetch(p, 0, 2);
        break;
    default:
        __builtin_prefetch(p, 0, 1);
        break;
    }
}

// Moves n elements of a row into element i of n lines spaced `stride` apart.
template <class T, int N>
inline void scatter(T* __restrict lines, std::ptrdiff_t stride, T const* __restrict row) {
    for (int j = 0; j < N; ++j)
        lines[j * stride] = row[j];
}

template <class T, int N>
inline void gather(T* __restrict row, T const* __restrict lines, std::ptrdiff_t stride) {
    for (int j = 0; j < N; ++j)
        row[j] = lines[j * stride];
}

// Floats four rows at a time: each 4 x 4 square is transposed in registers, so that lines and
// rows are both written four values at once.
template <int N>
inline void scatter4(float* lines, std::ptrdiff_t stride, float const* const* rows) {
    for (int j = 0; j < N; j += 4) {
        __m128 r0 = _mm_loadu_ps(rows[0] + j);
        __m128 r1 = _mm_loadu_ps(rows[1] + j);
        __m128 r2 = _mm_loadu_ps(rows[2] + j);
        __m128 r3 = _mm_loadu_ps(rows[3] + j);
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        _mm_storeu_ps(lines + j * stride, r0);
        _mm_storeu_ps(lines + (j + 1) * stride, r1);
        _mm_storeu_ps(lines + (j + 2) * stride, r2);
        _mm_storeu_ps(lines + (j + 3) * stride, r3);
    }
}

template <int N>
inline void gather4(float* const* rows, float const* lines, std::ptrdiff_t stride) {
    for (int j = 0; j < N; j += 4) {
        __m128 c0 = _mm_loadu_ps(lines + j * stride);
        __m128 c1 = _mm_loadu_ps(lines + (j + 1) * stride);
        __m128 c2 = _mm_loadu_ps(lines + (j + 2) * stride);
        __m128 c3 = _mm_loadu_ps(lines + (j + 3) * stride);
        _MM_TRANSPOSE4_PS(c0, c1, c2, c3);
        _mm_storeu_ps(rows[0] + j, c0);
        _mm_storeu_ps(rows[1] + j, c1);
        _mm_storeu_ps(rows[2] + j, c2);
        _mm_storeu_ps(rows[3] + j, c3);
    }
}

// The same eight rows at a time with 256-bit registers: each register holds a 4 x 4 square in
// each half, the halves four rows (or four lines) apart, so that one in-lane transpose moves
// eight values of a line or a row with one store.
__attribute__((target("avx2"), always_inline)) inline void transposeHalves(__m256& a, __m256& b,
                                                                           __m256& c, __m256& d) {
    __m256 const t0 = _mm256_unpacklo_ps(a, b);
    __m256 const t1 = _mm256_unpackhi_ps(a, b);
    __m256 const t2 = _mm256_unpacklo_ps(c, d);
    __m256 const t3 = _mm256_unpackhi_ps(c, d);
    a = _mm256_shuffle_ps(t0, t2, 0x44);
    b = _mm256_shuffle_ps(t0, t2, 0xee);
    c = _mm256_shuffle_ps(t1, t3, 0x44);
    d = _mm256_shuffle_ps(t1, t3, 0xee);
}

__attribute__((target("avx2"), always_inline)) inline __m256 loadHalves(float const* lo,
                                                                        float const* hi) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lo)), _mm_loadu_ps(hi), 1);
}

// Rows y to y + 7 of a block into elements y to y + 7 of its N lines.
template <int N>
__attribute__((target("avx2"))) void scatter8(float* lines, std::ptrdiff_t stride,
                                              float const* const* rows) {
    for (int j = 0; j < N; j += 4) {
        __m256 a = loadHalves(rows[0] + j, rows[4] + j);
        __m256 b = loadHalves(rows[1] + j, rows[5] + j);
        __m256 c = loadHalves(rows[2] + j, rows[6] + j);
        __m256 d = loadHalves(rows[3] + j, rows[7] + j);
        transposeHalves(a, b, c, d);
        _mm256_storeu_ps(lines + j * stride, a);
        _mm256_storeu_ps(lines + (j + 1) * stride, b);
        _mm256_storeu_ps(lines + (j + 2) * stride, c);
        _mm256_storeu_ps(lines + (j + 3) * stride, d);
    }
}

// Elements y to y + 3 of N lines into rows y to y + 3.
template <int N>
__attribute__((target("avx2"))) void gather8(float* const* rows, float const* lines,
                                             std::ptrdiff_t stride) {
    for (int j = 0; j < N; j += 8) {
        float const* l = lines + j * stride;
        __m256 a = loadHalves(l, l + 4 * stride);
        __m256 b = loadHalves(l + stride, l + 5 * stride);
        __m256 c = loadHalves(l + 2 * stride, l + 6 * stride);
        __m256 d = loadHalves(l + 3 * stride, l + 7 * stride);
        transposeHalves(a, b, c, d);
        _mm256_storeu_ps(rows[0] + j, a);
        _mm256_storeu_ps(rows[1] + j, b);
        _mm256_storeu_ps(rows[2] + j, c);
        _mm256_storeu_ps(rows[3] + j, d);
    }
}

// The line stride of the cache's buffers. Lines an even number of cache lines apart crowd into
// a few cache sets when a block of columns is walked down them: one more cache line spreads a
// block over every set, so that it stays in the second-level cache from its read to its write.
std::int32_t spreadLineStride(IxPixelFormat const& format, int width) {
    std::int32_t const stride = IxTile::computeLineStride(format, width);
    if (stride > 0 && (stride / IxTile::MIN_LINE_ALIGN) % 2 == 0)
        return stride + IxTile::MIN_LINE_ALIGN;
    return stride;
}

unsigned int bufferSize(std::int32_t stride, int height) {
    std::size_t const size =
        static_cast<std::size_t>(stride) * static_cast<std::size_t>(std::max(0, height));
    VN_ASSERT(size <= UINT_MAX);
    return static_cast<unsigned int>(size);
}

bool wideTranspose() noexcept {
    return IxConvertUtil::getVectorPath() >= IxConvertUtil::VectorPath::AVX2;
}

} // namespace

template <class T>
IxScanlineCacheImp<T>::IxScanlineCacheImp(GeRectangle<int> const& dst, GeRectangle<int> const& src)
    : _dstRows{dst.ymin, std::max(dst.ymin, dst.ymax)}, _srcRows{src.ymin,
                                                                 std::max(src.ymin, src.ymax)},
      _currentX(dst.xmin), _xEnd(dst.xmin), _lineStride(0) {}

template <class T>
IxScanlineCacheImp<T>::~IxScanlineCacheImp() noexcept(false) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    VN_ASSERT(std::uncaught_exception() || _nbAccumulated == 0);
#pragma GCC diagnostic pop
}

template <class T>
void IxScanlineCacheImp<T>::setHorizontal(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                                          unsigned int minSize, RCShdPtr<IxMemory>* shared) {
    IxPixelFormat const& format = IxScanline<T>::PIXEL_FORMAT;
    GeRectangle<int> const h(dst.xmin, dst.xmax, src.ymin, src.ymax);
    std::int32_t const stride = spreadLineStride(format, h.width());
    unsigned int const size = std::max(minSize, bufferSize(stride, h.height()));
    RCShdPtr<IxMemory> memory = IxMemResource::getInstance().allocate(size);
    _horizontal.set(createTile(format, h, memory, {}, stride, 0));
    if (shared)
        *shared = std::move(memory);
    _currentX = dst.xmin;
    _xEnd = h.isEmpty() ? dst.xmin : h.xmax;
}

template <class T>
void IxScanlineCacheImp<T>::init(GeRectangle<int> const& dst, GeRectangle<int> const& src) {
    // Both buffers share one block and one stride, so that a block's columns lie on the same
    // bytes in each.
    IxPixelFormat const& format = IxScanline<T>::PIXEL_FORMAT;
    std::int32_t const stride = spreadLineStride(format, dst.width());
    RCShdPtr<IxMemory> memory;
    setHorizontal(dst, src, bufferSize(stride, dst.height()), &memory);
    _vertical.set(createTile(format, dst, std::move(memory), {}, stride, 0));
}

template <class T>
void IxScanlineCacheImp<T>::initOver(GeRectangle<int> const& dst, GeRectangle<int> const& src,
                                     IxWriteGuard const& target) {
    // clang-format off
    VN_ASSERT(ipHoldsPixels(target, IxScanline<T>::PIXEL_FORMAT, dst) && "the target holds dst in the cache's format");
    // clang-format on
    setHorizontal(dst, src, 0, nullptr);
    IxTile vertical = target.getTile();
    setPixelRegion(vertical, dst);
    vertical.setFillColor({});
    _vertical.set(vertical);
    _overTarget = true;
}

template <class T>
IxWriteGuardProxy const& IxScanlineCacheImp<T>::getHorizontalBuffer() {
    return _horizontal;
}

template <class T>
IxWriteGuard IxScanlineCacheImp<T>::getVerticalBuffer() {
    return *_vertical;
}

template <class T>
bool IxScanlineCacheImp<T>::hasNext() const {
    return _currentX + _nbAccumulated < _xEnd;
}

template <class T>
T* IxScanlineCacheImp<T>::scratchLine(int k) const {
    return _scratch.getPixel<T>(0, k);
}

template <class T>
void IxScanlineCacheImp<T>::buildScratch() {
    if (!_scancolumns.isNull())
        return;
    constexpr int B = BLOCK_WIDTH;
    IxPixelFormat const& format = IxScanline<T>::PIXEL_FORMAT;
    int const width = std::max(_dstRows.max - _dstRows.min, _srcRows.max - _srcRows.min);
    GeRectangle<int> const region(0, width, 0, B + 1);
    std::int32_t const stride = spreadLineStride(format, width);
    RCShdPtr<IxMemory> memory = IxMemResource::getInstance().allocate(bufferSize(stride, B + 1));
    _scratch = IxWriteGuard(createTile(format, region, std::move(memory), {}, stride, 0));
    _lineStride = _scratch.getLineStride() / static_cast<std::ptrdiff_t>(sizeof(T));
    IxPaddingPolicy<T> const padding(IxPaddingPolicy<T>::NOOP, zeroValue<T>());
    bool const empty = _scratch.getPixelRegion().isEmpty();
    APtr<OPtr<IxScanline<T>>> lines(B + 1);
    for (int k = 0; k <= B; ++k)
        lines[k].reset(new IxScanline<T>(empty ? nullptr : scratchLine(k), _srcRows.min,
                                         _srcRows.max, padding));
    _scancolumns = std::move(lines);
}

template <class T>
void IxScanlineCacheImp<T>::readBlock() {
    constexpr int B = BLOCK_WIDTH;
    VN_ASSERT(!_scancolumns.isNull());
    int const toRead = std::min(B, _xEnd - _currentX);
    VN_ASSERT(toRead >= 0);
    int const hint = s_prefetchHint<T>.load(std::memory_order_relaxed);
    if (hint < 0 || hint > 3)
        VN_ABORT("scanline cache prefetch hint must be 0 to 3");
    int const distance = s_prefetchDistance<T>.load(std::memory_order_relaxed);
    for (int k = 1; k <= B; ++k)
        _scancolumns[k]->rebuild(_srcRows.min, _srcRows.max);
    if (toRead == 0 || _srcRows.min == _srcRows.max)
        return;
    IxWriteGuard const& h = *_horizontal;
    std::ptrdiff_t const stride = _lineStride;
    T* column = scratchLine(1);
    int const last = _srcRows.max - 1;
    int y = _srcRows.min;
    if constexpr (std::is_same_v<T, float>) {
        if (toRead == B && wideTranspose())
            for (; y + 7 <= last; y += 8, column += 8) {
                float const* rows[8];
                for (int k = 0; k < 8; ++k) {
                    if (y + k + distance <= last)
                        prefetch(h.getAddress(_currentX, y + k + distance), hint);
                    rows[k] = h.getPixel<float>(_currentX, y + k);
                }
                scatter8<B>(column, stride, rows);
            }
        if (toRead == B)
            for (; y + 3 <= last; y += 4, column += 4) {
                float const* rows[4];
                for (int k = 0; k < 4; ++k) {
                    if (y + k + distance <= last)
                        prefetch(h.getAddress(_currentX, y + k + distance), hint);
                    rows[k] = h.getPixel<float>(_currentX, y + k);
                }
                scatter4<B>(column, stride, rows);
            }
    }
    for (; y <= last; ++y, ++column) {
        if (y + distance <= last)
            prefetch(h.getAddress(_currentX, y + distance), hint);
        T const* row = h.getPixel<T>(_currentX, y);
        if (toRead == B) {
            scatter<T, B>(column, stride, row);
        } else {
            for (int j = 0; j < toRead; ++j)
                column[j * stride] = row[j];
        }
    }
}

template <class T>
void IxScanlineCacheImp<T>::writeBlock() {
    constexpr int B = BLOCK_WIDTH;
    VN_ASSERT(!_scancolumns.isNull());
    int const toWrite = std::min(B, _xEnd - _currentX);
    VN_ASSERT(toWrite >= 0);
    if (toWrite == 0 || _dstRows.min == _dstRows.max)
        return;
    IxWriteGuard const& v = *_vertical;
    std::ptrdiff_t const stride = _lineStride;
    T const* const column = scratchLine(0);
    // Bottom up: the block read has just walked down the same rows, so their pages are still
    // in the address translation cache, most recent last.
    int y = _dstRows.max;
    int const groups = std::is_same_v<T, float> && toWrite == B ? (y - _dstRows.min) / 4 : 0;
    int const grouped = _dstRows.min + 4 * groups;
    for (; y > grouped;) {
        --y;
        T* row = v.getPixel<T>(_currentX, y);
        T const* c = column + (y - _dstRows.min);
        if (toWrite == B) {
            gather<T, B>(row, c, stride);
        } else {
            T local[B];
            for (int j = 0; j < toWrite; ++j)
                local[j] = c[j * stride];
            std::memcpy(static_cast<void*>(row), local, toWrite * sizeof(T));
        }
    }
    if constexpr (std::is_same_v<T, float>) {
        bool const wide = wideTranspose();
        for (; y > _dstRows.min;) {
            y -= 4;
            float* rows[4];
            for (int k = 0; k < 4; ++k)
                rows[k] = v.getPixel<float>(_currentX, y + k);
            if (wide)
                gather8<B>(rows, column + (y - _dstRows.min), stride);
            else
                gather4<B>(rows, column + (y - _dstRows.min), stride);
        }
    }
}

// Writing a float block back and reading the next one walk the same rows: one walk does both,
// eight rows at a time, each row's results leaving the scratch before its next sources come in.
// The two blocks are side by side in each row, so the walk shares their pages and cache
// traffic. Only between two whole blocks, on the AVX2 path.
template <class T>
bool IxScanlineCacheImp<T>::moveBlocksTogether() {
    constexpr int B = BLOCK_WIDTH;
    if constexpr (!std::is_same_v<T, float>) {
        return false;
    } else {
        if (!wideTranspose() || _xEnd - _currentX < 2 * B || _dstRows.min == _dstRows.max ||
            _srcRows.min == _srcRows.max)
            return false;
        int const hint = s_prefetchHint<T>.load(std::memory_order_relaxed);
        if (hint < 0 || hint > 3)
            VN_ABORT("scanline cache prefetch hint must be 0 to 3");
        int const distance = s_prefetchDistance<T>.load(std::memory_order_relaxed);
        for (int k = 1; k <= B; ++k)
            _scancolumns[k]->rebuild(_srcRows.min, _srcRows.max);
        IxWriteGuard const& v = *_vertical;
        IxWriteGuard const& h = *_horizontal;
        std::ptrdiff_t const stride = _lineStride;
        float const* const results = scratchLine(0);
        float* const sources = scratchLine(1);
        int const xw = _currentX;
        int const xr = _currentX + B;
        int const dstH = _dstRows.max - _dstRows.min;
        int const srcH = _srcRows.max - _srcRows.min;
        int const last = _srcRows.max - 1;
        for (int i = 0; i < std::max(dstH, srcH); i += 8) {
            if (_overTarget)
                prefetchAhead(xw, xr, i + kAheadRows);
            int k = i;
            int const we = std::min(i + 8, dstH);
            for (; k + 4 <= we; k += 4) {
                float* rows[4];
                for (int r = 0; r < 4; ++r)
                    rows[r] = v.getPixel<float>(xw, _dstRows.min + k + r);
                gather8<B>(rows, results + k, stride);
            }
            for (; k < we; ++k)
                gather<float, B>(v.getPixel<float>(xw, _dstRows.min + k), results + k, stride);
            k = i;
            int const re = std::min(i + 8, srcH);
            if (k + 8 <= re) {
                float const* rows[8];
                for (int r = 0; r < 8; ++r) {
                    int const y = _srcRows.min + k + r;
                    if (y + distance <= last)
                        prefetch(h.getAddress(xr, y + distance), hint);
                    rows[r] = h.getPixel<float>(xr, y);
                }
                scatter8<B>(sources + k, stride, rows);
                k += 8;
            }
            for (; k < re; ++k) {
                int const y = _srcRows.min + k;
                if (y + distance <= last)
                    prefetch(h.getAddress(xr, y + distance), hint);
                scatter<float, B>(sources + k, stride, h.getPixel<float>(xr, y));
            }
        }
        return true;
    }
}

template <class T>
void IxScanlineCacheImp<T>::prefetchAhead(int xw, int xr, int i) const {
    // Rows lie pages apart, beyond the reach of the hardware's own prefetch: the two cache
    // lines of a block's row are asked for ahead, for writing in the target, for reading in
    // the horizontal buffer.
    IxWriteGuard const& v = *_vertical;
    IxWriteGuard const& h = *_horizontal;
    for (int r = i; r < i + 8; ++r) {
        if (r < _dstRows.max - _dstRows.min) {
            auto const* p = v.getAddress(xw, _dstRows.min + r);
            __builtin_prefetch(p, 1, 3);
            __builtin_prefetch(p + 64, 1, 3);
        }
        if (r < _srcRows.max - _srcRows.min) {
            auto const* p = h.getAddress(xr, _srcRows.min + r);
            __builtin_prefetch(p, 0, 3);
            __builtin_prefetch(p + 64, 0, 3);
        }
    }
}

template <class T>
void IxScanlineCacheImp<T>::getNext(IxScanline<T>*& dst, IxScanline<T>*& src) {
    constexpr int B = BLOCK_WIDTH;
    buildScratch();
    VN_ASSERT(!_flushCalled);
    VN_ASSERT(hasNext());
    if (_firstBlockToRead) {
        readBlock();
        _firstBlockToRead = false;
    }
    if (_nbAccumulated == B) {
        if (moveBlocksTogether()) {
            _currentX += B;
            _nbAccumulated = 0;
        } else {
            writeBlock();
            _currentX += _nbAccumulated;
            _nbAccumulated = 0;
            readBlock();
        }
    }
    dst = _scancolumns[_nbAccumulated].get();
    src = _scancolumns[_nbAccumulated + 1].get();
    dst->rebuild(_dstRows.min, _dstRows.max);
    ++_nbAccumulated;
}

template <class T>
void IxScanlineCacheImp<T>::flush() {
    buildScratch();
    writeBlock();
    _currentX += _nbAccumulated;
    _nbAccumulated = 0;
    _flushCalled = true;
}

template <class T>
void IxScanlineCacheImp<T>::discard() noexcept {
    _nbAccumulated = 0;
    _flushCalled = true;
}

template <class T>
typename IxScanlineCache<T>::Imp* IxScanlineCacheImp<T>::create(GeRectangle<int> const& dst,
                                                                GeRectangle<int> const& src) {
    return new IxScanlineCacheImp(dst, src);
}

template <class T>
void IxScanlineCacheImp<T>::initialize() {
    IxScanlineCache<T>::setImplementationFactory(&create);
}

template <class T>
void IxScanlineCacheImp<T>::finalize() {}

template <class T>
void IxScanlineCacheImp<T>::setPrefetchHint(int hint) {
    s_prefetchHint<T>.store(hint, std::memory_order_relaxed);
}

template <class T>
void IxScanlineCacheImp<T>::setPrefetchDistance(int rows) {
    s_prefetchDistance<T>.store(rows, std::memory_order_relaxed);
}

template <class T>
int IxScanlineCacheImp<T>::getPrefetchHint() {
    return s_prefetchHint<T>.load(std::memory_order_relaxed);
}

template <class T>
int IxScanlineCacheImp<T>::getPrefetchDistance() {
    return s_prefetchDistance<T>.load(std::memory_order_relaxed);
}

template class IxScanlineCacheImp<float>;
template class IxScanlineCacheImp<std::complex<float>>;
template class IxScanlineCacheImp<CoRgbaColorTyped<float>>;

} // namespace Vn
