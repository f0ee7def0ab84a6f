// Log lines that are found under a lock and written after it: the host's log may be slow, and the
// host may hold a lock of its own while it waits for ours.
//
// Threads: one at a time; a local of the operation that logs.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "log/host_log.h"

namespace tvx {

class DeferredLog {
 public:
  // Formats as HostLog does and keeps the line.
  [[gnu::format(printf, 3, 4)]] void Add(LogLevel level, const char* format, ...);

  // Keeps a line that needs no formatting.
  void AddText(LogLevel level, std::string text) { lines_.push_back({level, std::move(text)}); }

  // Writes the lines in the order in which they were added, and forgets them.
  void Write(HostServiceEntry host);

 private:
  struct Line {
    LogLevel level;
    std::string text;
  };
  std::vector<Line> lines_;
};

}  // namespace tvx
