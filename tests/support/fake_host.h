// The host, inside the test: an entry that remembers what the plug-in sent, and the books of the
// frame buffers that it lent.
//
// One at a time: the entry is a plain function, as in the real host, so it finds the current
// FakeHost through a process-wide pointer. Safe from any thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
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

// Notes where this thread is for the scope, for those who count what the plug-in does and what its
// host does. Whoever wants to know installs note, which is given the new side (true: inside the
// plug-in) and returns the old one.
class Crossing {
 public:
  explicit Crossing(bool isInPlugin) : before_(note(isInPlugin)) {}
  ~Crossing() { note(before_); }
  Crossing(const Crossing&) = delete;
  Crossing& operator=(const Crossing&) = delete;

  static bool (*note)(bool isInPlugin);

 private:
  const bool before_;
};

class FakeHost {
 public:
  // CountsOnly: nothing is kept and no lock is taken, for measurements.
  enum class Memory { Full, CountsOnly };

  explicit FakeHost(Memory memory = Memory::Full);
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // What the plug-in gets in Load.
  static int Entry(HostRequest* request, HostReply* reply);

  std::vector<LogLine> Log() const;
  // How many log lines have exactly this text.
  int Logged(const std::string& text) const;
  void ClearLog();

  std::vector<SentDocument> Documents() const;
  // The notification results reported so far, as "ID:status".
  std::vector<std::string> Statuses() const;
  std::vector<SentChunk> Chunks() const;
  int WatchdogEvents() const { return watchdogEvents_; }

  // A buffer with these bytes, exactly as large, and lent from now on: the plug-in may give it back
  // before it has answered. TakeBack: it was refused.
  const void* Lend(std::string_view bytes = {});
  void TakeBack(const void* handle);
  std::size_t FramesOut() const;
  // Every handle that came back, in order; with CountsOnly their number alone.
  std::vector<const void*> ReleasedFrames() const;
  std::uint32_t FramesReleased() const { return framesReleased_; }

  // What was against the rules of the border: a request of the wrong form (size, version, module,
  // zeroed rest), a buffer that came back though it was not out (once any was lent), and what others
  // have added.
  std::vector<std::string> Problems() const;
  void AddProblem(const std::string& text);

  // Called for every channel chunk, or document, on the plug-in's thread without any lock of this
  // object; may start the answer on another thread. Without a handler chunks are accepted.
  void OnChunk(std::function<void(const SentChunk&)> handler);
  void OnDocument(std::function<void(const SentDocument&)> handler);

  // What the entry answers for one command: its return value and the reply's status.
  void Answer(HostCommand command, int returned, std::uint32_t status);

  // Waits until the condition holds, at most a minute; false when it did not come true.
  bool WaitFor(const std::function<bool()>& condition) const;

 private:
  int Take(HostRequest& request, HostReply& reply);
  void CheckForm(const HostRequest& request, const HostReply& reply);
  void Release(const void* handle);

  struct Reaction {
    HostCommand command;
    int returned;
    std::uint32_t status;
  };

  const Memory memory_;
  std::atomic<std::uint32_t> framesReleased_{0};
  std::atomic<int> watchdogEvents_{0};

  mutable std::mutex mutex_;  // of all below
  mutable std::condition_variable changed_;
  std::vector<LogLine> log_;
  std::vector<SentDocument> documents_;
  std::map<const void*, std::unique_ptr<char[]>> lent_;
  bool keepsFrameBooks_ = false;
  std::vector<const void*> released_;
  std::vector<SentChunk> chunks_;
  std::vector<std::string> problems_;
  std::vector<Reaction> reactions_;
  std::function<void(const SentChunk&)> onChunk_;
  std::function<void(const SentDocument&)> onDocument_;
};

// A report of the host as IOCTL 4 carries it.
std::string MakeReport(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
                       const std::string& payload = {});

}  // namespace tvx::test
