#pragma once

#include "CoRgbaColor.h"
#include "ImPixelFormat.h"
#include "VnExport.h"

#include <complex>
#include <cstddef>
#include <cstdint>

namespace Vn {

// Pixel conversions between every stored format and the working types of the pixel code.
//
// Into float RGBA: one component gives (0, 0, 0, a), two give (l, l, l, a), three (r, g, b, 1),
// four (r, g, b, a). UINT8 maps 0..255 to 0..1; FLOAT16 is exact; COMPLEX gives its real part.
// Out of float RGBA: one component takes a, two take r and a, three r, g, b. UINT8 rounds to the
// nearest step and saturates: below 0 and NaN give 0, above 1 gives 255. FLOAT16 rounds to the
// nearest even, saturates finite values beyond its range to +-65504 and keeps infinities and
// NaN. COMPLEX gets an imaginary part of 0.
//
// The float line of an image is its alpha (1 where the format has none); the complex line is
// the alpha component of a COMPLEX format, or the alpha with imaginary part 0. Lines of float or
// complex are written only into one-component formats.
//
// Pixel pointers are aligned to the component size.
class VN_EXPORT IxConvertUtil {
public:
    static float uint8ToFloat(std::uint8_t v) noexcept { return kUint8ToFloat[v]; }
    static std::uint8_t floatToUint8(float v) noexcept {
        // Written so that NaN fails both tests and lands on 0. In double, v * 255 (at most 32
        // significant bits) and the added half are exact, so truncation rounds exactly; in
        // single precision, products just below a half step round up to it.
        v = v > 0.0f ? v : 0.0f;
        v = v < 1.0f ? v : 1.0f;
        return static_cast<std::uint8_t>(static_cast<double>(v) * 255.0 + 0.5);
    }
    static float halfToFloat(std::uint16_t bits) noexcept;
    static std::uint16_t floatToHalf(float v) noexcept;
    // Runs of components, the same bits as one by one, in hardware from the AVX2 path up.
    static void floatsToHalves(std::uint16_t* dst, float const* src, int count) noexcept;
    static void halvesToFloats(float* dst, std::uint16_t const* src, int count) noexcept;

    static void readFrom(CoRgbaColorTyped<float>* dst, std::byte const* src, int count,
                         ImPixelFormat const& format);
    static void writeTo(std::byte* dst, CoRgbaColorTyped<float> const* src, int count,
                        ImPixelFormat const& format);
    static void readFrom(float* dst, std::byte const* src, int count, ImPixelFormat const& format);
    static void writeTo(std::byte* dst, float const* src, int count, ImPixelFormat const& format);
    static void readFrom(std::complex<float>* dst, std::byte const* src, int count,
                         ImPixelFormat const& format);
    static void writeTo(std::byte* dst, std::complex<float> const* src, int count,
                        ImPixelFormat const& format);

    // The vector code the RGBA 8-bit and half lines and the samplers' positions run: the best the
    // processor has unless limited. Every path gives the same bits; tests and benchmarks limit it
    // to compare them. AVX2 needs FMA; AVX512 (F and BW) widens the 8-bit lines and takes the
    // AVX2 code elsewhere.
    enum class VectorPath : int { SSE2 = 0, AVX2 = 1, AVX512 = 2 };
    static VectorPath getVectorPath() noexcept;
    // Never above what the processor has.
    static void limitVectorPath(VectorPath path) noexcept;

private:
    static float const kUint8ToFloat[256];
};

} // namespace Vn
