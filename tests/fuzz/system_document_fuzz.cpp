// Input: a full system document, or whatever else comes as an update. Frames and events of its
// cameras follow.
#include <string_view>

#include "fuzz/input.h"
#include "fuzz/plugin_run.h"
#include "support/documents.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document = tvx::test::AsText(data, size);
  // A mail would ask for its link there.
  if (document.find("Web") != std::string_view::npos) return 0;
  tvx::test::PluginRun run;
  run.UpdateProfiles();
  run.Plugin().Update(document);
  run.SomeFrames();
  const std::string sources =
      "<EventSource ID='66049' Type='2'/><EventSource ID='66305' Type='2'/>"
      "<EventSource ID='66561' Type='2'/>";
  run.Plugin().Event(
      tvx::test::EventDocument(tvx::test::EventEntry(1, true, "", sources) +
                               tvx::test::EventEntry(1, false, "", "<SourceGroup ID='3'/>")));
  run.SomeFrames();
  run.UpdateSystem();
  run.SomeFrames();
  run.Deliver();
  return 0;
}
