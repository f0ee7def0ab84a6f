// Delivery over a host that plays the transfer program, and a disk that fills as a test says.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "mail/notify_file_stream.h"
#include "mail/notify_helper.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace tvx::test {

class ScriptedDisk : public NotifyFileStreamImpl {
 public:
  ScriptedDisk() : NotifyFileStreamImpl(&FakeHost::Entry) {}

  // What successive queries of the free space answer; the last one stays.
  std::deque<std::uint64_t> free = {std::uint64_t{1} << 40};
  std::set<std::string> stuck;  // paths that cannot be removed

  std::uint64_t space(const std::string&) override {
    const std::uint64_t answer = free.front();
    if (free.size() > 1) free.pop_front();
    return answer;
  }
  bool remove(const std::string& path) override {
    return stuck.count(path) == 0 && NotifyFileStreamImpl::remove(path);
  }
};

class MailTest : public testing::Test, public IStatusReceiver {
 protected:
  static constexpr int kNotLaunched = -1;

  MailTest() {
    disk_.createDirectory("data");
    SetTickClock([this] { return now_; });
    channel_.Register(kModuleId, [](void* chunk, std::uint32_t size) {
      HostRequest request{
          kHostRequestSize,  1, size, chunk, kModuleId, 0, HostCommand::ChannelMessage,
          PayloadKind::None, 0, 0,    0,     {}};
      HostReply reply{12, 1, 0};
      return FakeHost::Entry(&request, &reply) == 0;
    });
    programs_.OnRun([this](const Launch&) {
      const int exit = exits_.empty() ? usualExit_ : exits_.front();
      if (!exits_.empty()) exits_.pop_front();
      return ProgramEnd{static_cast<std::uint32_t>(exit) << 8, output_, exit == kNotLaunched};
    });
  }
  ~MailTest() override { SetTickClock(MonotonicTick); }

  void ReportStatus(std::int32_t profileId, ProfileStatus status) override {
    reports_.emplace_back(profileId, status);
  }

  // Rows of level and text.
  void ExpectLog(const std::string& table) const {
    std::vector<LogLine> lines;
    for (const auto& row : Rows(table)) {
      lines.push_back({static_cast<std::uint32_t>(std::stoul(row[0])), row[1]});
    }
    EXPECT_EQ(host_.Log(), lines);
  }

  // Exit codes of the launches to come, kNotLaunched among them, then the usual one.
  std::deque<int> exits_;
  int usualExit_ = 0;
  std::string output_;
  std::vector<std::pair<std::int32_t, ProfileStatus>> reports_;
  std::uint32_t now_ = 0;

  TemporaryFolder folder_;
  FakeHost host_;
  ScriptedDisk disk_;
  ProcessChannel channel_;
  FakePrograms programs_{host_, [this](const std::string& chunk) {
                           channel_.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
                         }};
  NotifyHelper helper_{*this, channel_, &FakeHost::Entry};
};

}  // namespace tvx::test
