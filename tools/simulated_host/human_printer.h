// The timeline for people: one line for each happening, on standard output.
#pragma once

#include <cstdio>
#include <string>

#include "simulated_host/timeline.h"

namespace tvx::tool {

// A happening as people read it, without control characters.
struct HumanLine {
  std::string label;  // its kind, one word
  std::string text;
};
HumanLine DescribeForPeople(const Happening& happening);

class HumanPrinter : public TimelinePrinter {
 public:
  explicit HumanPrinter(std::FILE* out) : out_(out) {}
  void Print(double seconds, const Happening& happening) override;

 private:
  std::FILE* const out_;  // not owned
};

}  // namespace tvx::tool
