#include "RtPriorities.h"

#include <algorithm>

namespace Vn {

RtPriorities::RtPriorities() : _lock("RtPriorities::_lock") {}

RtPriorities& RtPriorities::getInstance() {
    // Kept to the end of the process: relations may be static objects destroyed after it.
    static RtPriorities* instance = new RtPriorities;
    return *instance;
}

bool RtPriorities::findRelation(char const* name, int& relationValue) const {
    LkGuard guard(_lock);
    // The latest registration of a name wins.
    for (auto it = _relations.rbegin(); it != _relations.rend(); ++it) {
        if ((*it)->getName() == name) {
            relationValue = (*it)->getRelationValue();
            return true;
        }
    }
    return false;
}

int RtPriorities::getNbRelations() const {
    LkGuard guard(_lock);
    return static_cast<int>(_relations.size());
}

void RtPriorities::add(PriorityRelation* relation) {
    LkGuard guard(_lock);
    _relations.push_back(relation);
}

void RtPriorities::remove(PriorityRelation* relation) {
    LkGuard guard(_lock);
    _relations.erase(std::remove(_relations.begin(), _relations.end(), relation), _relations.end());
}

PriorityRelation::PriorityRelation(char const* name, int relationValue)
    : _name(name ? name : ""), _relationValue(relationValue) {
    RtPriorities::getInstance().add(this);
}

PriorityRelation::~PriorityRelation() {
    RtPriorities::getInstance().remove(this);
}

} // namespace Vn
