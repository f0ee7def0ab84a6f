#include "simulated_host/json_printer.h"

#include <sys/wait.h>

#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <variant>

namespace tvx::tool {
namespace {

using Json = nlohmann::ordered_json;

Json Describe(const HostAction& action) {
  return {{"kind", "host"}, {"text", action.text}};
}
Json Describe(const MailServerChange& change) {
  return {{"kind", "host"}, {"text", InWords(change.what)}};
}
Json Describe(const WatchdogEvent&) {
  return {{"kind", "watchdog"}};
}
Json Describe(const Fault& fault) {
  return {{"kind", "fault"}, {"text", fault.text}};
}

Json Describe(const LogLine& line) {
  return {{"kind", "log"}, {"level", line.level}, {"text", line.text}};
}

Json Describe(const Launch& launch) {
  return {{"kind", "launch"}, {"request", launch.request}, {"arguments", launch.arguments}};
}

Json Describe(const LaunchFailure& failure) {
  return {{"kind", "launch-failed"},
          {"request", failure.request},
          {"program", failure.program},
          {"errno", failure.error},
          {"error", std::generic_category().message(failure.error)}};
}

Json Describe(const ProgramEnd& end) {
  Json json = {{"kind", "ended"},
               {"request", end.request},
               {"program", end.program},
               {"wait_status", end.waitStatus},
               {"seconds", end.seconds}};
  if (WIFSIGNALED(end.waitStatus)) {
    json["signal"] = WTERMSIG(end.waitStatus);
  } else {
    json["exit"] = WEXITSTATUS(end.waitStatus);
  }
  return json;
}

Json Describe(const ProfileStatus& status) {
  return {{"kind", "status"},
          {"profile", status.profile},
          {"status", status.status},
          {"reported_time", status.time}};
}

Json Describe(const Configuration& configuration) {
  Json profiles = Json::array();
  for (const auto& [id, description] : configuration.profiles) {
    profiles.push_back({{"id", id}, {"description", description}});
  }
  return {{"kind", "config"},
          {"servers", configuration.servers},
          {"profiles", profiles},
          {"smtps", configuration.smtps}};
}

const char* Name(RetryChange::What what) {
  switch (what) {
    case RetryChange::What::Queued:
      return "queued";
    case RetryChange::What::Tried:
      return "tried";
    case RetryChange::What::Sent:
      return "sent";
    case RetryChange::What::Discarded:
      return "discarded";
  }
  return "";
}

Json Describe(const RetryChange& change) {
  Json json = {{"kind", "retry"},     {"what", Name(change.what)},
               {"file", change.file}, {"attempts", change.attempts},
               {"age", change.age},   {"waiting", change.waiting}};
  if (!change.why.empty()) json["why"] = change.why;
  return json;
}

Json Describe(const FeedStart& feed) {
  return {{"kind", "feed-start"}, {"stream", feed.stream}, {"source", feed.source}};
}

Json Describe(const FeedEnd& feed) {
  return {{"kind", "feed-end"},
          {"stream", feed.stream},
          {"frames", feed.frames},
          {"seconds", feed.seconds},
          {"late", feed.late}};
}

Json Describe(const FrameAccount& account) {
  return {{"kind", "frames"},
          {"stream", account.stream},
          {"offered", account.offered},
          {"taken", account.taken},
          {"given_back", account.givenBack}};
}

Json Describe(const ModuleRegistration& module) {
  return {{"kind", "module"}, {"name", module.name}, {"version", module.version}};
}

}  // namespace

void JsonPrinter::Print(double seconds, const Happening& happening) {
  Json json = {{"time", seconds}};
  json.update(std::visit([](const auto& it) { return Describe(it); }, happening));
  // Log lines may hold bytes that are no UTF-8: the texts of documents come as they are.
  const std::string line = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::fprintf(out_, "%s\n", line.c_str());
  std::fflush(out_);
}

}  // namespace tvx::tool
