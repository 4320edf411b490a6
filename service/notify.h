#pragma once

#include <cstdint>
#include <string>

/// What the service manager is told. All of it does nothing where nobody listens (NOTIFY_SOCKET is not set).
namespace VUKO::VUKOCrond::Service::Notify {

/// The service is ready, for the first time or again after Reloading(). `strStatus` is one line for people.
void Ready(const std::string& strStatus);
void Reloading();
void Stopping();
void Status(const std::string& strStatus);
/// A sign of life.
void Watchdog();

/// How often Watchdog() is to be called, in microseconds: twice in the time after which the service manager gives the
/// service up. 0: it does not watch.
std::uint64_t WatchdogIntervalUsec();

} // namespace VUKO::VUKOCrond::Service::Notify
