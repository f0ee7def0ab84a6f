// A test mail, as it goes out: each server with the stages of the transfer and the replies to them.
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "simulated_host/timeline.h"
#include "text/palette.h"

namespace tvx::tool {

class TestPrinter : public TimelinePrinter {
 public:
  // The file is not owned. servers: their descriptions, in the order of the configuration. verbose:
  // with the dialogue, and all that the plug-in logs.
  TestPrinter(std::FILE* out, std::vector<std::string> servers, bool verbose);

  void Print(double seconds, const HostEvent& event) override;

 private:
  template <typename Other>
  void Show(const Other& /*not shown*/) {}
  void Show(const Launch& launch);
  void Show(const LaunchFailure& failure);
  void Show(const TransferEnd& end);
  void Show(const Explanation& explanation) { ShowCause(*explanation.cause); }
  void Show(const LogLine& line);
  void Show(const Fault& fault);
  void ShowCause(const FailureCause& cause);
  void Line(Colour colour, const std::string& head, const std::string& text);

  std::FILE* const out_;
  const std::vector<std::string> servers_;
  const bool verbose_;
  const Palette palette_;
  std::size_t attempts_ = 0;
};

}  // namespace tvx::tool
