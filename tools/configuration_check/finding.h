// One thing about a configuration that its author should know.
// Threads: plain values, their owner's.
#pragma once

#include <string>
#include <vector>

namespace tvx::tool {

enum class Severity {
  Error,    // something that the file says is not taken as it says
  Warning,  // taken, but surely not meant
};

// Where in the file, from 1; line 0 is the file as a whole.
struct Place {
  int line = 0;
  int column = 0;
};

// Each text is a clause, fit for one line of a terminal once control characters are escaped.
struct Finding {
  Severity severity = Severity::Error;
  Place place;
  std::string code;     // names the kind of finding, for programs
  std::string what;     // of the file is concerned, and what happens to it
  std::string why;      // that is so
  std::string instead;  // what the plug-in does
  std::string mend;     // how to set it right
};

using Findings = std::vector<Finding>;

}  // namespace tvx::tool
