// Changes of the configuration that come from the host's documents.
//
// Threads: the host's. Locks: reading takes none; taking over is done under the intake mutex, and
//          what it makes necessary outside (saving, publishing, reporting) is returned or left in
//          the outcome.
// Errors:  what is malformed is ignored without a word, and the previous configuration stays.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "config/event_action_table.h"
#include "config/system_directory.h"
#include "service/service_state.h"

class TiXmlElement;

namespace tvx {

// What a full system document says, read before any lock is taken.
struct SystemDocument {
  std::shared_ptr<const SystemDirectory> directory;
  std::optional<EventActionTable> eventActions;
  std::optional<bool> secondReviewer;
  std::vector<std::pair<std::int32_t, std::int32_t>> preAlarms;
};
SystemDocument ReadSystemDocument(const TiXmlElement& root);

// Takes a full system document over, all of it or (when memory runs out) nothing. True when the
// configuration has to be saved.
bool ApplySystemDocument(SystemDocument document, ServiceState& state, IntakeOutcome& outcome);

// What the "Notify" block of a document makes of a configuration, read before any lock is taken.
struct NotifyChange {
  std::shared_ptr<const NotifyConfig> before;
  NotifyConfig config;
  bool isAccepted = false;  // else the block was rejected, and brought delivery settings at most
  std::vector<std::int32_t> affected;  // profiles that may be delivered otherwise than before
};
NotifyChange ReadNotifyChange(const TiXmlElement& root,
                              const std::shared_ptr<const NotifyConfig>& before);

// Takes the change over. False when the configuration is no longer the one that was changed.
bool TakeNotifyChange(NotifyChange change, ServiceState& state);

// Makes this the configuration, for the intake, the worker and the frame history.
void ReplaceConfig(NotifyConfig config, ServiceState& state);

}  // namespace tvx
