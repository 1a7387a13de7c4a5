#pragma once

#include "VnExport.h"

namespace Vn {

// What a request asks for: a time in seconds, and for some protocols a scale (the image at
// 1 / 2^scale of full resolution) and a stream.
class VN_EXPORT PxTimeInfo {
public:
    constexpr explicit PxTimeInfo(double time = 0.0) noexcept : _time(time) {}
    constexpr double getTime() const noexcept { return _time; }

private:
    double _time;
};

// A time asked of a node, in seconds.
class VN_EXPORT PxTimeContext {
public:
    constexpr explicit PxTimeContext(double time = 0.0) noexcept : _time(time) {}
    constexpr double getTime() const noexcept { return _time; }
    constexpr bool operator==(PxTimeContext const&) const noexcept = default;

private:
    double _time;
};

// A time and a scale: the image at 1 / 2^scale of full resolution.
class VN_EXPORT PxTimeScaleContext : public PxTimeContext {
public:
    constexpr PxTimeScaleContext(double time, int scale) noexcept
        : PxTimeContext(time), _scale(scale) {}
    constexpr int getScale() const noexcept { return _scale; }

private:
    int _scale;
};

// A time and a stream of a node's output.
class VN_EXPORT PxTimeStreamContext : public PxTimeContext {
public:
    // The stream is checked with PxStreams::validateStream.
    PxTimeStreamContext(double time, int stream);
    int getStream() const noexcept { return _stream; }

private:
    int _stream;
};

} // namespace Vn
