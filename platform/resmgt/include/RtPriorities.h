#pragma once

#include "LkLock.h"
#include "VnExport.h"

#include <string>
#include <vector>

namespace Vn {

class PriorityRelation;

// The registry of named priority relations: how a component's threads rank against others. It
// records the relations; it changes no scheduling.
class VN_EXPORT RtPriorities {
public:
    static RtPriorities& getInstance();

    // The relation value registered under name; false when there is none.
    bool findRelation(char const* name, int& relationValue) const;
    int getNbRelations() const;

private:
    RtPriorities();
    friend class PriorityRelation;
    void add(PriorityRelation* relation);
    void remove(PriorityRelation* relation);

    mutable LkLock _lock;
    std::vector<PriorityRelation*> _relations;
};

// A named relation value, registered with RtPriorities while it lives.
class VN_EXPORT PriorityRelation {
public:
    PriorityRelation(char const* name, int relationValue);
    PriorityRelation(PriorityRelation const&) = delete;
    PriorityRelation& operator=(PriorityRelation const&) = delete;
    ~PriorityRelation();

    std::string const& getName() const noexcept { return _name; }
    int getRelationValue() const noexcept { return _relationValue; }

private:
    std::string _name;
    int _relationValue;
};

} // namespace Vn
