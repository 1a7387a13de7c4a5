#pragma once

#include "GeRectangle.h"
#include "PiFile.h"

namespace Vn {

class PiImageFileDetails;

// An image file, read or written. Images follow the engine's convention: row 0 is the bottom
// of the picture, so a file's top line is the image's last row.
class VN_EXPORT PiImageFile : public PiFile {
public:
    virtual int getNbImages() const;
    // Tiled "No", the depth in bits and the channels from the format.
    virtual OPtrRet<PiImageFileDetails> getDetails() const;

    // Reading: begin with the size to read, read regions, end.
    virtual void beginImageRead(GePoint<int> const& size);
    // True when only whole images may be read.
    virtual bool readsEntireImage() const;
    // The pixels of a region of the image into `destination`, whose layout holds the region,
    // converted to its pixel format. Raises ExBase naming the file when it cannot.
    virtual void readImage(GeRectangle<int> const& region, ImImage const& destination) = 0;
    virtual void endImageRead();

    // Writing: begin with the format, write the image, end or abort. Nothing stands under the
    // final name until `endImageWrite` has succeeded.
    virtual bool writeOrderIsBottomUp() const;
    // The size that will be written: by default the format's.
    virtual GePoint<int> beginImageWrite(ImFormat const& format);
    virtual void writeImage(ImImageConst const& source) = 0;
    virtual void endImageWrite();
    // Closes the stream and removes the file being written.
    virtual void abortImageWrite();

    // The largest area an image file may have.
    static GeRectangle<int> getMaxRect() noexcept { return {0, 0x100000, 0, 0x100000}; }

protected:
    PiImageFile(std::FILE* stream, std::wstring path) : PiFile(stream, std::move(path)) {}
};

} // namespace Vn
