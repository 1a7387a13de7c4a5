#pragma once

#include "Cb.h"
#include "ImFormat.h"
#include "OPtr.h"
#include "Rational.h"
#include "VnExport.h"

#include <cstdio>
#include <string>

namespace Vn {

class XmlElement;
class XmlWriter;

// An open media file: its stream, path, pixel ratio, rate and format defaults. Formats derive
// from it; a file object is used by one thread at a time.
class VN_EXPORT PiFile {
public:
    // The user interface of a format's options, which it keeps as XML.
    class VN_EXPORT FormatOptionsUI {
    public:
        virtual ~FormatOptionsUI();
        virtual void writeOptions(XmlWriter& writer) const = 0;
        // What `writeOptions` writes, as text.
        std::string getOptions() const;
        virtual void readOptions(XmlElement const& root) = 0;
        // An empty text changes nothing; else raises ExBase for text that is not XML.
        void setOptions(std::string const& options);

        // Notifications of channel choices; formats without channels ignore them.
        virtual void addChannelGroupSelectionChangedCb(CbHandler<const std::string>* handler);
        virtual void removeChannelGroupSelectionChangedCb(CbHandler<const std::string>* handler);
        virtual void addChannelViewSelectionChangedCb(CbHandler<const std::string>* handler);
        virtual void removeChannelViewSelectionChangedCb(CbHandler<const std::string>* handler);
        virtual void addChannelAssignmentChangedCb(CbHandler<CbEmptyType>* handler);
        virtual void removeChannelAssignmentChangedCb(CbHandler<CbEmptyType>* handler);
    };

    PiFile(PiFile const&) = delete;
    PiFile& operator=(PiFile const&) = delete;
    // Closes the stream quietly; a failure is logged.
    virtual ~PiFile();

    // "Not present" when the file states no pixel ratio.
    virtual std::string getPixelRatioStringFromFile() const;
    // The format of the file's image.
    virtual ImFormat getFormat() const = 0;
    // Null when unknown.
    virtual char const* getCompression() const;
    // "Alpha", "Lum, Alpha", "RGB", "RGBA" for 1 to 4 components; null for others.
    virtual char const* getColourEncoding() const;
    virtual float getGamma() const;
    virtual int getNbComponents() const = 0;
    virtual bool isHomogeneous() const;
    virtual bool hasPixelRatio() const;
    virtual void resetPixelRatio();
    virtual bool hasRate() const;
    virtual void resetRate();
    // Null for a format without options.
    virtual OPtrRet<FormatOptionsUI> getFileFormatOptionsUI() const;
    // What a fresh options object writes; empty without one.
    virtual std::string getDefaultFileFormatOptions() const;
    virtual void setFileFormatOptions(std::string const& options);

    std::FILE* getStream() const noexcept { return _stream; }
    std::wstring const& getPath() const noexcept { return _path; }
    // The path in UTF-8, for messages and the file system.
    std::string getPathText() const;
    Rational const& getPixelRatio() const noexcept { return _pixelRatio; }
    Rational const& getRate() const noexcept { return _rate; }
    int getComponents() const noexcept { return _components; }
    int getDepth() const noexcept { return _depth; }

protected:
    // Takes the stream, which may be null for a format that does its own input and output.
    PiFile(std::FILE* stream, std::wstring path);
    // Closes the stream, if any, without a check; a failure is logged.
    void closeStreamQuietly() noexcept;
    // Closes the stream, if any; raises ExBase with the path and the system's reason.
    void closeStream();

    std::FILE* _stream;
    std::wstring _path;
    Rational _pixelRatio = Rational(1);
    std::string _pixelRatioText;
    Rational _rate;
    int _components = 3;
    int _depth = 16;
};

} // namespace Vn
