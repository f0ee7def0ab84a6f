// What a notification's message says: the profile's texts with the facts of the event and a link.
// Threads: any; the item is its owner's. Locks: none.
#pragma once

#include <string>

#include "config/templates.h"
#include "host/host_records.h"
#include "mail/composition.h"
#include "service/work_item.h"
#include "web/web_link.h"

namespace tvx {

// The message of the item's profile, its placeholders not yet replaced.
MessageContent ContentOf(const NotifyWorkItem& item);

// Replaces the placeholders in the texts of that message. webLink is asked as ExpandTemplates says.
void ExpandTexts(const NotifyWorkItem& item, const WebLinkSource& webLink, std::string& subject,
                 std::string& body, const TemplateObservers& observers = {});

// What "{weblink}" becomes: the link into the web client for the event's cameras, or a bracketed
// notice. Asks the web server, so it may take as long as an HTTP exchange may; fetch asks it
// otherwise than by HttpGet. Never throws but for memory exhaustion.
std::string WebLinkFor(const NotifyWorkItem& item, HostServiceEntry host,
                       const WebFetch& fetch = {});

}  // namespace tvx
