#pragma once

#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "service/engine/job.h"
#include "tests/sim/naivemodel.h"

namespace sim {

/// The naive model, tick by tick, beside a service that is killed, reloaded and kept from its work.
class LifeModel : public NaiveModel {
public:
    explicit LifeModel(bool bLiteral) : NaiveModel(bLiteral, {}) { _strCause = "clock step"; }

    /// The jobs are these from here on: values and stamps are taken over, what they mean is the model's.
    void Take(const std::vector<VUKO::VUKOCrond::Service::Job>& vecJobs) {
        _vecJobs.clear();
        for (const VUKO::VUKOCrond::Service::Job& job : vecJobs) {
            CronJob record = VUKO::VUKOCrond::Service::BuildRecord(job);
            ModelJob& added = _vecJobs.emplace_back(ModelOf(record));
            added.strName = job.id.strName;
            added.iBase = job.AssureBase();
            added.bReported = job.bOverdueReported;
            added.bBusyMatters = record._jsJob["config"].get("overlap", "skip").asString() == "skip";
        }
    }
    /// A definition that is refused says nothing, but that the job was there.
    void Invalidate(const VUKO::VUKOCrond::Service::Job& known, const std::string& strDefinition) {
        VUKO::VUKOCrond::Service::Job job = known;
        job.strDefinition = strDefinition;
        ModelJob invalid = ModelOf(VUKO::VUKOCrond::Service::BuildRecord(job));
        invalid.bInvalid = true;
        invalid.iAssureSec = 0;
        for (ModelJob& model : _vecJobs) {
            if (model.strName == job.id.strName) {
                model = invalid;
            }
        }
    }
    void SetStamp(const std::string& strName, std::int64_t iBase) {
        for (ModelJob& job : _vecJobs) {
            job.iBase = job.strName == strName ? iBase : job.iBase;
        }
    }
    void Reboot() {
        _bLooked = false;
        _strCause = "clock step";
    }
    void Restart() {
        _iLastLook = _iStoredLook;
        _strCause = _strCause == "hibernating" ? _strCause : "service down";
    }
    std::vector<ModelOutcome> LookAt(std::time_t tNow, bool bPassive, bool bAsleep, bool bSettled,
                                     const std::function<bool(const std::string&)>& isBusy) {
        _tClock = tNow;
        _bPassive = bPassive;
        _bSettled = bSettled;
        _tAwakeAgain = bAsleep ? std::numeric_limits<std::time_t>::max() : 0;
        for (ModelJob& job : _vecJobs) {
            job.bBusy = isBusy(job.strName);
        }
        _vecOutcomes.clear();
        Look();
        _iStoredLook = bAsleep ? _iStoredLook : _iLastLook;
        return _vecOutcomes;
    }

private:
    std::int64_t _iStoredLook = std::numeric_limits<std::int64_t>::min();
};

} // namespace sim
