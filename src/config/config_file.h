// "notify.xml" in the working directory: where the configuration outlives the process.
//
// Threads: one at a time (the service's change mutex sees to that).
#pragma once

#include <string>

#include "config/notify_config.h"

class TiXmlDocument;

namespace tvx {

constexpr const char* kConfigFile = "notify.xml";

enum class LoadOutcome {
  Loaded,
  Missing,
  Rejected,  // there, but unreadable or without its essentials
};

// Reads a file into the configuration; one that is rejected leaves it as it was.
LoadOutcome LoadConfigFile(const std::string& path, NotifyConfig& config);

// Keeps a rejected file beside its place under a name of its own (".rejected" behind it), so that
// the next save does not destroy what an administrator may want to mend.
void KeepRejectedFile(const std::string& path);

// Replaces a file whole or not at all: written beside it, flushed to the disk, renamed. An existing
// file keeps its permissions; a new one is its owner's alone, as it holds passwords. False when
// that failed; the old file is then untouched.
bool SaveConfigFile(const std::string& path, const TiXmlDocument& document);

}  // namespace tvx
