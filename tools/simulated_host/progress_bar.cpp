#include "simulated_host/progress_bar.h"

#include <utility>

namespace tvx::tool {

ProgressBar::ProgressBar(std::FILE* terminal, double speed,
                         std::unique_ptr<TimelinePrinter> printer)
    : area_(terminal), speed_(speed), printer_(std::move(printer)) {}

void ProgressBar::Print(double seconds, const Happening& happening) {
  area_.Erase();
  status_.Follow(seconds, happening);
  printer_->Print(seconds, happening);
}

void ProgressBar::Observe(double seconds, const Crossing& crossing) {
  status_.Follow(crossing);
  printer_->Observe(seconds, crossing);
}

void ProgressBar::Refresh(double seconds) {
  const FeedProgress progress = ProgressOfFiles(status_, seconds, speed_);
  printer_->Refresh(seconds);
  if (progress.files > 0) {
    area_.Show({{Describe(progress), std::nullopt}});
  } else {
    area_.Erase();
  }
}

void ProgressBar::Finish(double seconds) {
  area_.Erase();
  printer_->Finish(seconds);
}

}  // namespace tvx::tool
