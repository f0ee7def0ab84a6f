// Why a mail failed and what helps, from one table: what the screen says, programs read, and
// docs/delivery.md prints.
// Threads: any; nothing is shared.
#pragma once

#include <string>

namespace tvx::tool {

// A row of the table: what it is for, and a sentence each of cause and cure.
struct FailureCause {
  // curl's exit value; "start" when it could not be started, "signal" when one ended it, "log" for a
  // line that the plug-in logs; empty: any exit value.
  const char* exit;
  const char* stage;  // of the transfer, where it ended; empty: any
  // How the server's reply begins, "x" for any digit; or, unless it begins with a digit, a part of
  // the reply, of the system's error, or of the line. Empty: any.
  const char* reply;
  const char* cause;
  const char* cure;
};

// The first row that fits. There is always one.
const FailureCause& CauseOf(const std::string& exit, const std::string& stage,
                            const std::string& reply);

// The row for a line of the plug-in's log; null when the line tells of no failure that is to be
// explained.
const FailureCause* CauseOfLogLine(const std::string& line);

}  // namespace tvx::tool
