// Texture sampling: samples per second of each filter at 1:1, 4x minification and 8:1
// anisotropy turned 30 degrees, walked in 64 x 64 blocks and in scanlines over a 4K RGBA float
// image, against OpenCV's remap, OpenImageIO's texture system (no MIP levels, texture loaded
// before timing) and, for EWA, ImageMagick's elliptical-average distort with a Gaussian. All on
// one thread.

#include "BenchRatio.h"
#include "InPackageInit.h"
#include "IxConvertUtil.h"
#include "IxScanlineTypes.h"
#include "PxEWASampler.h"
#include "PxSamplers.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/texture.h>
#include <magick/MagickCore.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace Vn;

namespace {

constexpr int kW = 3840;
constexpr int kH = 2160;
constexpr int kOut = 256; // outputs per side: 65,536 samples an iteration

struct Transform {
    char const* name;
    double j[4]; // source pixels per output pixel: (dx/dox, dx/doy; dy/dox, dy/doy)
};
constexpr double kCos30 = 0.86602540378443865;
Transform const kTransforms[] = {
    {"1to1", {1, 0, 0, 1}},
    {"min4x", {4, 0, 0, 4}},
    {"aniso8", {8 * kCos30, -0.5, 8 * 0.5, kCos30}},
};
constexpr double kOffX = 300.3;
constexpr double kOffY = 200.7;

struct Source {
    std::vector<float> pixels; // RGBA, kW x kH
    Vector<IxTile> tiles;
    std::string exrPath;
};

Source& source() {
    static Source s = [] {
        Source r;
        r.pixels.resize(std::size_t(kW) * kH * 4);
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        for (float& v : r.pixels)
            v = u(rng);
        IxPixelFormat const f(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
        for (int ty = 0; ty * 512 < kH; ++ty)
            for (int tx = 0; tx * 512 < kW; ++tx) {
                GeRectangle<int> const reg = GeRectangle<int>{0, kW, 0, kH}.intersect(
                    {tx * 512, tx * 512 + 512, ty * 512, ty * 512 + 512});
                IxTile tile(f, reg, {});
                IxWriteGuard const g(tile);
                for (int y = reg.ymin; y < reg.ymax; ++y)
                    std::memcpy(g.getAddress(reg.xmin, y),
                                &r.pixels[(std::size_t(y) * kW + reg.xmin) * 4],
                                std::size_t(reg.width()) * 16);
                r.tiles.push_back(tile);
            }
        // The texture system reads files: a tiled float file, no MIP levels.
        r.exrPath = (std::filesystem::temp_directory_path() / "vn_texture_bench.exr").string();
        OIIO::ImageSpec layout(kW, kH, 4, OIIO::TypeDesc::FLOAT);
        layout.tile_width = layout.tile_height = 64;
        OIIO::ImageBuf buf(layout, r.pixels.data());
        buf.write(r.exrPath);
        return r;
    }();
    return s;
}

SdTextureParams pixelParams(int filter) {
    SdTextureParams p;
    p.filter = filter;
    p.wrapS = p.wrapT = SdTextureTypes::WRAP_BLACK;
    float const m[9] = {1.0f / kW, 0, 0, 0, 1.0f / kH, 0, 0, 0, 1};
    std::copy(m, m + 9, p.matrix);
    return p;
}

OPtr<SdTextureSampler> makeSampler(int filter) {
    OPtr<PxImageFetcherBase> f =
        makeOPtr<PxImageFetcherAdapter>(makeOPtr<IxScanlineTypes::TileListFetcher>(source().tiles));
    IxPixelFormat const fmt(IxPixelFormat::RGBA, IxPixelFormat::FLOAT32);
    switch (filter) {
    case 0:
        return makeOPtr<PxNearestSampler>(std::move(f), fmt, pixelParams(0));
    case 1:
        return makeOPtr<PxBilinearSampler>(std::move(f), fmt, pixelParams(1));
    case 3:
        return makeOPtr<PxMitchellSampler>(std::move(f), fmt, pixelParams(3));
    default:
        return makeOPtr<PxEWASampler>(std::move(f), fmt, pixelParams(4),
                                      PxEWAFilterShape::getGauss());
    }
}

void ours(benchmark::State& state, int filter, Transform t, bool blocked) {
    OPtr<SdTextureSampler> const s = makeSampler(filter);
    GeLinearMatrix2<float> const jac(float(t.j[0]), float(t.j[1]), float(t.j[2]), float(t.j[3]));
    float sum = 0;
    SdTextureSampler::Color out[kOut];
    GeVector2<double> const step{t.j[0], t.j[2]};
    // A row of n outputs from (ox, oy) on, one call to the sampler.
    auto row = [&](int ox, int oy, int n) {
        // Sampling positions are pixel corners: +0.5 is the centre.
        GePoint<double> const p{kOffX + t.j[0] * (ox + 0.5) + t.j[1] * (oy + 0.5),
                                kOffY + t.j[2] * (ox + 0.5) + t.j[3] * (oy + 0.5)};
        s->sampleRow(p, step, n, jac, out);
        sum += out[n - 1].g; // the references do not read their results either
    };
    int const block = blocked ? s->getCacheBlockingSizeX() : kOut;
    for (auto _ : state) {
        for (int by = 0; by < kOut; by += (blocked ? block : 1))
            for (int bx = 0; bx < kOut; bx += block)
                for (int oy = by; oy < (blocked ? by + block : by + 1); ++oy)
                    row(bx, oy, block);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kOut * kOut);
}

void openCV(benchmark::State& state, int interpolation, Transform t) {
    cv::setNumThreads(1);
    cv::Mat const src(kH, kW, CV_32FC4, source().pixels.data());
    cv::Mat mapX(kOut, kOut, CV_32FC1);
    cv::Mat mapY(kOut, kOut, CV_32FC1);
    for (int oy = 0; oy < kOut; ++oy)
        for (int ox = 0; ox < kOut; ++ox) {
            // remap reads pixel centres at integers.
            mapX.at<float>(oy, ox) = float(kOffX + t.j[0] * (ox + 0.5) + t.j[1] * (oy + 0.5) - 0.5);
            mapY.at<float>(oy, ox) = float(kOffY + t.j[2] * (ox + 0.5) + t.j[3] * (oy + 0.5) - 0.5);
        }
    cv::Mat dst;
    for (auto _ : state) {
        cv::remap(src, dst, mapX, mapY, interpolation, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
    state.SetItemsProcessed(state.iterations() * kOut * kOut);
}

void oiio(benchmark::State& state, OIIO::TextureOpt::InterpMode mode, Transform t) {
    OIIO::TextureSystem* ts = OIIO::TextureSystem::create(false);
    ts->attribute("max_memory_MB", 2048.0f);
    OIIO::ustring const name(source().exrPath);
    OIIO::TextureOpt opt;
    opt.interpmode = mode;
    opt.mipmode = OIIO::TextureOpt::MipModeNoMIP;
    opt.swrap = opt.twrap = OIIO::TextureOpt::WrapBlack;
    float const dsdx = float(t.j[0] / kW), dtdx = float(t.j[2] / kH);
    float const dsdy = float(t.j[1] / kW), dtdy = float(t.j[3] / kH);
    float rgba[4];
    float sum = 0;
    auto pass = [&] {
        for (int oy = 0; oy < kOut; ++oy)
            for (int ox = 0; ox < kOut; ++ox) {
                float const s = float((kOffX + t.j[0] * (ox + 0.5) + t.j[1] * (oy + 0.5)) / kW);
                float const tt = float((kOffY + t.j[2] * (ox + 0.5) + t.j[3] * (oy + 0.5)) / kH);
                ts->texture(name, opt, s, tt, dsdx, dtdx, dsdy, dtdy, 4, rgba);
                sum += rgba[1];
            }
    };
    pass(); // loads the tiles
    for (auto _ : state) {
        pass();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kOut * kOut);
    OIIO::TextureSystem::destroy(ts);
}

void magick(benchmark::State& state, Transform t) {
    ExceptionInfo* ex = AcquireExceptionInfo();
    SetMagickResourceLimit(ThreadResource, 1);
    Image* img = ConstituteImage(kW, kH, "RGBA", FloatPixel, source().pixels.data(), ex);
    img->filter = GaussianFilter;
    SetImageArtifact(img, "distort:viewport",
                     (std::to_string(kOut) + "x" + std::to_string(kOut) + "+0+0").c_str());
    // The forward map, source to output: the inverse of the output-to-source Jacobian.
    double const det = t.j[0] * t.j[3] - t.j[1] * t.j[2];
    double const a = t.j[3] / det, b = -t.j[1] / det, c = -t.j[2] / det, d = t.j[0] / det;
    double const coeffs[6] = {a, c, b, d, -(a * kOffX + b * kOffY), -(c * kOffX + d * kOffY)};
    for (auto _ : state) {
        Image* out = DistortImage(img, AffineProjectionDistortion, 6, coeffs, MagickFalse, ex);
        benchmark::DoNotOptimize(out);
        DestroyImage(out);
    }
    state.SetItemsProcessed(state.iterations() * kOut * kOut);
    DestroyImage(img);
    DestroyExceptionInfo(ex);
}

} // namespace

int main(int argc, char** argv) {
    MagickCoreGenesis(argv[0], MagickFalse);
    InInitMgr::getInstance().initialize();
    char const* filterNames[] = {"Nearest", "Bilinear", "", "Mitchell", "EWAGauss"};
    std::vector<VnBench::RatioPair> pairs;
    std::vector<std::string> names; // kept alive for the pairs
    names.reserve(256);
    auto name = [&](std::string n) -> char const* {
        names.push_back(std::move(n));
        return names.back().c_str();
    };
    for (Transform const& t : kTransforms) {
        std::string const tn = t.name;
        for (int f : {0, 1, 3, 4})
            for (bool blocked : {true, false})
                benchmark::RegisterBenchmark(
                    name("Ours_" + std::string(filterNames[f]) + "_" + tn +
                         (blocked ? "_Blocked" : "_Scanline")),
                    [f, t, blocked](benchmark::State& s) { ours(s, f, t, blocked); })
                    ->Unit(benchmark::kMillisecond);
        struct Ref {
            int filter;
            int cv;
            OIIO::TextureOpt::InterpMode oiio;
        };
        for (Ref const r : {Ref{0, cv::INTER_NEAREST, OIIO::TextureOpt::InterpClosest},
                            Ref{1, cv::INTER_LINEAR, OIIO::TextureOpt::InterpBilinear},
                            Ref{3, cv::INTER_CUBIC, OIIO::TextureOpt::InterpBicubic}}) {
            std::string const fn = filterNames[r.filter];
            benchmark::RegisterBenchmark(name("OpenCV_remap_" + fn + "_" + tn),
                                         [r, t](benchmark::State& s) { openCV(s, r.cv, t); })
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark(name("OIIO_texture_" + fn + "_" + tn),
                                         [r, t](benchmark::State& s) { oiio(s, r.oiio, t); })
                ->Unit(benchmark::kMillisecond);
            pairs.push_back({name(fn + " " + tn + " blocked / OpenCV remap"),
                             name("Ours_" + fn + "_" + tn + "_Blocked"),
                             name("OpenCV_remap_" + fn + "_" + tn)});
            pairs.push_back({name(fn + " " + tn + " scanline / OpenCV remap"),
                             name("Ours_" + fn + "_" + tn + "_Scanline"),
                             name("OpenCV_remap_" + fn + "_" + tn)});
            pairs.push_back({name(fn + " " + tn + " blocked / OIIO texture"),
                             name("Ours_" + fn + "_" + tn + "_Blocked"),
                             name("OIIO_texture_" + fn + "_" + tn)});
        }
        benchmark::RegisterBenchmark(name("Magick_distort_EWAGauss_" + tn),
                                     [t](benchmark::State& s) { magick(s, t); })
            ->Unit(benchmark::kMillisecond);
        pairs.push_back({name("EWA Gauss " + tn + " blocked / ImageMagick distort"),
                         name("Ours_EWAGauss_" + tn + "_Blocked"),
                         name("Magick_distort_EWAGauss_" + tn)});
        pairs.push_back({name("EWA Gauss " + tn + " scanline / ImageMagick distort"),
                         name("Ours_EWAGauss_" + tn + "_Scanline"),
                         name("Magick_distort_EWAGauss_" + tn)});
    }
    // The sampler's vector paths against their SSE2 forms: blocked walks weigh pixels, scanline
    // walks mostly refill blocks.
    struct PathPair {
        int filter;
        bool blocked;
    };
    for (PathPair const pp : {PathPair{1, true}, PathPair{1, false}, PathPair{3, true}}) {
        std::string const mine = "Ours_" + std::string(filterNames[pp.filter]) + "_1to1_" +
                                 (pp.blocked ? "Blocked" : "Scanline");
        benchmark::RegisterBenchmark(name(mine + "_SSE2"), [pp](benchmark::State& s) {
            IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::SSE2);
            ours(s, pp.filter, kTransforms[0], pp.blocked);
            IxConvertUtil::limitVectorPath(IxConvertUtil::VectorPath::AVX512);
        })->Unit(benchmark::kMillisecond);
        pairs.push_back(
            {name(mine.substr(5) + ", vector path / SSE2"), name(mine), name(mine + "_SSE2")});
    }
    int const rc = VnBench::runWithRatios(argc, argv, pairs);
    std::filesystem::remove(source().exrPath);
    MagickCoreTerminus();
    return rc;
}
