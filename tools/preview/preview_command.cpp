#include "preview/preview_command.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/clock.h"
#include "config/config_file.h"
#include "config/notify_config.h"
#include "preview/event_options.h"
#include "preview/preview.h"
#include "preview/preview_json.h"
#include "preview/preview_text.h"
#include "preview/sample_event.h"
#include "text/palette.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

constexpr const char* kDescription =
    R"(Show a profile's e-mail as an event would make it.

Reads a notify.xml as the plug-in does, makes up an event, and prints the message that the plug-in
would send, made by the plug-in's own code. Below it stands what became of each placeholder, with its
line and column in the template:
  +  replaced by its value
  =  left as it is
  -  dropped, as a text with a date or a time keeps no other braces
  !  a fault: a date format that is none, or something that is no address
  #  a remark
Nothing is sent, no web server is asked, and nothing is written but the file of --eml.
)";

constexpr const char* kFooter =
    R"(Exit status: 0 the message is as the profile means it; 1 a placeholder or other braces were not
replaced, a date format is invalid, or the message cannot be composed; 2 wrong use.
)";

constexpr const char* kStandardOutput = "-";

struct Arguments {
  std::string file;
  std::optional<std::int32_t> profile;
  std::string time;
  std::string type;
  std::string state = "start";
  std::vector<std::uint32_t> cameras;
  std::string webLink;
  SampleEvent event;
  std::vector<std::string> attached;
  std::vector<std::string> notes;
  SampleAttachments attachments;
  std::string eml;
  bool json = false;
};

[[noreturn]] void WrongUse(const std::string& text) {
  throw CLI::ValidationError(text);
}

std::string ListOf(const std::map<std::int32_t, NotifyProfile>& profiles) {
  if (profiles.empty()) return "there is none";
  std::string list = "there are";
  for (const auto& [id, profile] : profiles) {
    list += "\n  " + std::to_string(id) + "  \"" + Printable(profile.description) + "\"";
  }
  return list;
}

std::shared_ptr<const NotifyConfig> ReadConfiguration(const std::string& path) {
  const auto config = std::make_shared<NotifyConfig>();
  switch (TakeConfigDocument(ReadConfigFile(path), *config)) {
    case LoadOutcome::Loaded:
      return config;
    case LoadOutcome::Missing:
      WrongUse(path + ": there is no such file");
    case LoadOutcome::Rejected:
      break;
  }
  WrongUse(path + ": the plug-in cannot read this as a configuration: run \"notifypi check " +
           path + "\"");
}

const NotifyProfile& ChooseProfile(const NotifyConfig& config, const Arguments& arguments) {
  const auto& profiles = config.profiles;
  if (!arguments.profile) {
    if (profiles.size() == 1) return profiles.begin()->second;
    WrongUse(arguments.file + ": which profile? " + ListOf(profiles));
  }
  const auto found = profiles.find(*arguments.profile);
  if (found == profiles.end()) {
    WrongUse(arguments.file + ": no profile " + std::to_string(*arguments.profile) + ", " +
             ListOf(profiles));
  }
  return found->second;
}

void TakeEvent(const CLI::App& preview, Arguments& arguments) {
  SampleEvent& event = arguments.event;
  event.seconds = static_cast<std::int32_t>(WallSeconds());
  if (!arguments.time.empty()) {
    const auto seconds = ReadEventTime(arguments.time);
    if (!seconds) WrongUse("--time: \"" + arguments.time + "\" is no time");
    event.seconds = *seconds;
  }
  if (!arguments.type.empty()) {
    const auto type = ReadEventType(arguments.type);
    if (!type) WrongUse("--type: there is no event type \"" + arguments.type + "\"");
    event.type = *type;
  }
  event.isStart = arguments.state == "start";
  if (preview.count("--camera") != 0) event.cameras = arguments.cameras;
  if (preview.count("--web-link") != 0) event.webLink = arguments.webLink;
}

void TakeAttachments(Arguments& arguments) {
  SampleAttachments& attachments = arguments.attachments;
  for (const std::string& path : arguments.attached)
    attachments.entries.push_back({true, path, {}});
  for (const std::string& note : arguments.notes) attachments.entries.push_back({false, {}, note});
  if (attachments.part > attachments.partCount) {
    WrongUse("--part: there are only " + std::to_string(attachments.partCount) + " parts");
  }
}

