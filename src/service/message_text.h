// What a notification's message says: the profile's texts with the facts of the event.
// Threads: any; the item is its owner's. Locks: none.
#pragma once

#include <string>

#include "config/templates.h"
#include "mail/composition.h"
#include "service/work_item.h"

namespace tvx {

// The message of the item's profile, its placeholders not yet replaced.
MessageContent ContentOf(const NotifyWorkItem& item);

// Replaces the placeholders in the texts of that message. webLink is asked as ExpandTemplates says.
void ExpandTexts(const NotifyWorkItem& item, const WebLinkSource& webLink, std::string& subject,
                 std::string& body, const TemplateObservers& observers = {});

}  // namespace tvx
