// The outcome of a soak run, for programs and for people.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "soak/soak.h"

namespace tvx::soak {

nlohmann::ordered_json SummaryJson(const SoakReport& report);

std::string SummaryText(const SoakReport& report);

}  // namespace tvx::soak
