// Input: notify.xml as it lies in the working folder when the plug-in is opened. What is saved
// thereupon is what the next start finds, whether the file was accepted or rejected.
#include <string>

#include "config/config_file.h"
#include "fuzz/input.h"
#include "fuzz/plugin_run.h"
#include "support/temporary_folder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tvx::test::Require;
  std::string published;
  std::string saved;
  {
    tvx::test::PluginRun run;
    tvx::test::WriteFile(tvx::kConfigFile, std::string(tvx::test::AsText(data, size)));
    run.Plugin().Open();
    published = run.Published();
    saved = tvx::test::ReadFile(tvx::kConfigFile);
  }
  Require(!published.empty() && !saved.empty(), "a configuration is saved and published");
  tvx::test::PluginRun run;
  tvx::test::WriteFile(tvx::kConfigFile, saved);
  run.Plugin().Open();
  Require(run.Published() == published, "what is saved is read again as it was");
  Require(tvx::test::ReadFile(tvx::kConfigFile) == saved, "and saved as it was");
  return 0;
}
