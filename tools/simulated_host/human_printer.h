// The timeline for people: one line for each happening, on standard output.
#pragma once

#include <cstdio>

#include "simulated_host/timeline.h"

namespace tvx::tool {

class HumanPrinter : public TimelinePrinter {
 public:
  explicit HumanPrinter(std::FILE* out) : out_(out) {}
  void Print(double seconds, const Happening& happening) override;

 private:
  std::FILE* const out_;  // not owned
};

}  // namespace tvx::tool
