#pragma once

#include "OsFilePath.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// The application's save dialog, reached by the library without knowing it.
class VN_EXPORT PiSaveAsUtil {
public:
    // Shows a dialog from a proposed path with a title and a message; gives the chosen path.
    using PopupSaveAs = OsFilePath (*)(OsFilePath const& path, std::string const& title,
                                       std::string const& message);

    static void registerPopupSaveAsImplementation(PopupSaveAs popup);
    // The registered dialog's answer; its two texts are passed through unread. A dialog must
    // have been registered (an assertion).
    static OsFilePath popupSaveAs(OsFilePath const& path, std::string const& title,
                                  std::string const& message);
};

} // namespace Vn
