#pragma once

#include "PiImageFile.h"
#include "PiImageSequence.h"
#include "PxImageProtocol.h"

#include <cstddef>
#include <memory>

#include <string>

namespace Vn {

// An image file read and written through OpenImageIO: EXR, PNG, TIFF, DPX, JPEG and the other
// formats it knows. Reads go by scanlines or tiles straight into the destination, in its pixel
// format, rows turned; nothing is decoded to float on the way. Grey files read as RGB, grey
// and alpha as RGBA; channels beyond four are left out. Alpha comes premultiplied whatever the
// file stores. Writes go to a temporary beside the target, renamed over it at the end.
class VN_EXPORT HoOiioImageFile final : public PiImageFile {
public:
    // Raises ExBase naming the file when it cannot be opened or is not an image.
    static OPtrRet<HoOiioImageFile> openForReading(std::string const& path);
    // Raises ExBase naming the file when no format writes its extension.
    static OPtrRet<HoOiioImageFile> createForWriting(std::string const& path);
    // An unfinished write is aborted.
    ~HoOiioImageFile() override;

    ImFormat getFormat() const override;
    int getNbComponents() const override;
    char const* getCompression() const override;
    bool hasPixelRatio() const override;
    bool hasRate() const override;
    void resetRate() override;
    OPtrRet<PiImageFileDetails> getDetails() const override;

    bool readsEntireImage() const override { return false; }
    // Whole rows only: the region spans the image's width.
    void readImage(GeRectangle<int> const& region, ImImage const& destination) override;

    bool writeOrderIsBottomUp() const override { return false; }
    GePoint<int> beginImageWrite(ImFormat const& format) override;
    void writeImage(ImImageConst const& source) override;
    // Closes with a check, fsyncs, renames over the target and fsyncs the folder. Raises ExBase
    // with the path and the system's reason; before the rename the temporary is removed.
    void endImageWrite() override;
    // Removes the temporary only: a file already under the target's name stays.
    void abortImageWrite() override;

    bool isTiled() const;
    // Regions read by every file of the process: a test's and a benchmark's measure.
    static long getReadCount() noexcept;

    // Moves a written temporary over the target: fsync, checked close, rename, folder fsync.
    // Removes the temporary when a step before the rename fails; raises OsFileError.
    static void commitTemporary(std::string const& temporary, std::string const& target);
    // A temporary name in the target's folder with the target's extension.
    static std::string temporaryBeside(std::string const& target);

private:
    struct Imp;
    explicit HoOiioImageFile(std::string const& path);
    OPtr<Imp> _imp;
};

// Numbered files, one a frame, described by the element "NumberedSequence" with the attributes
// pattern ("shot.####.exr"), first, last and missing ("error" or "hold"). The pattern numbers
// frames by a run of '#' (padded to its length) or a printf form "%d" / "%04d". A missing frame is
// an error naming the file and the frame, or with missing="hold" the nearest frame on disk, the
// earlier one on a tie.
class VN_EXPORT HoNumberedSequence final : public PiImageSequence {
public:
    static constexpr char const* kRootName = "NumberedSequence";
    // At most this many frames in a sequence.
    static constexpr int kMaxFrames = 1'000'000;

    // Registers the kind with PiImageSequence; done at the host's start.
    static void registerKind();
    // Raises ExBase naming the fault for a description that is not one of these.
    static OPtrRet<PiImageSequence> fromXml(XmlElement const& root);

    HoNumberedSequence(std::string pattern, int first, int last, bool holdMissing);

    int getNbImages() const override { return _last - _first + 1; }
    std::string getImagePath(int index) const override;
    ImFormat getFormat() const override;
    bool nonExistentMediaAllowed() const override { return _holdMissing; }
    std::string toXml() const override;
    int getFirstFrame() const noexcept { return _first; }

protected:
    OPtrRet<PiImageFile> openImageForReading(int index,
                                             ImMemory::Factory const& memory) const override;

private:
    std::string _pattern;
    int _first;
    int _last;
    bool _holdMissing;
};

// Serves the frames of an image sequence as an image: its format, rate and pixel ratio are the
// first frame's. Frame i stands at times [i, i + 1) / rate; before the first and after the last
// frame the end frames hold. A frame is read whole, once, at its first tile, inside the engine's
// blocking guard, and kept in a cache bounded in bytes (the last image loaded always stays).
// Tiles share the cached frame's memory. A coarser scale is served from a proxy: the frame's box
// average over blocks of 2^scale pixels, made once and cached within the same bound. Serving a
// tile of a cached image takes no lock.
class VN_EXPORT HoImageFileNode final : public PxImageProtocol {
public:
    static constexpr std::size_t kDefaultCacheBytes = std::size_t{1} << 30;

    // Opens the first frame for the format: raises ExBase naming the file when it cannot.
    HoImageFileNode(PxNode::Init const& init, std::shared_ptr<PiImageSequence const> sequence,
                    std::size_t cacheBytes = kDefaultCacheBytes);
    ~HoImageFileNode() override;

    PxImageFormat getImageFormat() const override { return _format; }
    PxRODResult getImageROD(PxTimeStreamContext const& context) const override;
    PxImageResult getImageResult(PxImageContext const& context) const override;
    bool isChainConnected() const override { return true; }
    bool producesFullFrames() const override { return false; }
    int getNbStreams() const override { return 1; }

    // The sequence's image shown at a time, and the span of times it holds for.
    int frameIndexAt(double time, PxValidityInterval& vi) const;
    std::size_t getCachedBytes() const;

private:
    struct Cache;
    struct Held;
    ImImage readFrame(int index) const;
    void hold(int index, int scale, Held& out) const;

    std::shared_ptr<PiImageSequence const> _sequence;
    ImFormat _fileFormat;
    PxImageFormat _format;
    int _maxScale = 0;
    std::unique_ptr<Cache> _cache;
};

} // namespace Vn
