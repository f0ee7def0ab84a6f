// The host's documents and the saved one, in a plug-in that has cameras and mails.
#include <string>
#include <utility>

#include "config/config_file.h"
#include "config/notify_config.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "fuzz/fuzz.h"
#include "fuzz/plugin_run.h"
#include "support/documents.h"
#include "support/temporary_folder.h"

namespace tvx::test {

// Input: an event document. It finds profiles, cameras and frames in place, and what it asks for is
// cut, composed and handed to the worker.
void FuzzEventDocument(std::string_view input) {
  PluginRun run;
  run.SetUp();
  run.SomeFrames();
  run.Plugin().Event(input);
  run.SomeFrames();
  run.Deliver();
}

// Input: a full system document, or whatever else comes as an update. Frames and events of its
// cameras follow.
void FuzzSystemDocument(std::string_view input) {
  // A mail would ask for its link there.
  if (input.find("Web") != std::string_view::npos) return;
  PluginRun run;
  run.UpdateProfiles();
  run.Plugin().Update(input);
  run.SomeFrames();
  std::string sources;
  for (const auto id : kStreams)
    sources += "<EventSource Type='2' ID='" + std::to_string(id) + "'/>";
  run.Plugin().Event(EventDocument(EventEntry(1, true, "", sources) +
                                   EventEntry(1, false, "", "<SourceGroup ID='3'/>")));
  run.SomeFrames();
  run.UpdateSystem();
  run.SomeFrames();
  run.Deliver();
}

// Input: a document that changes the notification settings. What is published afterwards is read
// again as it was, and events go by it.
void FuzzUpdateDocument(std::string_view input) {
  PluginRun run;
  run.SetUp();
  run.SomeFrames();
  run.Plugin().Update(input);

  const std::string published = run.Published();
  const ParsedDocument parsed = ParseDocument(published.data(), published.size());
  Require(parsed.Root() != nullptr, "what is published can be parsed");
  NotifyConfig config;
  if (ReadNotify(*parsed.Root(), config)) {
    Require(PrintDocument(*BuildNotifyDocument(config)) == published,
            "what is published is read as it was");
  }

  run.Plugin().Event(EventDocument(EventEntry(1) + EventEntry(2, true, "", "")));
  run.SomeFrames();
  run.Plugin().Tick();
}

// Input: notify.xml as it lies in the working folder when the plug-in is opened. What is saved
// thereupon is what the next start finds, whether the file was accepted or rejected.
void FuzzNotifyFile(std::string_view input) {
  const auto open = [](const std::string& text) {
    PluginRun run;
    WriteFile(kConfigFile, text);
    run.Plugin().Open();
    return std::pair(run.Published(), ReadFile(kConfigFile));
  };
  const auto [published, saved] = open(std::string(input));
  Require(!published.empty() && !saved.empty(), "a configuration is saved and published");
  const auto again = open(saved);
  Require(again.first == published, "what is saved is read again as it was");
  Require(again.second == saved, "and saved as it was");
}

}  // namespace tvx::test
