#pragma once

#include "VnExport.h"

namespace Vn {

// Reconstruction filters for resampling.
class VN_EXPORT IpFilters {
public:
    // A symmetric kernel that is 0 at and beyond its radius.
    class VN_EXPORT Filter {
    public:
        virtual ~Filter();
        virtual float evaluate(float x) const = 0;
        virtual float getRadius() const = 0;

        // The support, in source pixels, of a filter of this radius when one destination pixel
        // spans `ratio` source pixels: shrinking widens the kernel so that every source pixel
        // counts, enlarging keeps it.
        static float scale(float radius, float ratio) noexcept;
    };

    // exp(-x^2 / (2 sigma^2)), cut at 4 sigma, where it has fallen below 3.4e-4.
    class VN_EXPORT Gaussian final : public Filter {
    public:
        // sigma must be above 0.
        explicit Gaussian(float sigma);
        float evaluate(float x) const override;
        float getRadius() const override { return 4.0f * _sigma; }

    private:
        float _sigma;
    };

    // jinc(x) = 2 J1(pi x) / (pi x), 1 at 0: the radial counterpart of sinc. Windowed by jinc
    // stretched so that its first zero falls at the filter's radius, which is the zero of jinc
    // that ends the n-th lobe (n = 2 or 3), as a Lanczos window does for sinc.
    class VN_EXPORT Jinc final : public Filter {
    public:
        explicit Jinc(int lobes);
        float evaluate(float x) const override;
        float getRadius() const override { return _radius; }

        static double jinc(double x);
        // The n-th positive zero of jinc (n from 1 to 3).
        static double zero(int n);

    private:
        float _radius;
    };

    // Two and three lobes.
    class VN_EXPORT Jinc2 final : public Filter {
    public:
        float evaluate(float x) const override { return _jinc.evaluate(x); }
        float getRadius() const override { return _jinc.getRadius(); }

    private:
        Jinc _jinc{2};
    };
    class VN_EXPORT Jinc3 final : public Filter {
    public:
        float evaluate(float x) const override { return _jinc.evaluate(x); }
        float getRadius() const override { return _jinc.getRadius(); }

    private:
        Jinc _jinc{3};
    };
};

// The windowed sinc of three lobes.
class VN_EXPORT Lanczos3Filter final : public IpFilters::Filter {
public:
    ~Lanczos3Filter() override;
    float evaluate(float x) const override;
    float getRadius() const override { return 3.0f; }
};

} // namespace Vn
