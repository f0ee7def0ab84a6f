#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/clock.h"
#include "commands.h"
#include "config/notify_config.h"
#include "preview/chosen_profile.h"
#include "preview/preview.h"
#include "preview/sample_event.h"
#include "text/palette.h"

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
  std::optional<std::string> type;  // empty: list them
  std::string state = "start";
  std::vector<std::uint32_t> cameras;
  SampleEvent event;
  std::vector<std::string> attached;
  std::vector<std::string> notes;
  SampleAttachments attachments;
  std::optional<std::string> eml;  // empty: to standard output
  bool json = false;
};

[[noreturn]] void WrongUse(const std::string& text) {
  throw std::runtime_error(text);
}

// By their codes, each on a line of its own.
std::string EventTypes() {
  std::string list;
  for (std::int32_t code = event_type::kInvalid + 1; code <= event_type::kRecordAlarm; ++code) {
    list += "\n  " + std::to_string(code) + "  " + EventTypeName(code);
  }
  return list;
}

void TakeEvent(Arguments& arguments) {
  SampleEvent& event = arguments.event;
  event.seconds = static_cast<std::int32_t>(WallSeconds());
  if (!arguments.time.empty()) {
    const auto seconds = ReadEventTime(arguments.time);
    if (!seconds) WrongUse("--time: \"" + arguments.time + "\" is no time");
    event.seconds = *seconds;
  }
  if (arguments.type) {
    const auto type = ReadEventType(*arguments.type);
    if (!type) {
      WrongUse("--type: there is no event type \"" + *arguments.type + "\", there are" +
               EventTypes());
    }
    event.type = *type;
  }
  event.isStart = arguments.state == "start";
  if (!arguments.cameras.empty()) event.cameras = arguments.cameras;
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

int Run(Arguments& arguments) {
  if (arguments.type == "") {
    std::puts(EventTypes().substr(1).c_str());
    return 0;
  }
  TakeEvent(arguments);
  TakeAttachments(arguments);
  const std::shared_ptr<const NotifyConfig> config = ReadConfiguration(arguments.file);
  const Preview preview = MakePreview(arguments.event, arguments.attachments, config,
                                      ChooseProfile(*config, arguments.profile, arguments.file));
  // Standard output is the message's when it is wanted there.
  if (arguments.eml == "") arguments.eml = kStandardOutput;
  std::FILE* out = arguments.eml == kStandardOutput ? stderr : stdout;
  const std::string text =
      arguments.json ? PreviewJson(preview) : PreviewText(preview, Palette::For(out));
  if (out == stdout || preview.Findings() != 0) std::fputs(text.c_str(), out);
  if (arguments.eml && !preview.message.empty()) WriteMessage(*arguments.eml, preview.message);
  return preview.Findings() == 0 ? 0 : 1;
}

}  // namespace

Command PreviewCommand() {
  auto arguments = std::make_shared<Arguments>();
  SampleEvent& event = arguments->event;
  const auto text = [](const char* name, std::string& value, const std::string& what) {
    return Option{name, &value, "TEXT", what + " (default: " + value + ")"};
  };
  return {
      "preview",
      kDescription,
      kFooter,
      {{"FILE", &arguments->file, "", "The notify.xml"},
       {"--profile", &arguments->profile, "N", "Its profile (default: its only one)"},
       {"--test", &event.isTest, "", "The message of a test event"},
       {"--time", &arguments->time, "TIME",
        "Time of the event: seconds since 1970, or local as \"YYYY-MM-DD HH:MM:SS\" "
        "(default: now)"},
       {"--milliseconds", &event.milliseconds, "N", "Its milliseconds (default: 0)", Range{0, 999}},
       {"--type", &arguments->type, "[TYPE]",
        "Event type, code or name (default: Video Motion); without TYPE, list them"},
       {"--state", &arguments->state, "STATE", "\"start\" or \"end\" (default: start)",
        OneOf{"start", "end"}},
       text("--source", event.sourceName, "Name of the event's source"),
       text("--system", event.systemName, "Name of the system"),
       text("--serial", event.serial, "Serial number of the system"),
       text("--mac", event.macAddress, "Registered MAC address of the system"),
       {"--camera", &arguments->cameras, "ID",
        "Identifier of a camera for the web link; may be repeated (default: one for an event of a "
        "camera, else none)"},
       {"--web-link", &event.webLink, "TEXT",
        "What stands for {weblink} (default: an example of a link, or the notice why there is "
        "none)"},
       {"--attach", &arguments->attached, "FILE", "A file to attach; may be repeated",
        ExistingFile{}},
       {"--failed-attachment", &arguments->notes, "NOTE",
        "The note on an attachment that failed; may be repeated"},
       {"--part",
        &arguments->attachments.part,
        "N",
        "This is message N of --parts",
        Range{1},
        {},
        {"--parts"}},
       {"--parts",
        &arguments->attachments.partCount,
        "N",
        "The attachments need so many messages",
        Range{1},
        {},
        {"--part"}},
       {"--eml", &arguments->eml, "[FILE]",
        "Write the message to a file, byte for byte as the plug-in spools it; to standard output "
        "without FILE"},
       {"--json", &arguments->json, "", "Print one JSON object", {}, {"--eml"}}},
      [arguments] { return Run(*arguments); }};
}

}  // namespace tvx::tool
