// The spool directory: where message files and attachments lie while somebody will send them.
#pragma once

#include <string>

#include "host/host_records.h"

namespace tvx {

constexpr const char* kDataFolder = "data";
constexpr const char* kMessagePrefix = "notify-mail-";

// The directory's absolute path, found at the first call and kept, since the host may change its
// working directory later; relative when it cannot be made absolute. The worker's thread.
const std::string& DataDirectory();

// Gives back what the path takes, before the library goes; the next call finds it anew. While no
// worker runs.
void ForgetDataDirectory() noexcept;

// Removes the message files of an earlier life, and links to files that have such a name. They are
// not sent again: nobody knows any more how old they are. Other files and folders stay, and all that
// a linked directory holds. A directory that does not exist is nothing to report; any other failure
// ends the sweep with a log line.
void ClearSpool(HostServiceEntry host);

}  // namespace tvx
