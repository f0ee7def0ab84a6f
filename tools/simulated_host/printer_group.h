// Several printers of one timeline.
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "simulated_host/timeline.h"

namespace tvx::tool {

class PrinterGroup : public TimelinePrinter {
 public:
  void Add(std::unique_ptr<TimelinePrinter> printer) { printers_.push_back(std::move(printer)); }

  void Print(double seconds, const Happening& happening) override {
    for (const auto& printer : printers_) printer->Print(seconds, happening);
  }
  void Observe(double seconds, const Crossing& crossing) override {
    for (const auto& printer : printers_) printer->Observe(seconds, crossing);
  }
  void Refresh(double seconds) override {
    for (const auto& printer : printers_) printer->Refresh(seconds);
  }
  void Finish(double seconds) override {
    for (const auto& printer : printers_) printer->Finish(seconds);
  }

 private:
  std::vector<std::unique_ptr<TimelinePrinter>> printers_;
};

}  // namespace tvx::tool