void WriteMessage(const std::string& path, const std::string& message) {
  if (path == kStandardOutput) {
    std::fwrite(message.data(), 1, message.size(), stdout);
    return;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(message.data(), static_cast<std::streamsize>(message.size()));
  file.close();
  if (file.fail()) WrongUse(path + " cannot be written");
}

int Run(const CLI::App& command, Arguments& arguments) {
  TakeEvent(command, arguments);
  TakeAttachments(arguments);
  const std::shared_ptr<const NotifyConfig> config = ReadConfiguration(arguments.file);
  const Preview preview = MakePreview(arguments.event, arguments.attachments, config,
                                      ChooseProfile(*config, arguments));
  // Standard output is the message's when it is wanted there.
  std::FILE* out = arguments.eml == kStandardOutput ? stderr : stdout;
  const std::string text =
      arguments.json ? PreviewJson(preview) : PreviewText(preview, Palette::For(out));
  if (out == stdout || preview.Findings() != 0) std::fputs(text.c_str(), out);
  if (!arguments.eml.empty() && !preview.message.empty()) {
    WriteMessage(arguments.eml, preview.message);
  }
  return preview.Findings() == 0 ? 0 : 1;
}

}  // namespace

void AddPreviewCommand(CLI::App& command, int& exitCode) {
  auto arguments = std::make_shared<Arguments>();
  SampleEvent& event = arguments->event;
  CLI::App* preview = command.add_subcommand("preview", kDescription);
  preview->footer(kFooter);

  preview->add_option("FILE", arguments->file, "The notify.xml")->required()->type_name("");
  preview->add_option("--profile", arguments->profile, "Its profile (default: its only one)")
      ->type_name("N");
  preview->add_flag("--test", event.isTest,
                    "The message that is sent when somebody tries the profile out");
  preview
      ->add_option("--time", arguments->time,
                   "Time of the event: seconds since 1970, or local as \"YYYY-MM-DD HH:MM:SS\" "
                   "(default: now)")
      ->type_name("TIME");
  preview->add_option("--milliseconds", event.milliseconds, "Its milliseconds (default: 0)")
      ->check(CLI::Range(0, 999).description(""))
      ->type_name("N");
  preview->add_option("--type", arguments->type, "Event type, code or name (default: Video Motion)")
      ->type_name("TYPE");
  preview->add_option("--state", arguments->state, "\"start\" or \"end\" (default: start)")
      ->check(CLI::IsMember({"start", "end"}).description(""))
      ->type_name("STATE");
  const auto text = [&](const char* name, std::string& value, const char* what) {
    preview->add_option(name, value, what + (" (default: " + value + ")"))->type_name("TEXT");
  };
  text("--source", event.sourceName, "Name of the event's source");
  text("--system", event.systemName, "Name of the system");
  text("--serial", event.serial, "Serial number of the system");
  text("--mac", event.macAddress, "Registered MAC address of the system");
  preview
      ->add_option("--camera", arguments->cameras,
                   "Identifier of a camera for the web link; may be repeated (default: one for an "
                   "event of a camera, else none)")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("ID");
  preview
      ->add_option("--web-link", arguments->webLink,
                   "What stands for {weblink} (default: an example of a link, or the notice why "
                   "there is none)")
      ->type_name("TEXT");
  preview->add_option("--attach", arguments->attached, "A file to attach; may be repeated")
      ->check(CLI::ExistingFile.description(""))
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("FILE");
  preview
      ->add_option("--failed-attachment", arguments->notes,
                   "The note on an attachment that failed; may be repeated")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("NOTE");
  CLI::Option* part =
      preview->add_option("--part", arguments->attachments.part, "This is message N of --parts")
          ->check(CLI::PositiveNumber.description(""))
          ->type_name("N");
  CLI::Option* parts = preview
                           ->add_option("--parts", arguments->attachments.partCount,
                                        "The attachments need so many messages")
                           ->check(CLI::PositiveNumber.description(""))
                           ->type_name("N");
  part->needs(parts);
  parts->needs(part);
  CLI::Option* eml = preview
                         ->add_option("--eml", arguments->eml,
                                      "Write the message to a file, byte for byte as the plug-in "
                                      "spools it; to standard output without FILE")
                         ->expected(0, 1)
                         ->type_name("[FILE]");
  preview->add_flag("--json", arguments->json, "Print one JSON object")->excludes(eml);

  preview->callback([arguments, preview, eml, &exitCode] {
    if (eml->count() != 0 && arguments->eml.empty()) arguments->eml = kStandardOutput;
    exitCode = Run(*preview, *arguments);
  });
}

}  // namespace tvx::tool
