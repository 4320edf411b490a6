#pragma once

#include <string>

/// What the service manager is told. All of it does nothing where nobody listens (NOTIFY_SOCKET is not set).
namespace VUKO::VUKOCrond::Service::Notify {

/// The service is ready, for the first time or again after Reloading(). `strStatus` is one line for people.
void Ready(const std::string& strStatus);
void Reloading();
void Stopping();
void Status(const std::string& strStatus);

} // namespace VUKO::VUKOCrond::Service::Notify
