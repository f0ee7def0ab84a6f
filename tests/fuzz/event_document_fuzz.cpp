// Input: an event document. It finds profiles, cameras and frames in place, and what it asks for is
// cut, composed and handed to the worker.
#include "fuzz/input.h"
#include "fuzz/plugin_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tvx::test::PluginRun run;
  run.SetUp();
  run.SomeFrames();
  run.Plugin().Event(tvx::test::AsText(data, size));
  run.SomeFrames();
  run.Deliver();
  return 0;
}
