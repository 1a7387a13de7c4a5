#include "TmUniqueMarkNamePredicate.h"

#include "TmUtf8.h"

namespace Vn {

TmUniqueMarkNamePredicate::TmUniqueMarkNamePredicate(Iterator<TmMark> const& marks)
    : _marks(marks) {}

TmUniqueMarkNamePredicate::~TmUniqueMarkNamePredicate() = default;

bool TmUniqueMarkNamePredicate::isValid(std::wstring const& name) {
    return isValid(tmNarrowToUtf8(name));
}

bool TmUniqueMarkNamePredicate::isValid(std::string const& name) {
    for (_marks.first(); !_marks.atEnd(); _marks.next())
        if (_marks.item().getName() == name)
            return false;
    return true;
}

} // namespace Vn
