// The host, inside the test: an entry that remembers what the plug-in sent.
//
// One at a time: the entry is a plain function, as in the real host, so it finds the current
// FakeHost through a process-wide pointer. Safe from any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/host_records.h"

namespace tvx::test {

struct LogLine {
  std::uint32_t level;
  std::string text;
  friend bool operator==(const LogLine& a, const LogLine& b) {
    return a.level == b.level && a.text == b.text;
  }
};
void PrintTo(const LogLine& line, std::ostream* out);

struct SentDocument {
  HostCommand command;
  std::string text;
};

struct SentChunk {
  std::uint32_t request;
  std::uint32_t kind;
  std::uint32_t word;
  std::string payload;
};

class FakeHost {
 public:
  FakeHost();
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // What the plug-in gets in Load.
  static int Entry(HostRequest* request, HostReply* reply);

  std::vector<LogLine> Log() const;
  std::vector<std::string> LogTexts() const;
  // How many log lines have exactly this text.
  int Logged(const std::string& text) const;
  void ClearLog();

  std::vector<SentDocument> Documents() const;
  std::vector<const void*> ReleasedFrames() const;
  int WatchdogEvents() const;
  std::vector<SentChunk> Chunks() const;

  // Requests that broke the form every record must have (size, version, module, zeroed rest).
  std::vector<std::string> MalformedRequests() const;

  // Called for every channel chunk, without any lock of this object; may start the answer on
  // another thread.
  void OnChunk(std::function<void(const SentChunk&)> handler);

  // What the entry answers for one command: its return value and the reply's status.
  void Answer(HostCommand command, int returned, std::uint32_t status);

  // Waits until the condition holds, at most ten seconds; false when it did not come true.
  bool WaitFor(const std::function<bool()>& condition) const;

 private:
  int Take(HostRequest& request, HostReply& reply);
  void CheckForm(const HostRequest& request);

  struct Reaction {
    HostCommand command;
    int returned;
    std::uint32_t status;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<LogLine> log_;
  std::vector<SentDocument> documents_;
  std::vector<const void*> released_;
  std::vector<SentChunk> chunks_;
  std::vector<std::string> malformed_;
  std::vector<Reaction> reactions_;
  std::function<void(const SentChunk&)> onChunk_;
  int watchdogEvents_ = 0;
};

// A report of the host as IOCTL 4 carries it.
std::string MakeReport(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
                       const std::string& payload = {});

}  // namespace tvx::test
