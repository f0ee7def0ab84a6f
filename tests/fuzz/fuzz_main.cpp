// One program for all targets, as linking takes longer than running: FUZZ_TARGET in the environment
// names the one.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/fuzz.h"

namespace {

using Target = void (*)(std::string_view input);

Target Chosen() {
  using namespace tvx::test;
  const std::map<std::string, Target> targets = {
      {"channel_chunk", FuzzChannelChunk},     {"date_template", FuzzDateTemplate},
      {"event_document", FuzzEventDocument},   {"frame_record", FuzzFrameRecord},
      {"h264_movie", FuzzH264Movie},           {"http_answer", FuzzHttpAnswer},
      {"login_answer", FuzzLoginAnswer},       {"mpeg4_movie", FuzzMpeg4Movie},
      {"notify_file", FuzzNotifyFile},         {"system_document", FuzzSystemDocument},
      {"update_document", FuzzUpdateDocument}, {"web_server_address", FuzzWebServerAddress},
  };
  const char* const name = std::getenv("FUZZ_TARGET");
  const auto target = targets.find(name == nullptr ? "" : name);
  if (target != targets.end()) return target->second;
  std::fputs("FUZZ_TARGET names none of the targets\n", stderr);
  std::exit(2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Target target = Chosen();
  target({reinterpret_cast<const char*>(data), size});
  return 0;
}
