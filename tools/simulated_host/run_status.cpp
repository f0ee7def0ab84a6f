#include "simulated_host/run_status.h"

#include <algorithm>
#include <cstdio>
#include <variant>

#include "simulated_host/retry_story.h"

namespace tvx::tool {
namespace {

constexpr std::int32_t kStatusFailed = 1;

}  // namespace

void RunStatus::Follow(double seconds, const Happening& happening) {
  if (const auto* status = std::get_if<ProfileStatus>(&happening)) {
    Take(*status);
  } else if (const auto* change = std::get_if<RetryChange>(&happening)) {
    Take(*change);
  } else if (const auto* launch = std::get_if<Launch>(&happening)) {
    programs_[launch->request] = UploadedFile(*launch);
  } else if (const auto* failure = std::get_if<LaunchFailure>(&happening)) {
    programs_.erase(failure->request);
  } else if (const auto* end = std::get_if<ProgramEnd>(&happening)) {
    programs_.erase(end->request);
  } else if (const auto* server = std::get_if<MailServerChange>(&happening)) {
    mailServer_ = server->what;
  } else if (const auto* feed = std::get_if<FeedStart>(&happening)) {
    Take(seconds, *feed);
  } else if (const auto* feedEnd = std::get_if<FeedEnd>(&happening)) {
    streams_[feedEnd->stream].feeding = false;
  } else if (std::holds_alternative<Fault>(happening)) {
    ++faults_;
  }
}

void RunStatus::Take(double seconds, const FeedStart& feed) {
  StreamStatus& stream = streams_[feed.stream];
  stream = {};
  stream.feed = feed;
  stream.begin = seconds;
  stream.feeding = true;
}

void RunStatus::Take(const ProfileStatus& status) {
  if (status.status == kStatusUnknown) return;
  if (status.status == kStatusDelivered) ++delivered_;
  if (status.status == kStatusFailed) ++failed_;
  const auto due = notReported_.find(status.profile);
  if (due != notReported_.end()) notReported_.erase(due);
}

void RunStatus::Take(const RetryChange& change) {
  if (change.what == RetryChange::What::Queued) {
    queue_.insert(change.file);
  } else if (change.what != RetryChange::What::Tried) {
    queue_.erase(change.file);
  }
}

void RunStatus::Follow(const Crossing& crossing) {
  if (const auto* frame = std::get_if<FrameWrite>(&crossing)) {
    StreamStatus& stream = streams_[frame->stream];
    ++stream.offered;
    if (frame->taken) ++stream.taken;
  } else if (const auto* back = std::get_if<FrameReturn>(&crossing)) {
    ++streams_[back->stream].returned;
  } else if (const auto* asked = std::get_if<NotificationsAsked>(&crossing)) {
    asked_ += static_cast<int>(asked->profiles.size());
    notReported_.insert(asked->profiles.begin(), asked->profiles.end());
  }
}

std::uint64_t RunStatus::Held() const {
  std::uint64_t held = 0;
  for (const auto& [id, stream] : streams_) held += stream.Held();
  return held;
}

std::size_t RunStatus::Transfers() const {
  return static_cast<std::size_t>(std::count_if(programs_.begin(), programs_.end(),
                                                [](const auto& it) { return !it.second.empty(); }));
}

std::size_t RunStatus::Retrying() const {
  return static_cast<std::size_t>(
      std::count_if(programs_.begin(), programs_.end(),
                    [this](const auto& it) { return queue_.count(it.second) != 0; }));
}

FeedProgress ProgressOfFiles(const RunStatus& status, double seconds, double speed) {
  FeedProgress progress;
  bool endIsKnown = true;
  for (const auto& [id, stream] : status.Streams()) {
    if (!stream.feeding || !stream.feed.isFile) continue;
    ++progress.files;
    progress.fed += stream.offered;
    const double elapsed = (seconds - stream.begin) / speed;
    // The first frame is fed when the time begins.
    const double rate =
        elapsed > 0 && stream.offered > 1 ? static_cast<double>(stream.offered - 1) / elapsed : 0;
    progress.rate += rate;
    const auto expected = static_cast<std::uint64_t>(stream.feed.expected);
    endIsKnown = endIsKnown && expected > 0;
    progress.expected += std::max(expected, stream.offered);
    if (rate > 0 && expected > stream.offered) {
      const double left = static_cast<double>(expected - stream.offered) / rate;
      progress.secondsLeft = std::max(progress.secondsLeft, left);
    }
  }
  if (!endIsKnown) progress.expected = 0;
  return progress;
}

std::string Describe(const FeedProgress& progress) {
  constexpr std::size_t kBarLength = 24;
  char text[160];
  const auto fed = static_cast<unsigned long long>(progress.fed);
  const char* files = progress.files == 1 ? "file" : "files";
  if (progress.expected == 0) {
    std::snprintf(text, sizeof(text), "feeding %d %s: %llu frames, %.1f/s", progress.files, files,
                  fed, progress.rate);
    return text;
  }
  const double part = static_cast<double>(progress.fed) / static_cast<double>(progress.expected);
  const auto done = static_cast<std::size_t>(part * kBarLength);
  const std::string bar = std::string(done, '#') + std::string(kBarLength - done, '-');
  std::snprintf(
      text, sizeof(text), "[%s] %3.0f %%  feeding %d %s: %llu of %llu frames, %.1f/s, %.0f s left",
      bar.c_str(), part * 100, progress.files, files, fed,
      static_cast<unsigned long long>(progress.expected), progress.rate, progress.secondsLeft);
  return text;
}

}  // namespace tvx::tool
