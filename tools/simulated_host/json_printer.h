// The timeline for programs: one JSON object a line, each with "time" (seconds) and "kind".
#pragma once

#include <cstdio>

#include "simulated_host/timeline.h"

namespace tvx::tool {

class JsonPrinter : public TimelinePrinter {
 public:
  explicit JsonPrinter(std::FILE* out) : out_(out) {}
  void Print(double seconds, const Happening& happening) override;

 private:
  std::FILE* const out_;  // not owned
};

}  // namespace tvx::tool
