#pragma once

#include "PxImageFetcher.h"
#include "PxImageProtocol.h"
#include "PxValidityInterval.h"
#include "SdTexture.h"
#include "VnExport.h"

namespace Vn {

// An image node seen as a texture: each sampler it gives reads the node's tiles at one time and
// scale through a cache of its own, with the filter the parameters name.
class VN_EXPORT PxImageTexture : public SdTexture {
public:
    // A null node raises the null-pointer exception.
    PxImageTexture(PxNodePtr<PxImageProtocol const> const& node, PxTimeScaleContext const& context,
                   SdTextureParams const& params);

    // A new sampler for the calling thread; transparent black for an empty image; null for a
    // filter value outside the table.
    OPtrRet<SdTextureSampler const> getSampler() const override;
    // The image has no alpha.
    bool isOpaque() const override;

    PxNodePtr<PxImageProtocol const> const& getImageNode() const noexcept { return _node; }
    PxTimeScaleContext const& getTimeScale() const noexcept { return _context; }

    // The sampler of the filter table for an image of this format read through the fetcher,
    // which it takes over; null when the filter is outside the table. A null fetcher raises the
    // null-pointer exception.
    static OPtrRet<SdTextureSampler const> createSampler(IxPixelFormat const& format,
                                                         SdTextureParams const& params,
                                                         OPtr<PxImageFetcherBase> fetcher);
    static OPtrRet<SdTextureSampler const>
    createSampler(IxPixelFormat const& format, SdTextureParams const& params,
                  OPtr<IxScanlineTypes::TileFetcher> fetcher);

    // The output block size that keeps a sampler's cache warm, without a sampler at hand.
    static int getAvgCacheBlockingSizeX() noexcept { return 64; }
    static int getAvgCacheBlockingSizeY() noexcept { return 64; }

protected:
    ~PxImageTexture() override;

private:
    PxNodePtr<PxImageProtocol const> _node;
    PxTimeScaleContext _context;
};

// The sampler of an empty image: every sample is transparent black, valid as long as the
// emptiness it stands for.
class VN_EXPORT SampleTransparentBlack final : public SdTextureSampler {
public:
    explicit SampleTransparentBlack(PxValidityInterval const& vi) noexcept : _vi(vi) {}

    void releaseGuard() const override {}
    Color sample(int, int, float, float) const override { return {}; }
    Color sample(int, int, float, float, float, float) const override { return {}; }
    Color sample(int, int, float, float, float) const override { return {}; }
    Color sample(int, int, GeLinearMatrix2<float> const&) const override { return {}; }
    Color sample(GePoint<double> const&, GeLinearMatrix2<double> const&) const override {
        return {};
    }
    Color sample(GePoint<double> const&, GeLinearMatrix2<float> const&) const override {
        return {};
    }
    void reduceVI(PxValidityInterval& vi) const override { vi &= _vi; }
    int getCacheBlockingSizeX() const override { return 64; }
    int getCacheBlockingSizeY() const override { return 64; }
    void releaseTiles() const override {}
    void registerGuardProxy(IxGuardProxy const&) const override {}

private:
    PxValidityInterval _vi;
};

} // namespace Vn
