#include "PxImageTexture.h"

#include "PxEWASampler.h"
#include "PxSamplers.h"
#include "RCExUtil.h"

namespace Vn {

PxImageTexture::PxImageTexture(PxNodePtr<PxImageProtocol const> const& node,
                               PxTimeScaleContext const& context, SdTextureParams const& params)
    : SdTexture(params), _node(node), _context(context) {
    if (!_node)
        RCExUtil::throwExNullPtr("PxImageProtocol");
}

PxImageTexture::~PxImageTexture() = default;

OPtrRet<SdTextureSampler const> PxImageTexture::getSampler() const {
    PxRODResult const rod = _node->getImageROD(PxTimeStreamContext(_context.getTime(), 0));
    GeRectangle<float> const& r = rod.getROD();
    if (!(r.xmin < r.xmax) || !(r.ymin < r.ymax))
        return makeOPtr<SampleTransparentBlack>(rod.getValidityInterval());
    return createSampler(_node->getImageFormat().getPixelFormat(), getParams(),
                         makeOPtr<PxImageFetcher>(_node, _context));
}

bool PxImageTexture::isOpaque() const {
    return _node->getImageFormat().getPixelFormat().getComps() == IxPixelFormat::RGB;
}

OPtrRet<SdTextureSampler const> PxImageTexture::createSampler(IxPixelFormat const& format,
                                                              SdTextureParams const& params,
                                                              OPtr<PxImageFetcherBase> fetcher) {
    if (!fetcher)
        RCExUtil::throwExNullPtr("PxImageFetcherBase");
    if (fetcher->getImageRegion().isEmpty())
        return makeOPtr<SampleTransparentBlack>(PxValidityInterval::FULL);
    switch (params.filter) {
    case SdTextureTypes::FILTER_NEAREST:
        return makeOPtr<PxNearestSampler>(std::move(fetcher), format, params);
    case SdTextureTypes::FILTER_BILINEAR:
        if (format.getComps() == IxPixelFormat::RGB)
            return makeOPtr<PxBilinearRGBSampler>(std::move(fetcher), format, params);
        return makeOPtr<PxBilinearSampler>(std::move(fetcher), format, params);
    case SdTextureTypes::FILTER_MITCHELL:
        return makeOPtr<PxMitchellSampler>(std::move(fetcher), format, params);
    case SdTextureTypes::FILTER_EWA:
    case SdTextureTypes::FILTER_EWA_GAUSS:
        return makeOPtr<PxEWASampler>(std::move(fetcher), format, params,
                                      PxEWAFilterShape::getGauss());
    case SdTextureTypes::FILTER_EWA_JINC2:
        return makeOPtr<PxEWASampler>(std::move(fetcher), format, params,
                                      PxEWAFilterShape::getJinc2());
    case SdTextureTypes::FILTER_EWA_JINC3:
        return makeOPtr<PxEWASampler>(std::move(fetcher), format, params,
                                      PxEWAFilterShape::getJinc3());
    default:
        return nullptr;
    }
}

OPtrRet<SdTextureSampler const>
PxImageTexture::createSampler(IxPixelFormat const& format, SdTextureParams const& params,
                              OPtr<IxScanlineTypes::TileFetcher> fetcher) {
    if (!fetcher)
        RCExUtil::throwExNullPtr("IxScanlineTypes::TileFetcher");
    return createSampler(format, params, makeOPtr<PxImageFetcherAdapter>(std::move(fetcher)));
}

} // namespace Vn
