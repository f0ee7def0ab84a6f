// Documents that the plug-in sends to the host, reduced to what the timeline shows.
#pragma once

#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "simulated_host/host_event.h"

namespace tvx::tool {

// The document is not one that the host can use; the text says why.
class DocumentError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws DocumentError.
std::vector<ProfileReport> ReadStatusDocument(const std::string& text);
std::variant<Configuration, ModuleRegistration> ReadConfigDocument(const std::string& text);

// The profile identifiers an event document asks a notification for: as many statuses can be
// expected. Empty for whatever is no event document.
std::vector<std::int32_t> ProfilesOfEvent(const std::string& text);

}  // namespace tvx::tool
