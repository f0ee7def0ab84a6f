// What the host's full system document settles for the notification configuration.
//
// Threads: any; the document must not change meanwhile.
// Errors:  malformed entries are skipped; only memory exhaustion throws.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class TiXmlElement;

namespace tvx {

// The event action identifiers of the root's "Events" with their pre-trigger seconds, in document
// order; of an identifier given twice the later one counts. Events that lack either are skipped.
std::vector<std::pair<std::int32_t, std::int32_t>> ReadPreAlarms(const TiXmlElement& root);

// Whether the root's "Users" switch the second-reviewer mode on or off; nothing when they do not
// say. Of several the first counts.
std::optional<bool> ReadSecondReviewer(const TiXmlElement& root);

}  // namespace tvx
