// Input: whether mails are made in the end (one byte), then steps of a host, a byte of choice and
// its arguments each. Records hold whatever the input
// says; only what the host vouches for, that data points to so many bytes, is always true.
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "fuzz/plugin_run.h"
#include "support/documents.h"

namespace {

using tvx::test::EventDocument;
using tvx::test::EventEntry;
using tvx::test::TakeByte;

std::string_view TakeBytes(std::string_view& input, std::size_t count) {
  const std::string_view bytes = input.substr(0, count);
  input.remove_prefix(bytes.size());
  return bytes;
}

// What is missing at the end of the input is 0.
template <typename Number>
Number TakeNumber(std::string_view& input) {
  Number number = 0;
  const std::string_view bytes = TakeBytes(input, sizeof(number));
  std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}

// One of the usual values, or one of the input's own.
template <std::size_t count>
std::uint32_t TakeOneOf(const std::uint32_t (&usual)[count], std::string_view& input) {
  const std::size_t choice = TakeByte(input);
  return choice < count ? usual[choice] : TakeNumber<std::uint32_t>(input);
}

constexpr std::uint32_t kStreamsAndModule[] = {66049, 66305, 66561, tvx::kModuleId, 0};
constexpr std::uint32_t kKinds[] = {1, 32, 2};
constexpr std::uint32_t kFrameTypes[] = {1, 0};
constexpr std::uint32_t kOffsets[] = {0, 1, 8};

void WriteFrame(std::string_view& input, tvx::test::PluginRun& run) {
  tvx::WriteRequest record{};
  record.kind = tvx::RecordKind::Frame;
  record.addressee = tvx::test::kStreams[TakeByte(input) % 3];
  record.frameType = TakeByte(input) & 1U;
  record.payloadOffset = static_cast<std::uint32_t>(TakeByte(input));
  run.Plugin().WriteRecord(record, TakeBytes(input, TakeByte(input)));
}

void WriteAnything(std::string_view& input, tvx::test::PluginRun& run) {
  tvx::WriteRequest record;
  std::memset(&record, 0xA5, sizeof(record));
  record.kind = static_cast<tvx::RecordKind>(TakeOneOf(kKinds, input));
  record.addressee = TakeOneOf(kStreamsAndModule, input);
  record.frameType = TakeOneOf(kFrameTypes, input);
  record.payloadOffset = TakeOneOf(kOffsets, input);
  const std::size_t flags = TakeByte(input);
  record.skip = static_cast<std::uint8_t>(flags & 3 ? 0 : flags >> 2);
  record.frameFlag = static_cast<std::uint8_t>(TakeByte(input));
  run.Plugin().WriteRecord(record, TakeBytes(input, TakeNumber<std::uint16_t>(input)),
                           (flags & 0x80) != 0);
}

void Control(std::string_view& input, tvx::test::PluginRun& run) {
  constexpr std::uint32_t kCodes[] = {4, 2};
  const std::uint32_t code = TakeOneOf(kCodes, input);
  const std::string_view payload = TakeBytes(input, TakeNumber<std::uint16_t>(input));
  // The worker would not come back, and a mail would ask the web server for its link.
  if (code == 1 || payload.find("Web") != std::string_view::npos) return;
  run.Plugin().Control(static_cast<tvx::ControlCode>(code), payload);
}

void ReportEvent(std::string_view& input, tvx::test::PluginRun& run) {
  const std::size_t facts = TakeByte(input);
  run.Plugin().Event(EventDocument(EventEntry(
      facts & 1 ? 2 : 1, (facts & 2) == 0, "",
      "<EventSource Type='2' ID='" + std::to_string(tvx::test::kStreams[(facts >> 2) % 3]) +
          "'/><EventSource Type='2' ID='66049'/>")));
}

void Step(std::string_view& input, tvx::test::PluginRun& run) {
  switch (TakeByte(input)) {
    case 'w':
      return WriteAnything(input, run);
    case 'c':
      return Control(input, run);
    case 'e':
      return ReportEvent(input, run);
    case 't':
      run.Advance(TakeNumber<std::uint16_t>(input));
      run.Plugin().Tick();
      return;
    case 'l':  // long enough for half a turn of the clock
      return run.Advance(static_cast<std::uint32_t>(TakeByte(input)) << 24);
    case 'p':
      return run.UpdateProfiles();
    case 's':
      return run.UpdateSystem();
    case 'o':
      run.Plugin().Open();
      return;
    default:
      return WriteFrame(input, run);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tvx::test::PluginRun run;
  run.SetUp();
  std::string_view input = tvx::test::AsText(data, size);
  // Mails take ten times as long as all the rest.
  const bool makesMails = TakeByte(input) % 4 == 0;
  while (!input.empty()) Step(input, run);
  if (makesMails) run.Deliver();
  return 0;
}
