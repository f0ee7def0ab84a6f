// What happens in the simulated host: one small record for each kind.
//
// Those of the second half are the calls between host and plug-in. They refer to the memory of the
// one who records them, which is good until Timeline::Record returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "delivery/failure_causes.h"
#include "delivery/transfer_dialogue.h"
#include "host/host_records.h"

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
  constexpr const char* kWords[] = {"starting the mail server", "mail server up",
                                    "mail server down", "the mail server has ended by itself"};
  return kWords[static_cast<int>(what)];
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

// What came of an attempt to send a mail to one server.
struct TransferEnd {
  std::uint32_t request = 0;
  const FailureCause* cause = nullptr;  // null: the server has taken the mail
  TransferDialogue dialogue;
};

// Why a mail failed, or lacks something, where no transfer tells it.
struct Explanation {
  const FailureCause* cause;
};

// One profile of a status document.
struct ProfileReport {
  std::int32_t profile = 0;
  std::int32_t status = 0;
  std::int64_t time = 0;  // seconds since 1970, as the plug-in reported
};
constexpr std::int32_t kStatusUnknown = -1;
constexpr std::int32_t kStatusDelivered = 0;
constexpr std::int32_t kStatusFailed = 1;

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

// A change of the plug-in's retry queue, as its log tells it (retry_tracker.h).
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
  std::string source;  // what they show, for people
  int expected = 0;    // frames; 0 when they have no end, or nobody knows it
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

// The host calls an export; its end follows under the same number, perhaps much later.
struct CallBegin {
  std::uint32_t number;
  std::string_view name;       // of the export
  std::string_view arguments;  // in words
  std::string_view record;     // the request record's bytes
  std::string_view payload;    // a document, or the output of a program
  const ChunkHeader* chunk;    // in front of that output; null for all other calls
};
struct CallEnd {
  std::uint32_t number;
  std::string_view name;
  std::string_view record;  // the result record's bytes
  int returned;
  double seconds;           // of the world's time
  std::string_view breach;  // of the contract, by the result record; empty when there is none
};

// Many and all alike, so that they have no begin.
struct TickWrite {
  int returned;
};
struct FrameWrite {
  std::uint32_t stream;
  std::size_t size;  // bytes of the buffer
  bool key;
  bool taken;
};
struct FrameReturn {
  std::uint32_t stream;
  std::size_t size;
};

// A record of the plug-in. Its payload may be read only when it is well formed. Frame releases that
// are well formed come as FrameReturn only.
struct RequestTaken {
  const HostRequest& request;
  bool wellFormed;
};

// An event document is about to be sent that asks for notifications by these profiles.
struct NotificationsAsked {
  const std::vector<std::int32_t>& profiles;
};

using HostEvent =
    std::variant<HostAction, MailServerChange, LogLine, Launch, LaunchFailure, ProgramEnd,
                 TransferEnd, Explanation, ProfileReport, Configuration, ModuleRegistration,
                 WatchdogEvent, Fault, RetryChange, FeedStart, FeedEnd, FrameAccount, CallBegin,
                 CallEnd, TickWrite, FrameWrite, FrameReturn, RequestTaken, NotificationsAsked>;

}  // namespace tvx::tool
