// The configuration and the profile that a command line names.
//
// Threads: any; nothing is shared.
// Errors:  std::runtime_error, with what there is to choose from.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "config/notify_config.h"

namespace tvx::tool {

// As the plug-in reads the file.
std::shared_ptr<const NotifyConfig> ReadConfiguration(const std::string& path);

// The profile of this ID, or the only one. It is the configuration's. path is for the error.
const NotifyProfile& ChooseProfile(const NotifyConfig& config, std::optional<std::int32_t> id,
                                   const std::string& path);

}  // namespace tvx::tool
