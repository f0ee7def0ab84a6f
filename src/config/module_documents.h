// The small documents that the plug-in sends to the host beside its configuration.
// Threads: any; nothing is shared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvx {

// What became of a profile's notification or configuration, as the host shows it.
enum class ProfileStatus : std::int32_t {
  Changed = -1,  // the settings it is delivered by are new
  Delivered = 0,
  Failed = 1,
};

// Announces the module: name, identifier and version.
std::string RegistrationDocument();

// One status for each profile, all with the same time (seconds since 1970).
std::string StatusDocument(const std::vector<std::int32_t>& profileIds, ProfileStatus status,
                           std::int64_t time);

}  // namespace tvx
