// Documents of the host, of the sizes that are measured.
#pragma once

#include <cstdint>
#include <string>

namespace tvx::bench {

// The first of the profiles' identifiers; four digits, so that an event document has one length
// whatever profile it names.
constexpr std::int32_t kFirstProfile = 1000;

struct Notification {
  int profiles = 1;
  std::int32_t throttleSeconds = 0;
  bool withServer = false;
  std::int32_t maxRetryQueue = 100;
  std::int32_t sizeLimitMb = 10;
};

// A change of the notification configuration.
std::string NotificationDocument(const Notification& notification);

// A motion event of one camera that names one profile.
std::string EventDocumentFor(std::int32_t profile);

// A full system document of H.264 cameras whose motion notifies. Their frames carry the stream
// identifiers 1 to streams.
std::string SystemDocumentOf(int streams);

}  // namespace tvx::bench
