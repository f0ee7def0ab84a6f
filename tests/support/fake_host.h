// The host, inside the test: an entry that remembers what the plug-in sent, and the books of the
// frame buffers that it lent.
//
// One at a time: the entry is a plain function, as in the real host, so it finds the current
// FakeHost through a process-wide pointer. Safe from any thread.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/host_entry.h"
#include "host/host_records.h"

namespace tvx::test {

struct LogLine {
  std::uint32_t level;
  std::string text;
  friend bool operator==(const LogLine& a, const LogLine& b) {
    return a.level == b.level && a.text == b.text;
  }
  friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << ' ' << line.text;
  }
};
struct SentDocument {
  HostCommand command;
  std::string text;
};
struct SentChunk {
  std::uint32_t request, kind, word;
  std::string payload;
};

// Notes where this thread is for the scope, for those who count what the plug-in does and what its
// host does. Whoever wants to know installs note, which is given the new side (true: inside the
// plug-in) and returns the old one.
struct Crossing {
  explicit Crossing(bool isInPlugin) : before(note(isInPlugin)) {}
  ~Crossing() { note(before); }
  static inline bool (*note)(bool isInPlugin) = [](bool) { return false; };
  const bool before;
};

// A block of exactly this size, so that reading beyond it is noticed.
inline std::unique_ptr<char[]> CopyOf(std::string_view bytes) {
  std::unique_ptr<char[]> copy(new char[bytes.size()]);
  bytes.copy(copy.get(), bytes.size());
  return copy;
}

class FakeHost {
 public:
  // CountsOnly: nothing is kept and no lock is taken, for measurements.
  enum class Memory { Full, CountsOnly };

  explicit FakeHost(Memory memory = Memory::Full) : memory_(memory) {
    if (std::exchange(current_, this) != nullptr) throw std::logic_error("two fake hosts at once");
  }
  ~FakeHost() { current_ = nullptr; }

  // What the plug-in gets in Load.
  static int Entry(HostRequest* request, HostReply* reply) {
    const Crossing out(false);
    return current_ == nullptr ? 0 : current_->Take(*request, *reply);
  }
  // What a process channel is given to send with.
  static bool SendChunk(void* chunk, std::uint32_t size) {
    HostRequest request = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
    request.length = size;
    request.payload = chunk;
    HostReply reply = MakeHostReply();
    return Entry(&request, &reply) == 0;
  }

  std::vector<LogLine> Log() const { return Locked(log_); }
  // How many log lines have exactly this text.
  int Logged(const std::string& text) const {
    const auto log = Log();
    return static_cast<int>(std::count_if(log.begin(), log.end(),
                                          [&](const LogLine& line) { return line.text == text; }));
  }
  void ClearLog() { Set(log_, {}); }
  std::vector<SentDocument> Documents() const { return Locked(documents_); }
  // The notification results reported so far, as "ID:status".
  std::vector<std::string> Statuses() const;
  std::vector<SentChunk> Chunks() const { return Locked(chunks_); }
  int WatchdogEvents() const { return watchdogEvents_; }

  // A buffer with these bytes, exactly as large, and lent from now on: the plug-in may give it back
  // before it has answered. TakeBack: it was refused.
  const void* Lend(std::string_view bytes = {});
  void TakeBack(const void* handle);
  std::size_t FramesOut() const { return Locked(lent_).size(); }
  std::uint32_t FramesReleased() const { return framesReleased_; }

  // What was against the rules of the border: a request of the wrong form (size, version, module,
  // zeroed rest), a buffer that came back though it was not out, and what others have added.
  std::vector<std::string> Problems() const { return Locked(problems_); }
  void AddProblem(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    problems_.push_back(text);
  }

  // Called on the plug-in's thread without any lock of this object: before a call is looked at; for
  // a channel chunk, without a handler accepted, or a document. May start the answer on another
  // thread.
  void OnCall(std::function<void()> handler) { Set(onCall_, std::move(handler)); }
  void OnChunk(std::function<void(const SentChunk&)> handler) { Set(onChunk_, std::move(handler)); }
  void OnDocument(std::function<void(const SentDocument&)> handler) {
    Set(onDocument_, std::move(handler));
  }
  // What the entry answers to one command: its return value and the reply's status.
  void Answer(HostCommand command, int returned, std::uint32_t status) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answers_[command] = {returned, status};
  }

  // Waits until the condition holds, at most a minute; false when it did not come true.
  bool WaitFor(const std::function<bool()>& condition) const;

 private:
  int Take(HostRequest& request, HostReply& reply);
  void CheckForm(const HostRequest& request, const HostReply& reply);
  template <typename T>
  T Locked(const T& value) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return value;
  }
  template <typename T>
  void Set(T& value, T newValue) {
    const std::lock_guard<std::mutex> lock(mutex_);
    value.swap(newValue);
  }

  static inline FakeHost* current_ = nullptr;
  const Memory memory_;
  std::atomic<std::uint32_t> framesReleased_{0};
  std::atomic<int> watchdogEvents_{0};

  mutable std::mutex mutex_;  // of all below
  mutable std::condition_variable changed_;
  std::vector<LogLine> log_;
  std::vector<SentDocument> documents_;
  std::map<const void*, std::shared_ptr<char[]>> lent_;
  std::vector<SentChunk> chunks_;
  std::vector<std::string> problems_;
  std::map<HostCommand, std::pair<int, std::uint32_t>> answers_;
  std::function<void()> onCall_;
  std::function<void(const SentChunk&)> onChunk_;
  std::function<void(const SentDocument&)> onDocument_;
};

// A report of the host as IOCTL 4 carries it.
inline std::string MakeReport(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
                              const std::string& payload = {}) {
  const ChunkHeader header{static_cast<std::uint32_t>(sizeof(ChunkHeader) + payload.size()),
                           request, kind, word};
  return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + payload;
}

}  // namespace tvx::test
