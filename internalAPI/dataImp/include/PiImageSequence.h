#pragma once

#include "ImFormat.h"
#include "OPtr.h"
#include "VnExport.h"

#include <string>

namespace Vn {

class PiImageFile;
class XmlElement;

// A series of images described by a small XML document. Each kind registers a factory under
// the name of its document's root element; `create` reads a description and asks the factory.
class VN_EXPORT PiImageSequence {
public:
    using Factory = OPtrRet<PiImageSequence> (*)(XmlElement const& root);

    PiImageSequence(PiImageSequence const&) = delete;
    PiImageSequence& operator=(PiImageSequence const&) = delete;
    virtual ~PiImageSequence();

    // Registering a name again replaces its factory. Done during start-up.
    static void registerFactory(std::string const& rootName, Factory factory);
    static void unregisterFactory(std::string const& rootName);
    // Null for an empty path. Raises ExBase naming the file for a description that cannot be
    // read, whose root no kind has registered, or that its kind refuses.
    static OPtrRet<PiImageSequence> create(std::string const& path);
    // The same for a description's text; `name` names it in errors.
    static OPtrRet<PiImageSequence> createFromText(std::string const& text,
                                                   std::string const& name);

    // Images are numbered from 0.
    virtual int getNbImages() const = 0;
    // The path of an image; raises ExBase for an index out of range.
    virtual std::string getImagePath(int index) const = 0;
    // The image, open for reading, its pixels' memory from the factory. Raises ExBase naming
    // the file and the frame when it cannot be opened.
    OPtrRet<PiImageFile> getImageForReading(int index, ImMemory::Factory const& memory) const;
    OPtrRet<PiImageFile> getImageForReading(int index) const {
        return getImageForReading(index, ImMemory::getDefaultFactory());
    }
    // The format of the first image; raises ExBase.
    virtual ImFormat getFormat() const = 0;
    // The format, or an empty one when it cannot be read.
    ImFormat getFormatNoEx() const;
    virtual void setFileFormatOptions(std::string const& options);
    virtual std::string getFileFormatOptions() const;
    // Whether images of the sequence may be missing on disk.
    virtual bool nonExistentMediaAllowed() const;
    // The description, as `create` reads it.
    virtual std::string toXml() const = 0;

protected:
    PiImageSequence() = default;
    virtual OPtrRet<PiImageFile> openImageForReading(int index,
                                                     ImMemory::Factory const& memory) const = 0;
};

} // namespace Vn
