#pragma once

#include <json/json.h>

#include <memory>
#include <optional>
#include <string>

#include "ctl/client.h"
#include "service/engine/jobid.h"

namespace VUKO::VUKOCrond::Ctl {

/// What the service has made of a change of a definition.
struct Uptake {
    enum class Kind {
        Taken,
        NotTaken, ///< it knows the job otherwise than the file says, or not at all
        NotAsked  ///< it does not run, or does not answer
    };
    Kind eKind = Kind::NotAsked;
    std::string strReason; ///< where it is not taken or cannot be asked
    Json::Value jsJob;     ///< as the service shows it; null where there is none
};

/// The service while definitions are changed: it may be there or not, and needs its moment to see a change.
class ServiceView {
public:
    explicit ServiceView(const std::string& strRoot);

    /// The job as it is known now; null where it is not, or cannot be asked for.
    Json::Value Show(const Service::JobId& id);
    /// Has the definitions read, where one may ask for that. Anybody else waits until the service looks by itself.
    void Refresh();
    /// Waits, for some seconds at most, until the job is known by that definition, or is gone where there is none.
    Uptake WaitFor(const Service::JobId& id, const std::string& strFile, const std::optional<Json::Value>& definition);
    /// The service's status; an empty object where it cannot be asked.
    Json::Value Status();
    /// All jobs that it shows to the caller; null where it cannot be asked.
    Json::Value List();
    /// What it has against a file, or where to look.
    std::string WhyRefused(const std::string& strFile);
    /// Why it cannot be asked; empty where it can.
    const std::string& WhyLost() const { return _strLost; }

private:
    template <typename Question>
    Json::Value Asked(const Question& question);

    std::unique_ptr<Client> _client;
    std::string _strLost; ///< why it cannot be asked
    std::string _strCode; ///< of what it refused last
    bool _bRefreshed = false;
};

} // namespace VUKO::VUKOCrond::Ctl
