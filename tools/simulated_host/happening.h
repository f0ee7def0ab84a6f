// What happens in the simulated host, as the timeline prints it: one small record for each kind.
//
// A new kind is a record here and one function in each printer (the compiler asks for it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tvx::tool {

// What the host itself does.
struct HostAction {
  std::string text;
};

// The host's mail server comes or goes.
struct MailServerChange {
  enum class What { Starting, Up, Down, Ended };
  What what = What::Starting;
};
inline const char* InWords(MailServerChange::What what) {
  switch (what) {
    case MailServerChange::What::Starting:
      return "starting the mail server";
    case MailServerChange::What::Up:
      return "mail server up";
    case MailServerChange::What::Down:
      return "mail server down";
    case MailServerChange::What::Ended:
      return "the mail server has ended by itself";
  }
  return "";
}

// A log line of the plug-in.
struct LogLine {
  std::uint32_t level = 0;
  std::string text;
};

// The plug-in asks for a program. Its standard input is never shown: it holds passwords.
struct Launch {
  std::uint32_t request = 0;
  std::vector<std::string> arguments;
};

struct LaunchFailure {
  std::uint32_t request = 0;
  std::string program;
  int error = 0;  // errno
};

struct ProgramEnd {
  std::uint32_t request = 0;
  std::string program;
  int waitStatus = 0;  // as waitpid gives it
  double seconds = 0;  // it ran
};

// One profile of a status document.
struct ProfileStatus {
  std::int32_t profile = 0;
  std::int32_t status = 0;
  std::int64_t time = 0;  // seconds since 1970, as the plug-in reported
};
constexpr std::int32_t kStatusUnknown = -1;
constexpr std::int32_t kStatusDelivered = 0;

// The plug-in's configuration, as it published it.
struct Configuration {
  int servers = 0;
  std::vector<std::pair<std::int32_t, std::string>> profiles;  // ID and description
  bool smtps = false;                                          // TLS is offered to users
  int longestClip = 0;                                         // seconds, of any profile
};

struct ModuleRegistration {
  std::string name;
  std::string version;
};

struct WatchdogEvent {};

// The contract was broken, or something did not end.
struct Fault {
  std::string text;
};

// A change of the plug-in's retry queue, as its log tells it (retry_story.h).
struct RetryChange {
  enum class What { Queued, Tried, Sent, Discarded };
  What what = What::Queued;
  std::string file;
  std::string why;          // it was discarded
  int attempts = 1;         // with the one before it was queued
  double age = 0;           // seconds since it was queued
  std::size_t waiting = 0;  // messages in the queue from now on
};

// A camera's frames begin to go to the plug-in.
struct FeedStart {
  std::uint32_t stream = 0;
  std::string source;   // what they show, for people
  bool isFile = false;  // and not an endless test picture
  int expected = 0;     // frames; 0 when they have no end, or nobody knows it
};

struct FeedEnd {
  std::uint32_t stream = 0;
  int frames = 0;
  double seconds = 0;  // of the world's time, from the first frame on
  double late = 0;     // the most seconds that a frame was fed after its time
};

// What became of one stream's frames, once the plug-in has gone.
struct FrameAccount {
  std::uint32_t stream = 0;
  std::uint64_t offered = 0;
  std::uint64_t taken = 0;
  std::uint64_t givenBack = 0;
};

using Happening = std::variant<HostAction, MailServerChange, LogLine, Launch, LaunchFailure,
                               ProgramEnd, ProfileStatus, Configuration, ModuleRegistration,
                               WatchdogEvent, Fault, RetryChange, FeedStart, FeedEnd, FrameAccount>;

}  // namespace tvx::tool
