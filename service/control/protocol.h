#pragma once

#include <cstddef>

/// What both ends of the control socket must agree on; docs/CONTROL.md says what it means.
namespace VUKO::VUKOCrond::Service::Protocol {

/// Value of the member "version" of every request and reply.
inline constexpr int VERSION = 1;

inline constexpr const char* SOCKET_PATH = "/var/run/vukocrond.sock";

inline constexpr std::size_t REQUEST_BYTES_MAX = std::size_t{64} * 1024;
inline constexpr std::size_t REPLY_BYTES_MAX = std::size_t{128} * 1024;

/// Deepest nesting of a request.
inline constexpr int DEPTH_MAX = 32;
/// Longest "id" of a request, as JSON text.
inline constexpr std::size_t ID_BYTES_MAX = 256;

inline constexpr const char* KEY_VERSION = "version";
inline constexpr const char* KEY_ID = "id";
inline constexpr const char* KEY_VERB = "verb";
inline constexpr const char* KEY_OK = "ok";
inline constexpr const char* KEY_RESULT = "result";
inline constexpr const char* KEY_ERROR = "error";
inline constexpr const char* KEY_CODE = "code";
inline constexpr const char* KEY_MESSAGE = "message";

/// Values of "code" that come from the transport itself; a verb may have more of its own.
inline constexpr const char* CODE_BAD_JSON = "bad-json";
inline constexpr const char* CODE_BAD_REQUEST = "bad-request";
inline constexpr const char* CODE_BAD_VERSION = "bad-version";
inline constexpr const char* CODE_BUSY = "busy";
inline constexpr const char* CODE_INTERNAL = "internal";
inline constexpr const char* CODE_RATE = "rate";
inline constexpr const char* CODE_TOO_LARGE = "too-large";

} // namespace VUKO::VUKOCrond::Service::Protocol
