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
};

// The windowed sinc of three lobes.
class VN_EXPORT Lanczos3Filter final : public IpFilters::Filter {
public:
    ~Lanczos3Filter() override;
    float evaluate(float x) const override;
    float getRadius() const override { return 3.0f; }
};

} // namespace Vn
