#pragma once

#include "ExBase.h"
#include "VnExport.h"

#include <string>

namespace Vn {

// Failures of the statistics registry and stores.
class VN_EXPORT StatEx : public ExBase {
public:
    StatEx(char const* file, int line);
    ~StatEx() override;
    VN_EX_CLONE_RAISE(StatEx)
};

// A statistic kind registered under a name already taken.
class VN_EXPORT StatExExist : public StatEx {
public:
    StatExExist(char const* file, int line, std::string const& name);
    ~StatExExist() override;
    VN_EX_CLONE_RAISE(StatExExist)
};

// A name under which no statistic kind is registered.
class VN_EXPORT StatExNotFound : public StatEx {
public:
    StatExNotFound(char const* file, int line, std::string const& name);
    ~StatExNotFound() override;
    VN_EX_CLONE_RAISE(StatExNotFound)
};

// A kind that cannot be recorded where it was asked for.
class VN_EXPORT StatExInvalid : public StatEx {
public:
    StatExInvalid(char const* file, int line);
    ~StatExInvalid() override;
    VN_EX_CLONE_RAISE(StatExInvalid)
};

} // namespace Vn
