#pragma once

#include "ObHint.h"
#include "VnExport.h"

namespace Vn {

// The observer family of selections.
struct VN_EXPORT Sn {};

class SnSelection;

// What a selection tells its observers; it names the selection that sent it.
class VN_EXPORT SnSelectionHint : public ObHint {
public:
    ~SnSelectionHint() override;
    SnSelection const* getSelection() const noexcept { return _selection; }

protected:
    explicit SnSelectionHint(SnSelection const* selection) : _selection(selection) {}

private:
    SnSelection const* _selection;
};

// The contents changed.
class VN_EXPORT SnSelectionChangeHint final : public SnSelectionHint {
public:
    explicit SnSelectionChangeHint(SnSelection const* selection) : SnSelectionHint(selection) {}
    ~SnSelectionChangeHint() override;
};

// The selection is being destroyed; its items are still listed. An observer must not take a
// reference to it.
class VN_EXPORT SnSelectionDestroyHint final : public SnSelectionHint {
public:
    explicit SnSelectionDestroyHint(SnSelection const* selection) : SnSelectionHint(selection) {}
    ~SnSelectionDestroyHint() override;
};

} // namespace Vn
