// The state under the intake mutex, without a service around it: documents and frames go in, what
// is dispatched and logged comes out. Time is driven.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/xml_document.h"
#include "service/config_change.h"
#include "service/event_intake.h"
#include "service/service_state.h"
#include "service/waiting_limits.h"
#include "support/documents.h"
#include "support/fake_host.h"

namespace tvx::test {

class IntakeFixture : public testing::Test {
 protected:
  IntakeFixture() {
    SetTickClock([this] { return tick_; });
    SetWallClock([this] { return wall_; });
  }
  ~IntakeFixture() override {
    dispatched_.clear();
    last_.reset();
    state_.reset();
    SetTickClock(MonotonicTick);
    SetWallClock({});
    EXPECT_EQ(host_.FramesOut(), 0u);
    EXPECT_EQ(host_.Problems(), std::vector<std::string>{});
  }

  // Runs an operation of the service, concludes it as the service does, and gives its result.
  template <typename Operation>
  auto Run(Operation operation) {
    IntakeOutcome outcome;
    const std::uint32_t released = host_.FramesReleased();
    const auto result = operation(*state_, outcome);
    EXPECT_EQ(host_.FramesReleased(), released) << "a frame went back under the lock";
    outcome.log.Write(&FakeHost::Entry);
    for (auto& item : outcome.dispatched) dispatched_.push_back(std::move(item));
    return result;
  }

  static ParsedDocument Parse(const std::string& text) {
    ParsedDocument parsed = ParseDocument(text.data(), text.size());
    if (parsed.Root() == nullptr) throw std::invalid_argument(text);
    return parsed;
  }

  // A change of the configuration; gives the profiles that it concerns.
  std::optional<std::vector<std::int32_t>> Update(const std::string& notify) {
    NotifyChange change = ReadNotifyChange(*Parse(Change(notify)).Root(), state_->config);
    const auto affected = change.affected;
    const bool isAccepted = change.isAccepted;
    EXPECT_TRUE(TakeNotifyChange(std::move(change), *state_));
    return isAccepted ? std::optional(affected) : std::nullopt;
  }

  // Replaces the profiles.
  void Configure(const std::string& profiles, const std::string& attributes = "") {
    ASSERT_TRUE(Update(Notify(profiles, attributes)));
  }

  // A full system document with these elements in its root. True when it makes a save necessary.
  bool TakeSystem(const std::string& elements) {
    const ParsedDocument parsed = Parse(SystemDocument(elements));
    return Run([&](ServiceState& state, IntakeOutcome& outcome) {
      return ApplySystemDocument(ReadSystemDocument(*parsed.Root()), state, outcome);
    });
  }

  // An event document with these profile entries. The profiles that it dispatches.
  std::vector<std::int32_t> Send(const std::string& entries, const std::string& elements = "") {
    const tvx::EventDocument document =
        ReadEventDocument(*Parse(EventDocument(entries, elements)).Root());
    Run([&](ServiceState& state, IntakeOutcome& outcome) {
      ReceiveEvents(document, state, outcome);
      return 0;
    });
    return Dispatched();
  }

  // A tick of the host this many seconds later.
  std::vector<std::int32_t> Tick(std::int64_t seconds) {
    wall_ += seconds;
    Run([&](ServiceState& state, IntakeOutcome& outcome) {
      state.parked.ReleaseDue(wall_);
      DispatchReady(state, outcome);
      return 0;
    });
    return Dispatched();
  }

  // True when the frame was taken.
  bool Frame(std::int32_t streamId, bool isKey = true, std::uint32_t length = 1) {
    const void* const handle = host_.Lend("x");
    const bool taken = Run([&](ServiceState& state, IntakeOutcome& outcome) {
      const bool isTaken = state.buffers.TakeFrame(
          {streamId, isKey ? kKeyFrame : 0u, 0, handle, length}, outcome.dropped);
      LimitWaitingVideo(state, outcome);
      if (isTaken) DispatchReady(state, outcome);
      return isTaken;
    });
    if (!taken) host_.TakeBack(handle);
    return taken;
  }

  // The profiles of what was dispatched since the last call.
  std::vector<std::int32_t> Dispatched() {
    std::vector<std::int32_t> profiles;
    for (const auto& item : dispatched_) profiles.push_back(item->profile->ID);
    if (!dispatched_.empty()) last_ = dispatched_.back();
    dispatched_.clear();
    return profiles;
  }

  using Ids = std::vector<std::int32_t>;
  FakeHost host_;
  std::uint32_t tick_ = 1'000'000;
  std::int64_t wall_ = 1'500'000'000;
  std::unique_ptr<ServiceState> state_ = std::make_unique<ServiceState>(&FakeHost::Entry);
  std::vector<WorkQueue::Item> dispatched_;
  WorkQueue::Item last_;  // the last item that was dispatched
};

// Two cameras, Source(2) "Gate" and Source(3) "Yard", which are also the source group 3.
inline std::string TwoCameras() {
  const auto entry = [](const char* device) {
    return "<Entry>" +
           Devices("<Device Number='" + std::string(device) +
                   "'><Video><Input Number='1'/></Video></Device>") +
           "</Entry>";
  };
  return Devices(Camera(2, "Gate") + Camera(3, "Yard")) + "<Events>" + NotifyingEvent(7, 2) +
         NotifyingEvent(8, 3) + "<SourceGroup ID='3' Name='Perimeter'>" + entry("2") + entry("3") +
         "</SourceGroup></Events>";
}

}  // namespace tvx::test
