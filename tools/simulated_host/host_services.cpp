#include "simulated_host/host_services.h"

#include <cstdlib>
#include <variant>
#include <vector>

#include "simulated_host/plugin_document.h"
#include "simulated_host/request_check.h"

namespace tvx::tool {
namespace {

std::atomic<HostServices*> current{nullptr};

std::string CommandName(HostCommand command) {
  switch (command) {
    case HostCommand::StatusDocument:
      return "status document";
    case HostCommand::Watchdog:
      return "watchdog event";
    case HostCommand::Log:
      return "log line";
    case HostCommand::ConfigDocument:
      return "configuration document";
    case HostCommand::ReleaseFrame:
      return "frame release";
    case HostCommand::ChannelMessage:
      return "channel message";
  }
  return "request with command " + std::to_string(static_cast<std::uint32_t>(command));
}

std::string Text(const HostRequest& request) {
  return {static_cast<const char*>(request.payload), request.length};
}

}  // namespace

HostServices::HostServices(Timeline& timeline, Progress& progress, ProgramRunner& programs,
                           FrameBooks& frames)
    : timeline_(timeline), progress_(progress), programs_(programs), frames_(frames) {
  current = this;
}

HostServices::~HostServices() {
  current = nullptr;
}

int HostServices::Entry(HostRequest* request, HostReply* reply) {
  HostServices* host = current;
  if (host == nullptr) return 0;
  if (request == nullptr || reply == nullptr) {
    host->timeline_.Record(Fault{"the host service entry was called with a null pointer"});
    return 1;
  }
  host->Take(*request, *reply);
  // A chunk is the host's from the call on, whatever became of it.
  if (request->command == HostCommand::ChannelMessage)
    std::free(const_cast<void*>(request->payload));
  reply->status = 0;
  return 0;
}

void HostServices::Unloaded() {
  unloaded_ = true;
}

void HostServices::Take(const HostRequest& request, const HostReply& reply) {
  const auto record = [this, &request](const std::string& fault) {
    timeline_.Record(Fault{CommandName(request.command) + ": " + fault});
  };
  if (unloaded_) record("came after Unload");
  const std::vector<std::string> faults = FindRequestFaults(request, reply);
  if (!faults.empty() || request.command != HostCommand::ReleaseFrame) {
    timeline_.Record(RequestTaken{request, faults.empty()});
  }
  for (const std::string& fault : faults) record(fault);
  if (faults.empty()) TakeWellFormed(request);
}

void HostServices::TakeWellFormed(const HostRequest& request) {
  switch (request.command) {
    case HostCommand::Log:
      TakeLogLine({request.level, static_cast<const char*>(request.payload)});
      return progress_.Happened();
    case HostCommand::Watchdog:
      return timeline_.Record(WatchdogEvent{});
    case HostCommand::ChannelMessage:
      return programs_.Take(request.payload);
    case HostCommand::ReleaseFrame:
      return frames_.GiveBack(request.payload);
    case HostCommand::StatusDocument:
      return TakeStatus(Text(request));
    case HostCommand::ConfigDocument:
      return TakeConfiguration(Text(request));
  }
}

void HostServices::TakeLogLine(const LogLine& line) {
  timeline_.Record(line);
  if (const FailureCause* cause = CauseOfLogLine(line.text)) timeline_.Record(Explanation{cause});
}

void HostServices::TakeStatus(const std::string& text) {
  try {
    for (const ProfileReport& status : ReadStatusDocument(text)) {
      timeline_.Record(status);
      progress_.StatusReported(status.profile, status.status);
    }
  } catch (const DocumentError& error) {
    timeline_.Record(Fault{std::string("a status document ") + error.what() + ": " + text});
  }
}

void HostServices::TakeConfiguration(const std::string& text) {
  try {
    const auto document = ReadConfigDocument(text);
    std::visit([this](const auto& it) { timeline_.Record(it); }, document);
    if (const auto* configuration = std::get_if<Configuration>(&document)) {
      progress_.ClipsLast(configuration->longestClip);
    }
  } catch (const DocumentError& error) {
    // The text is not shown: it holds passwords.
    timeline_.Record(Fault{std::string("a configuration document ") + error.what()});
  }
  progress_.Happened();
}

}  // namespace tvx::tool
