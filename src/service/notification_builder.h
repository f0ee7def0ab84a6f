// Fills a work item from what is known at the time of the event: profile, configuration, document.
//
// Threads: the host's Write paths.
// Locks: called under the intake mutex.
#pragma once

#include <memory>
#include <string>

#include "service/event_document.h"
#include "service/service_state.h"
#include "service/work_item.h"

namespace tvx {

// profile is one of the state's configuration.
std::shared_ptr<NotifyWorkItem> BuildNotification(const ProfileEvent& event,
                                                  const NotifyProfile& profile,
                                                  const ServiceState& state);

// The log line that tells which event set off which profile, at most 500 characters.
std::string ProfileLine(const NotifyWorkItem& item, const ProfileEvent& event,
                        const SystemDirectory& directory);

}  // namespace tvx
