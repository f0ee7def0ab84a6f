// One program for all targets, as linking takes longer than running: FUZZ_TARGET in the environment
// names the one.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
#define FUZZ_ENTRY(name, function) {#name, tvx::test::function},
  static const std::map<std::string, void (*)(std::string_view)> targets = {
      FUZZ_TARGETS(FUZZ_ENTRY)};
  static const char* const name = std::getenv("FUZZ_TARGET");
  static const auto target = targets.find(name == nullptr ? "" : name);
  tvx::test::Require(target != targets.end(), "FUZZ_TARGET names one of the targets");
  target->second({reinterpret_cast<const char*>(data), size});
  return 0;
}
