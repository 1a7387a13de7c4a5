#pragma once

#include "Iterator.h"
#include "LiStringUtil.h"
#include "TmMark.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// Accepts a name for a new mark when no mark of the set already has it, compared exactly and
// with case. Checking moves the predicate's own copy of the iterator: it stays at the end, or
// on the mark that clashed.
class VN_EXPORT TmUniqueMarkNamePredicate : public LiStringUtil::ValidateNamePredicate {
public:
    explicit TmUniqueMarkNamePredicate(Iterator<TmMark> const& marks);
    TmUniqueMarkNamePredicate(TmUniqueMarkNamePredicate const&) = delete;
    TmUniqueMarkNamePredicate& operator=(TmUniqueMarkNamePredicate const&) = delete;
    ~TmUniqueMarkNamePredicate() override;

    // The name in UTF-8, checked by the narrow form.
    bool isValid(std::wstring const& name) override;
    bool isValid(std::string const& name) override;

    // Where the last check left the iterator.
    Iterator<TmMark> const& getMarks() const noexcept { return _marks; }

private:
    Iterator<TmMark> _marks;
};

} // namespace Vn
