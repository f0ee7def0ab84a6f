#include "simulated_host/event_printers.h"

#include <sys/wait.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>
#include <variant>

#include "simulated_host/format.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

using Json = nlohmann::ordered_json;

struct Description {
  const char* kind;
  Json fields;
  EventText forPeople = {};
};

// An argument as a shell would take it.
std::string ShellWord(const std::string& argument) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:@=+,%";
  if (!argument.empty() && argument.find_first_not_of(kPlain) == std::string::npos) return argument;
  std::string quoted = "'";
  for (const char c : Printable(argument)) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string Count(std::uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string Hex(std::string_view bytes) {
  std::string digits;
  for (const char byte : bytes) digits += Format("%02x", static_cast<unsigned char>(byte));
  return digits;
}

Description Describe(const HostAction& action) {
  return {"host", {{"text", action.text}}, {"host", Printable(action.text)}};
}

Description Describe(const MailServerChange& change) {
  return Describe(HostAction{InWords(change.what)});
}

Description Describe(const LogLine& line) {
  const std::string level = line.level == 25   ? "info"
                            : line.level == 50 ? "warning"
                            : line.level == 75 ? "error"
                                               : Format("level %u", line.level);
  return {"log", {{"level", line.level}, {"text", line.text}}, {level, Printable(line.text)}};
}

Description Describe(const Launch& launch) {
  std::string command;
  for (const std::string& argument : launch.arguments) {
    command += (command.empty() ? "" : " ") + ShellWord(argument);
  }
  return {"launch",
          {{"request", launch.request}, {"arguments", launch.arguments}},
          {"launch", command}};
}

Description Describe(const LaunchFailure& failure) {
  const std::string error = std::generic_category().message(failure.error);
  return {"launch-failed",
          {{"request", failure.request},
           {"program", failure.program},
           {"errno", failure.error},
           {"error", error}},
          {"ended", Printable(failure.program) + " could not be started: " + error}};
}

Description Describe(const ProgramEnd& end) {
  const bool killed = WIFSIGNALED(end.waitStatus);
  const int value = killed ? WTERMSIG(end.waitStatus) : WEXITSTATUS(end.waitStatus);
  const std::string outcome = killed ? Format("killed by signal %d (%s)", value, strsignal(value))
                                     : Format("exit %d", value);
  return {
      "ended",
      {{"request", end.request},
       {"program", end.program},
       {"wait_status", end.waitStatus},
       {"seconds", end.seconds},
       {killed ? "signal" : "exit", value}},
      {"ended", Printable(end.program) + ": " + outcome + Format(" after %.3f s", end.seconds)}};
}

Description Describe(const Explanation& explanation) {
  const FailureCause& it = *explanation.cause;
  return {"reason",
          {{"cause", it.cause}, {"cure", it.cure}},
          {"reason", std::string(it.cause) + " " + it.cure}};
}

Description Describe(const TransferEnd& end) {
  Json stages = Json::array();
  std::string last;
  for (const TransferStage& it : end.dialogue.Stages()) {
    stages.push_back({{"stage", it.name}, {"passed", it.passed}, {"reply", it.reply}});
    last = " (" + it.name + (it.reply.empty() ? ")" : ": " + Printable(it.reply) + ")");
  }
  Json fields = {{"request", end.request},
                 {"server", end.dialogue.Server()},
                 {"stages", stages},
                 {"dialogue", end.dialogue.Lines()}};
  std::string text = "taken by " + Printable(end.dialogue.Server()) + last;
  if (end.cause != nullptr) {
    fields["cause"] = end.cause->cause;
    fields["cure"] = end.cause->cure;
    text = "not " + text + ". " + end.cause->cause + " " + end.cause->cure;
  }
  return {"mail", fields, {"mail", text}};
}

Description Describe(const ProfileReport& report) {
  const std::string status = report.status == kStatusUnknown     ? "not known yet"
                             : report.status == kStatusDelivered ? "delivered"
                             : report.status == kStatusFailed    ? "failed"
                                                              : Format("status %d", report.status);
  return {"status",
          {{"profile", report.profile}, {"status", report.status}, {"reported_time", report.time}},
          {"status", Format("profile %d: ", report.profile) + status}};
}

Description Describe(const Configuration& configuration) {
  Json profiles = Json::array();
  std::string text = Count(static_cast<std::uint64_t>(configuration.servers), "server") + ", " +
                     Count(configuration.profiles.size(), "profile");
  for (const auto& [id, description] : configuration.profiles) {
    text += (profiles.empty() ? ": " : ", ") + std::to_string(id) + " \"" + Printable(description) +
            "\"";
    profiles.push_back({{"id", id}, {"description", description}});
  }
  return {
      "config",
      {{"servers", configuration.servers}, {"profiles", profiles}, {"smtps", configuration.smtps}},
      {"config", text + (configuration.smtps ? "; TLS offered" : "; TLS not offered")}};
}

Description Describe(const ModuleRegistration& module) {
  return {"module",
          {{"name", module.name}, {"version", module.version}},
          {"module", Printable(module.name) + " version " + Printable(module.version)}};
}

Description Describe(const WatchdogEvent&) {
  return {"watchdog", Json::object(), {"watchdog", "alive"}};
}

Description Describe(const Fault& fault) {
  return {"fault", {{"text", fault.text}}, {"FAULT", Printable(fault.text)}};
}

Description Describe(const RetryChange& change) {
  using What = RetryChange::What;
  constexpr const char* kNames[] = {"queued", "tried", "sent", "discarded"};
  const char* name = kNames[static_cast<int>(change.what)];
  Json fields = {{"what", name},
                 {"file", change.file},
                 {"attempts", change.attempts},
                 {"age", change.age},
                 {"waiting", change.waiting}};
  if (!change.why.empty()) fields["why"] = change.why;
  std::string text = change.what == What::Tried ? Format("attempt %d of ", change.attempts)
                                                : std::string(name) + " ";
  text += Printable(change.file);
  if (change.what != What::Queued) text += Format(", %.0f s after it was queued", change.age);
  if (!change.why.empty()) text += ": " + change.why;
  if (change.what != What::Tried) text += "; " + Count(change.waiting, "message") + " waiting";
  return {"retry", fields, {"retry", text}};
}

Description Describe(const FeedStart& feed) {
  return {"feed-start",
          {{"stream", feed.stream}, {"source", feed.source}},
          {"frames", Format("stream %u: ", feed.stream) + Printable(feed.source)}};
}

Description Describe(const FeedEnd& feed) {
  return {"feed-end",
          {{"stream", feed.stream},
           {"frames", feed.frames},
           {"seconds", feed.seconds},
           {"late", feed.late}},
          {"frames", Format("stream %u ends: %s in %.3f s, at most %.3f s late", feed.stream,
                            Count(static_cast<std::uint64_t>(feed.frames), "frame").c_str(),
                            feed.seconds, feed.late)}};
}

Description Describe(const FrameAccount& account) {
  return {"frames",
          {{"stream", account.stream},
           {"offered", account.offered},
           {"taken", account.taken},
           {"given_back", account.givenBack}},
          {"frames", Format("stream %u: %ju offered, %ju taken, %ju given back", account.stream,
                            std::uintmax_t{account.offered}, std::uintmax_t{account.taken},
                            std::uintmax_t{account.givenBack})}};
}

// The calls between host and plug-in, which only programs read.

Description Describe(const CallBegin& call) {
  return {"call",
          {{"call", call.number},
           {"name", call.name},
           {"about", call.arguments},
           {"record", Hex(call.record)}}};
}

Description Describe(const CallEnd& end) {
  return {"return",
          {{"call", end.number},
           {"name", end.name},
           {"returned", end.returned},
           {"seconds", end.seconds},
           {"breach", end.breach},
           {"record", Hex(end.record)}}};
}

Description Describe(const TickWrite& tick) {
  return {"tick", {{"returned", tick.returned}}};
}

Description Describe(const FrameWrite& frame) {
  return {
      "frame",
      {{"stream", frame.stream}, {"size", frame.size}, {"key", frame.key}, {"taken", frame.taken}}};
}

Description Describe(const FrameReturn& frame) {
  return {"frame-back", {{"stream", frame.stream}, {"size", frame.size}}};
}

Description Describe(const RequestTaken& taken) {
  const HostRequest& request = taken.request;
  return {"request",
          {{"command", static_cast<std::uint32_t>(request.command)},
           {"level", request.level},
           {"well_formed", taken.wellFormed},
           {"record", Hex({reinterpret_cast<const char*>(&request), sizeof(request)})}}};
}

Description Describe(const NotificationsAsked& asked) {
  return {"asked", {{"profiles", asked.profiles}}};
}

Description Describe(const HostEvent& event) {
  return std::visit([](const auto& it) { return Describe(it); }, event);
}

void HideIn(Json& json, const Secrets& secrets) {
  if (json.is_string()) json = secrets.Hide(json.get_ref<const std::string&>());
  if (!json.is_structured()) return;
  for (Json& part : json) HideIn(part, secrets);
}

}  // namespace

