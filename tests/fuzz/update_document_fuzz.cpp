// Input: a document that changes the notification settings. What is published afterwards is read
// again as it was, and events go by it.
#include <string>

#include "config/notify_config.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "fuzz/input.h"
#include "fuzz/plugin_run.h"
#include "support/documents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tvx::test::Require;
  tvx::test::PluginRun run;
  run.SetUp();
  run.SomeFrames();
  run.Plugin().Update(tvx::test::AsText(data, size));

  const std::string published = run.Published();
  const tvx::ParsedDocument parsed = tvx::ParseDocument(published.data(), published.size());
  Require(parsed.Root() != nullptr, "what is published can be parsed");
  tvx::NotifyConfig config;
  if (tvx::ReadNotify(*parsed.Root(), config)) {
    Require(tvx::PrintDocument(*tvx::BuildNotifyDocument(config)) == published,
            "what is published is read as it was");
  }

  run.Plugin().Event(
      tvx::test::EventDocument(tvx::test::EventEntry(1) + tvx::test::EventEntry(2, true, "", "")));
  run.SomeFrames();
  run.Plugin().Tick();
  return 0;
}
