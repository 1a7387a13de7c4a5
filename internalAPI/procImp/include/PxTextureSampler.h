#pragma once

#include "IxPixelFormat.h"
#include "MbBuffer.h"
#include "OPtr.h"
#include "PxImageFetcher.h"
#include "SdTexture.h"
#include "VnExport.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace Vn {

// The base of the samplers: the position matrix that takes texture space onto the image's
// pixels, and a private direct-mapped cache of 64 blocks of 32 x 32 float RGBA pixels, filled on
// a miss from the image's tiles, wrapped at the image's edges and premultiplied when asked. The
// filters read the cache only, so they know nothing of formats, edges or tiles.
class VN_EXPORT PxTextureSampler : public SdTextureSampler {
public:
    enum AlphaPremultiply : std::int32_t { ALPHA_AS_IS = 0, ALPHA_PREMULTIPLY = 1 };

    static constexpr int TILE_SIZE_X_LOG2 = 5;
    static constexpr int TILE_SIZE_Y_LOG2 = 5;
    static constexpr int TILE_SIZE_X = 1 << TILE_SIZE_X_LOG2;
    static constexpr int TILE_SIZE_Y = 1 << TILE_SIZE_Y_LOG2;
    static constexpr int NB_SLOTS_LOG2 = 3; // per axis
    static constexpr int NB_SLOTS = 1 << (2 * NB_SLOTS_LOG2);
    static constexpr std::size_t SLOT_BYTES = 16896;
    static constexpr std::size_t CACHE_BYTES = NB_SLOTS * SLOT_BYTES;

    PxTextureSampler(PxNodePtr<PxImageProtocol const> const& node,
                     PxTimeScaleContext const& context, IxPixelFormat const& format,
                     SdTextureParams const& params, AlphaPremultiply alpha);
    PxTextureSampler(OPtr<PxImageFetcherBase> fetcher, IxPixelFormat const& format,
                     SdTextureParams const& params, AlphaPremultiply alpha);
    ~PxTextureSampler() override;

    using SdTextureSampler::sample;
    void releaseGuard() const override;
    // Pixel (x, y), wrapped, straight.
    Color sample(int x, int y, float du, float dv) const override;
    void reduceVI(PxValidityInterval& vi) const override;
    int getCacheBlockingSizeX() const override { return 64; }
    int getCacheBlockingSizeY() const override { return 64; }
    void releaseTiles() const override;
    void registerGuardProxy(IxGuardProxy const& proxy) const override;

    // The position matrix, row major, acting on row vectors.
    double const* getPositionMatrix() const noexcept { return _m; }
    GeRectangle<int> const& getImageRegion() const noexcept { return _region; }

    // A position's pixel and where in it the position falls.
    struct Cell {
        int ix;
        int iy;
        float fx;
        float fy;
    };

    // Pixel index of a coordinate: truncation towards zero, minus 1 below 0, so an exact
    // negative integer lands one below itself.
    static int floorIndex(double v) noexcept {
        int const i = static_cast<int>(v);
        return v < 0.0 ? i - 1 : i;
    }

protected:
    // A position through the position matrix, then into the clamp box.
    GePoint<double> mapPosition(GePoint<double> const& p) const noexcept {
        return clampPosition(
            {_m[0] * p.x + _m[3] * p.y + _m[6], _m[1] * p.x + _m[4] * p.y + _m[7]});
    }
    GePoint<double> clampPosition(GePoint<double> const& p) const noexcept {
        // max(low, v) first, so that NaN lands on the low bound.
        return {std::min(_clamp[1], std::max(_clamp[0], p.x)),
                std::min(_clamp[3], std::max(_clamp[2], p.y))};
    }
    // Pixel cells of row positions p + i step, i = first .. first + n - 1 (n at most ROW_CHUNK):
    // the indices and fractions that mapPosition then floorIndex give, two at a time. The arrays
    // hold ROW_CHUNK; fractions are skipped when fx and fy are null.
    static constexpr int ROW_CHUNK = 64;
    void mapRow(GePoint<double> const& p, GeVector2<double> const& step, int first, int n, int* ix,
                int* iy, float* fx, float* fy) const noexcept;
    // The cells of a row, a chunk at a time, each handed to f for out's next colour with the
    // cell's pixel in the cache. Neighbouring cells mostly share a block, so the last one is
    // remembered; f may look up the blocks around it, which sit in other slots and leave it in
    // place.
    template <class F>
    void eachCellInCache(GePoint<double> const& p, GeVector2<double> const& step, int n, Color* out,
                         F const& f) const;
    // eachCellInCache two cells at a time for the AVX2 path: two neighbouring cells whose
    // windows (Lo pixels before to Hi after the cell on each axis) lie inside the remembered
    // block go to pair(fx, fy, first pixels, out) together; the others go to one as in
    // eachCellInCache.
    template <int Lo, int Hi, class Pair, class One>
    void eachCellPairInCache(GePoint<double> const& p, GeVector2<double> const& step, int n,
                             Color* out, Pair const& pair, One const& one) const;
    // Bilinear over a row of positions on the cached pixels as they are, premultiplied or not.
    void bilinearRow(GePoint<double> const& p, GeVector2<double> const& step, int n,
                     Color* out) const;
    // An integer pixel position kept inside the clamp box.
    int clampX(int x) const noexcept;
    int clampY(int y) const noexcept;

    // Pixel (x, y) of the cache, filling its block on a miss. The pixels to the right up to
    // the block's end follow it in memory; the rows below it lie 32 pixels apart.
    Color const* lookup(int x, int y) const {
        int const slot = ((x >> TILE_SIZE_X_LOG2) & 7) + 8 * ((y >> TILE_SIZE_Y_LOG2) & 7);
        int const bx = x & ~(TILE_SIZE_X - 1);
        int const by = y & ~(TILE_SIZE_Y - 1);
        Color* block = reinterpret_cast<Color*>(_cache + slot * SLOT_BYTES);
        if (_tags[slot][0] != bx || _tags[slot][1] != by) [[unlikely]] {
            _tags[slot][0] = bx;
            _tags[slot][1] = by;
            refillTile(block, bx, by);
        }
        return block + (y & (TILE_SIZE_Y - 1)) * TILE_SIZE_X + (x & (TILE_SIZE_X - 1));
    }
    Color const& pixel(int x, int y) const { return *lookup(x, y); }

    AlphaPremultiply getAlphaMode() const noexcept { return _alpha; }
    IxPixelFormat const& getPixelFormat() const noexcept { return _format; }

    // Only the EWA sampler has footprint forms: the others stop the program.
    Color sample(int x, int y, float a, float b, float c, float d) const override;
    Color sample(int x, int y, float p, float s, float q) const override;
    Color sample(int x, int y, GeLinearMatrix2<float> const& jacobian) const override;

private:
    // Called by the constructors; the fetcher is in place.
    void init(SdTextureParams const& params);
    void refillTile(Color* block, int x, int y) const;
    // A row of a block from x on, read from source row sy of the region.
    void fillRow(Color* row, int x, int sy, GeRectangle<int> const& region) const;

    double _m[9];
    mutable std::int32_t _tags[NB_SLOTS][2];
    std::byte* _cache = nullptr;
    GeRectangle<int> _region;
    double _clamp[4]; // x low, x high, y low, y high
    std::int32_t _wrapS = 0;
    std::int32_t _wrapT = 0;
    IxPixelFormat _format;
    OPtr<PxImageFetcherBase> _fetcher;
    AlphaPremultiply _alpha;
    MbBuffer _buffer;
    std::unique_ptr<MbBufferWrGuardImp> _guard;
};

} // namespace Vn
