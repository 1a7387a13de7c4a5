#include "PiSaveAsUtil.h"

#include "Assertions.h"

namespace Vn {

namespace {
PiSaveAsUtil::PopupSaveAs s_popup = nullptr;
} // namespace

void PiSaveAsUtil::registerPopupSaveAsImplementation(PopupSaveAs popup) {
    s_popup = popup;
}

OsFilePath PiSaveAsUtil::popupSaveAs(OsFilePath const& path, std::string const& title,
                                     std::string const& message) {
    VN_ASSERT(s_popup != nullptr);
    return s_popup(path, title, message);
}

} // namespace Vn
