// The source that an event of the host's configuration, or an entry of a source group, is about.
//
// Threads: any; the document must not change meanwhile.
// Errors:  an element that names no usable source has the key 0.
#pragma once

#include "config/event_reference.h"
#include "config/source_id.h"

class TiXmlElement;

namespace tvx {

// The key of the video source that the element names: by "Devices" (a video input, else an encoder
// channel), or without those by "Analytics". 0 when it names neither, or has "Devices" without a
// video source. What stands below "Action" is about what is done, and is never looked at.
SourceId EventSourceKey(const TiXmlElement& element);

// The same for an entry of a source group, as the events of that source would name it: of type
// Analytic when the key is that of its "Analytics", else of type Video Loss.
EventReference GroupMember(const TiXmlElement& entry);

}  // namespace tvx
