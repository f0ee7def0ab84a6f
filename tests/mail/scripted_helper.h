// A helper whose transfers are scripted, and a disk whose free space and failures are.
#pragma once

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "mail/notify_file_stream.h"
#include "mail/notify_helper.h"
#include "support/fake_host.h"

namespace tvx::test {

class IgnoredStatus : public IStatusReceiver {
 public:
  void ReportStatus(std::int32_t, ProfileStatus) override {}
};

class ScriptedHelper : public NotifyHelper {
 public:
  ScriptedHelper() : NotifyHelper(owner, channel, &FakeHost::Entry) {}

  // Exit values to come, one a transfer; kNotLaunched makes one fail to start. 0 when used up.
  static constexpr std::int32_t kNotLaunched = -1;
  std::deque<std::int32_t> exits;
  std::vector<std::string> output;  // of every transfer

  struct Transfer {
    std::vector<std::string> arguments;
    std::string input;
  };
  std::vector<Transfer> transfers;
  std::vector<std::pair<std::int32_t, ProfileStatus>> reports;

  void ReportStatus(std::int32_t profileId, ProfileStatus status) override {
    reports.emplace_back(profileId, status);
  }

  bool RunTransfer(const std::vector<std::string>& arguments, const std::string& input,
                   std::int32_t& exitValue, std::vector<std::string>& lines) override {
    transfers.push_back({arguments, input});
    exitValue = 0;
    if (!exits.empty()) {
      exitValue = exits.front();
      exits.pop_front();
    }
    lines = output;
    return exitValue != kNotLaunched;
  }

 private:
  static inline IgnoredStatus owner;
  static inline ProcessChannel channel;
};

class ScriptedDisk : public NotifyFileStreamImpl {
 public:
  ScriptedDisk() : NotifyFileStreamImpl(&FakeHost::Entry) {}

  // What successive queries of the free space answer; the last one stays.
  std::deque<std::uint64_t> free = {std::uint64_t{1} << 40};
  std::set<std::string> stuck;  // paths that cannot be removed
  std::vector<std::string> removed;

  std::uint64_t space(const std::string&) override {
    const std::uint64_t answer = free.front();
    if (free.size() > 1) free.pop_front();
    return answer;
  }
  bool remove(const std::string& path) override {
    if (stuck.count(path) != 0) return false;
    removed.push_back(path);
    return NotifyFileStreamImpl::remove(path);
  }
};

}  // namespace tvx::test
