// "notify.xml" in the working directory: where the configuration outlives the process.
//
// Threads: one at a time; the service sees to that.
#pragma once

#include <tinyxml.h>

#include <memory>
#include <string>

#include "config/notify_config.h"
#include "config/xml_document.h"

namespace tvx {

class NotifyReadObserver;

constexpr const char* kConfigFile = "notify.xml";

enum class LoadOutcome {
  Loaded,
  Missing,
  Rejected,  // read, but no XML, too large, or without its essentials; or no regular file
  Failed,    // there, but the system would not give it: what it holds is not known
};

// The file's document, unread yet. The outcome is Loaded when there is one.
struct ConfigDocument {
  LoadOutcome outcome = LoadOutcome::Missing;
  std::unique_ptr<TiXmlDocument> document;
  // Why the file is rejected or could not be read. Without a text when that is the markup and
  // positions are not tracked.
  ParseFault fault;
};
ConfigDocument ReadConfigFile(const std::string& path, Positions positions = Positions::None);

// Takes a file's document into the configuration. One that is rejected leaves it as it was. Neither
// the name of the root nor its attributes matter.
LoadOutcome TakeConfigDocument(const ConfigDocument& file, NotifyConfig& config);
LoadOutcome TakeConfigDocument(const ConfigDocument& file, NotifyConfig& config,
                               NotifyReadObserver& observer);

// Keeps a rejected file beside its place under a name of its own (".rejected" behind it), so that
// the next save does not destroy what an administrator may want to mend. False when that failed.
bool KeepRejectedFile(const std::string& path);

// Replaces a file whole or not at all: written beside it, flushed to the disk, renamed. Where the
// folder or the file's owner does not allow that, it is written in place. A link stays a link, and
// an existing file keeps its owner and permissions; a new one is its owner's alone, as it holds
// passwords. 0, or the errno of what failed; the old file is then untouched, unless that was the
// writing in place.
int SaveConfigFile(const std::string& path, const std::string& text);

// Why the next start would refuse this text as a file; null when it would not.
const char* WhyNotReadAgain(std::string text);

}  // namespace tvx
