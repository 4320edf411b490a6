#include "service/role/rolehistory.h"

namespace VUKO::VUKOCrond::Service {

Role RoleHistory::At(std::int64_t iInstantUsec) const {
    for (auto it = _dequeChanges.rbegin(); it != _dequeChanges.rend(); ++it) {
        if (it->iFromUsec <= iInstantUsec) {
            return it->eRole;
        }
    }
    return _dequeChanges.front().eRole;
}

void RoleHistory::Change(Role eRole, std::int64_t iFromUsec) {
    CutOff(iFromUsec);
    if (!IsEmpty() && _dequeChanges.back().eRole == eRole) {
        return;
    }
    _dequeChanges.push_back({iFromUsec, eRole});
    if (_dequeChanges.size() > DEPTH + 1) { // the first entry is no change
        _dequeChanges.pop_front();
    }
}

/// The first entry stays: there always was a role.
void RoleHistory::CutOff(std::int64_t iFromUsec) {
    while (_dequeChanges.size() > 1 && _dequeChanges.back().iFromUsec >= iFromUsec) {
        _dequeChanges.pop_back();
    }
}

} // namespace VUKO::VUKOCrond::Service
