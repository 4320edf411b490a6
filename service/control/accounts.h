#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>

#include "service/control/tokenbucket.h"

namespace VUKO::VUKOCrond::Service {

/// What each account takes up of the control socket. An account that takes up nothing is forgotten, though not before
/// its requests of the last second count no more: it would else get new ones by connecting anew.
class Accounts {
public:
    struct Account {
        explicit Account(unsigned uRequestsPerSecond) : requests(uRequestsPerSecond) {}
        std::size_t uConnections = 0;
        std::size_t uWaits = 0;
        TokenBucket requests;
    };

    explicit Accounts(unsigned uRequestsPerSecond) : _uRequestsPerSecond(uRequestsPerSecond) {}

    /// Holds as long as the account has connections, and until the next call for another one.
    Account& Of(uid_t uid, std::uint64_t uNowUsec) {
        const auto it = _map.find(uid);
        if (it != _map.end()) {
            return it->second;
        }
        std::erase_if(_map, [uNowUsec](auto& entry) {
            return entry.second.uConnections == 0 && entry.second.requests.IsFull(uNowUsec);
        });
        return _map.try_emplace(uid, _uRequestsPerSecond).first->second;
    }

private:
    unsigned _uRequestsPerSecond;
    std::map<uid_t, Account> _map;
};

} // namespace VUKO::VUKOCrond::Service