EventText DescribeForPeople(const HostEvent& event) {
  return Describe(event).forPeople;
}

void TextPrinter::Print(double seconds, const HostEvent& event) {
  const EventText it = DescribeForPeople(event);
  if (it.label.empty()) return;
  std::fprintf(out_, "%9.3f  %-8s  %s\n", seconds, it.label.c_str(), it.text.c_str());
  std::fflush(out_);
}

void JsonPrinter::Print(double seconds, const HostEvent& event) {
  const Description description = Describe(event);
  if (description.forPeople.label.empty() && !bytes_) return;
  Json json = {{"time", seconds}, {"kind", description.kind}};
  json.update(description.fields);
  if (bytes_) AddBytes(json, event);
  // Texts come as they are: they may hold what is no UTF-8, and what terminals obey.
  const std::string line = json.dump(-1, ' ', true, Json::error_handler_t::replace);
  std::fprintf(out_, "%s\n", line.c_str());
  std::fflush(out_);
}

void JsonPrinter::AddBytes(Json& json, const HostEvent& event) {
  if (threads_.empty()) {
    // The plug-in reads this file by itself, and may tell of it before it publishes it.
    std::ifstream file("notify.xml", std::ios::binary);
    secrets_.Learn(std::string(std::istreambuf_iterator<char>(file), {}));
  }
  const auto number = static_cast<int>(threads_.size()) + 1;
  json["thread"] = threads_.emplace(std::this_thread::get_id(), number).first->second;
  const std::string payload = PayloadOf(event);
  if (!payload.empty()) json["payload"] = payload;
  HideIn(json, secrets_);
}

