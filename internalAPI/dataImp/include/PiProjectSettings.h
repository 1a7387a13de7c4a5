#pragma once

#include "IxPixelFormat.h"
#include "OPtr.h"
#include "Rational.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The defaults of the open project, supplied by the application at its start. While they are
// up, "<RenderFolder>" and "<PublishDir>" expand to the render folder in substituted texts.
class VN_EXPORT PiProjectSettings {
public:
    // How a precomp is brought up to date.
    enum PrecompUpdateMode : unsigned {
        UPDATE,
        RECREATE_KEEP_VERSIONS,
        OVERWRITE_DELETE_VERSIONS,
        SKIP_EXISTING_COMPOSITIONS,
        PROMPT_USER,
    };

    PiProjectSettings(PiProjectSettings const&) = delete;
    PiProjectSettings& operator=(PiProjectSettings const&) = delete;
    virtual ~PiProjectSettings();

    // Raises InSingletonEx::ExNotInitialized before `initialize` or after `finalize`.
    static PiProjectSettings& getInstance();
    static bool isInitialized();
    // The mode's text; a mode beyond the table, or any before `initialize`, is an assertion
    // failure.
    static std::string const& precompUpdateModeToString(PrecompUpdateMode mode);

    virtual int getDefaultWidth() const = 0;
    virtual int getDefaultHeight() const = 0;
    virtual IxPixelFormat::Comps getDefaultComponents() const = 0;
    virtual IxPixelFormat::Depth getDefaultDepth() const = 0;
    virtual Rational getDefaultPixelRatio() const = 0;
    virtual int getDefaultRepeatMode() const = 0;
    virtual Rational getDefaultRate() const = 0;
    virtual int getDefaultStart() const = 0;
    virtual int getDefaultEnd() const = 0;
    virtual std::string getRenderFolder() const = 0;

protected:
    PiProjectSettings() = default;
    // Takes the application's object: InSingletonEx::ExAlreadyInitialized when one is there.
    static void initialize(OPtr<PiProjectSettings> settings);
    static void finalize();
};

} // namespace Vn
