// The state under the intake mutex, without a service around it: documents and frames go in, what
// is dispatched and logged comes out. Time is driven.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/notify_reader.h"
#include "config/xml_document.h"
#include "service/config_change.h"
#include "service/event_intake.h"
#include "service/service_state.h"
#include "support/fake_host.h"

namespace tvx::test {

class IntakeFixture : public testing::Test {
 protected:
  IntakeFixture() : state_(&FakeHost::Entry) {
    SetTickClock([this] { return tick_; });
    SetWallClock([this] { return wall_; });
  }
  ~IntakeFixture() override {
    SetTickClock(MonotonicTick);
    SetWallClock({});
  }

  // Changes the configuration, as an update would.
  void Configure(const std::function<void(NotifyConfig&)>& change) {
    NotifyConfig config = *state_.config;
    change(config);
    ReplaceConfig(std::move(config), state_);
  }

  // Changes one profile.
  void Configure(std::int32_t id, const std::function<void(NotifyProfile&)>& change) {
    Configure([&](NotifyConfig& config) { change(config.profiles.at(id)); });
  }

  // One profile more.
  void AddProfile(
      std::int32_t id, std::int32_t edge = event_edge::kStart,
      const std::function<void(NotifyProfile&)>& change = [](NotifyProfile&) {}) {
    NotifyProfile profile;
    profile.ID = id;
    profile.description = "Profile " + std::to_string(id);
    profile.from = "f@x";
    profile.to = {"t@x"};
    profile.subject = "s";
    profile.body = "b";
    profile.EventEdge = edge;
    change(profile);
    Configure([&](NotifyConfig& config) { config.profiles[id] = profile; });
  }

  // A full system document with these elements in its root.
  void TakeSystem(const std::string& elements) {
    const std::string text = "<tDVR Delta='0'>" + elements + "</tDVR>";
    const ParsedDocument parsed = ParseDocument(text.data(), text.size());
    ASSERT_NE(parsed.Root(), nullptr);
    IntakeOutcome outcome;
    saveDue_ = ApplySystemDocument(ReadSystemDocument(*parsed.Root()), state_, outcome);
    Conclude(outcome);
  }

  // An event document with these profile entries.
  void Send(const std::string& entries, const std::string& elements = "") {
    const std::string text = "<tDVR>" + elements + "<Notify ID='786432'><Profiles>" + entries +
                             "</Profiles></Notify></tDVR>";
    const ParsedDocument parsed = ParseDocument(text.data(), text.size());
    ASSERT_NE(parsed.Root(), nullptr) << text;
    IntakeOutcome outcome;
    ReceiveEvents(ReadEventDocument(*parsed.Root()), state_, outcome);
    Conclude(outcome);
  }

  static std::string Entry(std::int32_t profile, bool start, const std::string& attributes = "",
                           const std::string& sources = "<EventSource ID='66049' Type='2'/>") {
    return "<Profile ID='" + std::to_string(profile) + "' Alarm='" + (start ? "1" : "0") +
           "' Action='7' Time='1500000000' Milliseconds='250' " + attributes + ">" + sources +
           "</Profile>";
  }

  void Tick() {
    IntakeOutcome outcome;
    state_.parked.ReleaseDue(wall_);
    DispatchReady(state_, outcome);
    Conclude(outcome);
  }

  // A frame of one byte, whose address is its handle. True when it was taken.
  bool Frame(std::int32_t streamId, bool isKey = true) {
    handles_.push_back(std::make_unique<char>('x'));
    IntakeOutcome outcome;
    const IncomingFrame frame{streamId, isKey ? kKeyFrame : 0u, 0, handles_.back().get(), 1};
    const bool taken = state_.buffers.TakeFrame(frame, outcome.dropped);
    if (taken) DispatchReady(state_, outcome);
    Conclude(outcome);
    return taken;
  }

  void Conclude(IntakeOutcome& outcome) {
    outcome.log.Write(&FakeHost::Entry);
    for (auto& item : outcome.dispatched) dispatched_.push_back(std::move(item));
  }

  // The profiles of what was dispatched since the last call.
  std::vector<std::int32_t> Dispatched() {
    std::vector<std::int32_t> profiles;
    for (const auto& item : dispatched_) profiles.push_back(item->profile->ID);
    last_ = dispatched_.empty() ? nullptr : dispatched_.back();
    dispatched_.clear();
    return profiles;
  }

  using Ids = std::vector<std::int32_t>;
  std::vector<std::unique_ptr<char>> handles_;
  FakeHost host_;
  std::uint32_t tick_ = 1'000'000;
  std::int64_t wall_ = 1'500'000'000;
  ServiceState state_;
  std::vector<WorkQueue::Item> dispatched_;
  WorkQueue::Item last_;  // the last item that Dispatched told of
  bool saveDue_ = false;
};

// Two cameras: inputs 66049 (number 2, index 1) with a coded stream and 66305 (number 3, index 1).
inline const char* const kTwoCameras =
    "<Devices ID='65536'>"
    "<Device Number='2' Name='North'><Context Number='0'><Video><Input Number='1' Name='Gate'/>"
    "</Video><Codec><Encoder><Channel Number='1' Width='640' Height='480' Standard='5'/></Encoder>"
    "</Codec></Context></Device>"
    "<Device Number='3' Name='South'><Context Number='0'><Video><Input Number='1' Name='Yard'/>"
    "</Video><Codec><Encoder><Channel Number='1' Width='640' Height='480' Standard='5'/></Encoder>"
    "</Codec></Context></Device></Devices>"
    "<Events><Event ID='7' PreAlarm='5'><Devices ID='65536'><Device Number='2'><Video>"
    "<Input Number='1'/></Video></Device></Devices><Action><Notify/></Action></Event>"
    "<Event ID='8'><Devices ID='65536'><Device Number='3'><Video><Input Number='1'/></Video>"
    "</Device></Devices><Action><Notify/></Action></Event>"
    "<SourceGroup ID='3' Name='Perimeter'><Entry><Devices ID='65536'><Device Number='2'><Video>"
    "<Input Number='1'/></Video></Device></Devices></Entry><Entry><Devices ID='65536'>"
    "<Device Number='3'><Video><Input Number='1'/></Video></Device></Devices></Entry>"
    "</SourceGroup></Events>";
constexpr std::int32_t kGate = 66049;
constexpr std::int32_t kYard = 66305;

}  // namespace tvx::test
