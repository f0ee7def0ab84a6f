// What the plug-in says of its mail against what the mail server has taken.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvx::soak {

struct DeliveryCheck {
  std::uint64_t received = 0;  // messages
  std::uint64_t twice = 0;     // those of them that had been received before
  std::vector<std::string> faults;
};

// Every message that was mailed has been received; none has been received more often than it was
// mailed or sent in an attempt of unknown outcome. fates is the ledger's file, received has the
// subject of each message that the server took. A file that cannot be read is a fault.
DeliveryCheck CheckDeliveries(const std::string& fates, const std::string& received);

}  // namespace tvx::soak
