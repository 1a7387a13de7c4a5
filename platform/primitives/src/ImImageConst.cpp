#include "ImImageConst.h"
#include "Assertions.h"

#include <algorithm>

namespace Vn {

ImImageConst::ImImageConst(ImLayout const& layout, ImMemoryBuffer memory)
    : _layout(layout), _memory(std::move(memory)) {
    VN_ASSERT(_memory.getSize() >= _layout.getRequiredSize());
}

ImImage ImImage::create(ImLayout const& layout, char const* name) {
    MbAlignment const alignment(std::max<std::size_t>(layout.getLineAlign(), 16) - 1);
    return ImImage(layout, ImMemoryBuffer(MbBufferFactoryRegistry::getFactory(0).create(
                               name, layout.getBufferSize(), alignment)));
}

ImReadGuard::ImReadGuard(ImImageConst const& image)
    : _image(image), _guard(_image.getBuffer()),
      _first(_guard.getData() ? _guard.getData() + _image.getLayout().getOffset() : nullptr) {}

ImWriteGuard::ImWriteGuard(ImImage const& image)
    : _image(image), _guard(_image.getBuffer()),
      _first(_guard.getData() ? _guard.getData() + _image.getLayout().getOffset() : nullptr) {}

} // namespace Vn
