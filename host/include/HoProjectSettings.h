#pragma once

#include "PiProjectSettings.h"

#include <string>
#include <string_view>

namespace Vn {

class XmlDocument;

// The project defaults of the host, read from the element "ProjectSettings" of the
// configuration document and overridable per run. `install` makes them the process's
// PiProjectSettings.
class VN_EXPORT HoProjectSettings final : public PiProjectSettings {
public:
    // What the configuration holds; a missing attribute keeps its default.
    struct VN_EXPORT Values {
        int width = 1920;
        int height = 1080;
        IxPixelFormat::Comps components = IxPixelFormat::RGBA;
        IxPixelFormat::Depth depth = IxPixelFormat::FLOAT16;
        Rational pixelRatio = Rational(1);
        int repeatMode = 0;
        Rational rate = Rational(25);
        int start = 1;
        int end = 100;
        std::string renderFolder = "render";
    };

    // The settings of a configuration document; `fileName` names it in errors. Raises ExBase
    // naming the file, the line and the fault for a document that is not a configuration.
    static Values parse(XmlDocument const& doc, std::string const& fileName);
    static Values parse(std::string_view text, std::string const& fileName);
    // The settings of the process's configuration file (PiConfigFile).
    static Values fromConfiguration();

    // Raises InSingletonEx::ExAlreadyInitialized when settings are up already.
    static void install(Values const& values);
    // Nothing when none were installed.
    static void uninstall();

    explicit HoProjectSettings(Values values) : _values(std::move(values)) {}
    Values const& getValues() const noexcept { return _values; }

    int getDefaultWidth() const override { return _values.width; }
    int getDefaultHeight() const override { return _values.height; }
    IxPixelFormat::Comps getDefaultComponents() const override { return _values.components; }
    IxPixelFormat::Depth getDefaultDepth() const override { return _values.depth; }
    Rational getDefaultPixelRatio() const override { return _values.pixelRatio; }
    int getDefaultRepeatMode() const override { return _values.repeatMode; }
    Rational getDefaultRate() const override { return _values.rate; }
    int getDefaultStart() const override { return _values.start; }
    int getDefaultEnd() const override { return _values.end; }
    std::string getRenderFolder() const override { return _values.renderFolder; }

private:
    Values _values;
};

} // namespace Vn