// What a call carries, fit to be shown once known secrets are hidden; learns those of documents.
std::string JsonPrinter::PayloadOf(const HostEvent& event) {
  if (const auto* call = std::get_if<CallBegin>(&event)) {
    if (call->chunk != nullptr) return WholeLines(*call->chunk, call->payload);
    if (call->name == "IOCTL 2") secrets_.Learn(call->payload);
    return std::string(call->payload);
  }
  const auto* taken = std::get_if<RequestTaken>(&event);
  if (taken == nullptr || !taken->wellFormed || taken->request.length == 0) return {};
  const HostRequest& request = taken->request;
  const std::string_view payload(static_cast<const char*>(request.payload), request.length);
  if (request.command == HostCommand::ConfigDocument) secrets_.Learn(payload);
  // Without its NUL, so that a secret is seen that the end of the line has cut.
  if (request.command == HostCommand::Log) return {payload.data(), payload.size() - 1};
  if (request.command != HostCommand::ChannelMessage) return std::string(payload);
  ChunkHeader header{};
  std::memcpy(&header, payload.data(), sizeof(header));
  const std::string_view content = payload.substr(sizeof(header));
  return header.kind == chunk_kind::kInput ? Secrets::HideInput(content) : std::string(content);
}

// Output is shown in whole lines, in which secrets are whole, too: those that are complete with this
// chunk, or all that is left at the end of the program.
std::string JsonPrinter::WholeLines(const ChunkHeader& chunk, std::string_view output) {
  constexpr std::size_t kLongestLine = 32 << 10;
  using chunk_kind::kErrors;
  using chunk_kind::kOutput;
  if (chunk.kind != kOutput && chunk.kind != kErrors) {
    std::string rest;
    for (const std::uint32_t kind : {kOutput, kErrors}) {
      rest += output_[{chunk.request, kind}];
      output_.erase({chunk.request, kind});
    }
    return rest;
  }
  std::string& text = output_[{chunk.request, chunk.kind}];
  text.append(output);
  const std::size_t end = text.find_last_of("\r\n");
  if (end == std::string::npos && text.size() < kLongestLine) return {};
  const std::size_t length = end == std::string::npos ? text.size() : end + 1;
  std::string lines = text.substr(0, length);
  text.erase(0, length);
  return lines;
}

}  // namespace tvx::tool
