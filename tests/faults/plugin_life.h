// One life of the plug-in, from Load to Unload, with a host that keeps books: what the host is told
// by exceptions, what is mailed, which frames are out.
//
// Threads: the program's main thread calls the operations; worker, watchdog and programs have their
//          own. Only what the plug-in does counts for faults, on any of them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/host_records.h"
#include "support/fake_host.h"

namespace tvx::faults {

constexpr std::int32_t kAlarm = 1;  // the profile whose notification meets the fault
constexpr std::int32_t kNext = 2;   // the profile whose notification comes after it

constexpr std::uint32_t kMovieStream = 66049;
constexpr std::uint32_t kPictureStream = 66305;

// What went wrong; whoever finds something adds to it.
class Findings {
 public:
  void Add(const std::string& text);
  std::vector<std::string> Take();

 private:
  std::mutex mutex_;
  std::vector<std::string> texts_;
};

class PluginLife {
 public:
  // Works in the current folder. withVideo has the profiles attach clips of two cameras.
  PluginLife(bool withVideo, Findings& findings);
  // Closes and unloads; the books are balanced then.
  ~PluginLife();
  PluginLife(const PluginLife&) = delete;
  PluginLife& operator=(const PluginLife&) = delete;

  // Each is false when memory exhaustion came back to the host as an exception.
  bool SendEvent(std::int32_t profile);
  bool SendUpdate(const std::string& subject);
  // Of two cameras, whose names begin with this.
  bool SendSystemDocument(const std::string& prefix);
  void SendFrame(std::uint32_t stream, bool isKey);
  void Tick();

  // Lends the plug-in the threads for its worker and its watchdog.
  void StartLoops();

  // Puts both clocks forward.
  void Pass(std::uint32_t milliseconds);

  // How many of the coming transfers fail for now.
  void FailTransfers(int count) { failures_ = count; }

  // The messages of a profile that the mail server has accepted.
  std::vector<std::string> Delivered(std::int32_t profile) const;
  // What became of a profile's notifications, as it was reported: 0 or 1.
  std::vector<int> Statuses(std::int32_t profile) const;
  // Whether a line with this text has been logged at this level or a more urgent one.
  bool HasLogged(std::uint32_t level, const std::string& text) const;
  bool WaitFor(const std::function<bool()>& condition) const { return host_.WaitFor(condition); }

  // The ends of the names of the attachments that a message with video has.
  static constexpr const char* kAttachments[] = {"Gate.mov", "Yard.jpg"};

 private:
  using Export = int (*)(void* request, void* result);
  template <typename Request, typename Result>
  bool Call(const char* name, Export function, Request& request, Result& result);

  static int Entry(HostRequest* request, HostReply* reply);
  void OnChunk(const test::SentChunk& chunk);
  void RunProgram(std::uint32_t request, const std::vector<std::string>& arguments);
  bool WaitForInput(std::uint32_t request);
  bool Change(const std::string& document);
  void Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
              const std::string& payload = {});
  std::uint32_t Transfer(const std::string& path);
  void CheckFrames();

  Findings& findings_;
  test::FakeHost host_;
  std::atomic<std::uint32_t> milliseconds_{0};
  std::atomic<int> failures_{0};

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::uint32_t> fed_;  // the programs that have got their input
  bool closed_ = false;
  std::map<std::int32_t, std::vector<std::string>> delivered_;
  std::vector<std::thread> programs_;

  std::thread worker_;
  std::thread watchdog_;
  std::deque<std::string> frames_;  // every one that was sent; a deque, as they must not move
  std::vector<const void*> taken_;
};

}  // namespace tvx::faults
