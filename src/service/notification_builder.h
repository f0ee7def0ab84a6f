// Fills a work item from what is known at the time of the event: profile, configuration, document.
//
// Locks: called under the intake mutex.
#pragma once

#include <memory>
#include <string>

#include "service/event_document.h"
#include "service/service_state.h"
#include "service/work_item.h"

namespace tvx {

std::shared_ptr<NotifyWorkItem> BuildNotification(const ProfileEvent& event,
                                                  const NotifyProfile& profile,
                                                  const ServiceState& state);

// Makes the notification the message of somebody who tries the profile out: it says so, and has no
// source.
void MakeTestMessage(const ProfileEvent& event, NotifyWorkItem& item);

// The log line that tells which event set off which profile, at most 500 characters.
std::string ProfileLine(const NotifyWorkItem& item, const ProfileEvent& event,
                        const SystemDirectory& directory, const NotifyConfig& config);

}  // namespace tvx
