#pragma once

#include <systemd/sd-event.h>

#include <memory>

namespace VUKO::VUKOCrond::Service {

struct EventSourceDropper {
    void operator()(sd_event_source* pSource) const { sd_event_source_disable_unref(pSource); }
};

/// Owns a place in an event loop, and gives it up with its end; that may happen inside the source's own callback.
using EventSourcePtr = std::unique_ptr<sd_event_source, EventSourceDropper>;

} // namespace VUKO::VUKOCrond::Service
