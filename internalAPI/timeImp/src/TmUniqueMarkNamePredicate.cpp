#include "TmUniqueMarkNamePredicate.h"

#include "LiStringUtil.h"

namespace Vn {

TmUniqueMarkNamePredicate::TmUniqueMarkNamePredicate(Iterator<TmMark> const& marks)
    : _marks(marks) {}

TmUniqueMarkNamePredicate::~TmUniqueMarkNamePredicate() = default;

bool TmUniqueMarkNamePredicate::isValid(std::wstring const& name) {
    return isValid(WideStringUtil::narrowMB(name));
}

bool TmUniqueMarkNamePredicate::isValid(std::string const& name) {
    for (_marks.first(); !_marks.atEnd(); _marks.next())
        if (_marks.item().getName() == name)
            return false;
    return true;
}

} // namespace Vn
