// Input: whether mails are made in the end (one byte), then steps of a host, a byte of choice and
// its arguments each. Records hold whatever the input says; only what the host vouches for, that data
// points to so many bytes, is always true.
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz.h"
#include "fuzz/plugin_run.h"
#include "support/documents.h"

namespace tvx::test {
namespace {

// One of the usual values, or one of the input's own.
template <std::size_t count>
std::uint32_t TakeOneOf(const std::uint32_t (&usual)[count], std::string_view& input) {
  const std::size_t choice = TakeByte(input);
  return choice < count ? usual[choice] : TakeNumber<std::uint32_t>(input);
}

void WriteFrame(std::string_view& input, PluginRun& run) {
  WriteRequest record{};
  record.kind = RecordKind::Frame;
  record.addressee = kStreams[TakeByte(input) % 3];
  record.frameType = TakeByte(input) & 1U;
  record.payloadOffset = static_cast<std::uint32_t>(TakeByte(input));
  run.Plugin().WriteRecord(record, TakeBytes(input, TakeByte(input)));
}

void WriteAnything(std::string_view& input, PluginRun& run) {
  WriteRequest record;
  std::memset(&record, 0xA5, sizeof(record));
  record.kind = static_cast<RecordKind>(TakeOneOf({1, 32, 2}, input));
  record.addressee = TakeOneOf({66049, 66305, 66561, kModuleId, 0}, input);
  record.frameType = TakeOneOf({1, 0}, input);
  record.payloadOffset = TakeOneOf({0, 1, 8}, input);
  const std::size_t flags = TakeByte(input);
  record.skip = static_cast<std::uint8_t>(flags & 3 ? 0 : flags >> 2);
  record.frameFlag = static_cast<std::uint8_t>(TakeByte(input));
  run.Plugin().WriteRecord(record, TakeBytes(input, TakeNumber<std::uint16_t>(input)),
                           (flags & 0x80) != 0);
}

void Control(std::string_view& input, PluginRun& run) {
  const std::uint32_t code = TakeOneOf({4, 2}, input);
  const std::string_view payload = TakeBytes(input, TakeNumber<std::uint16_t>(input));
  // The worker would not come back, and a mail would ask the web server for its link.
  if (code == 1 || payload.find("Web") != std::string_view::npos) return;
  run.Plugin().Control(static_cast<ControlCode>(code), payload);
}

void ReportEvent(std::string_view& input, PluginRun& run) {
  const std::size_t facts = TakeByte(input);
  const std::string sources = "<EventSource Type='2' ID='" +
                              std::to_string(kStreams[(facts >> 2) % 3]) +
                              "'/><EventSource Type='2' ID='66049'/>";
  run.Plugin().Event(EventDocument(EventEntry(facts & 1 ? 2 : 1, (facts & 2) == 0, "", sources)));
}

void Step(std::string_view& input, PluginRun& run) {
  const auto step = static_cast<char>(TakeByte(input));
  if (step == 'w') return WriteAnything(input, run);
  if (step == 'c') return Control(input, run);
  if (step == 'e') return ReportEvent(input, run);
  if (step == 'p') return run.UpdateProfiles();
  if (step == 's') return run.UpdateSystem();
  // Long enough for half a turn of the clock.
  if (step == 'l') return run.Advance(static_cast<std::uint32_t>(TakeByte(input)) << 24);
  if (step == 'o') return static_cast<void>(run.Plugin().Open());
  if (step != 't') return WriteFrame(input, run);
  run.Advance(TakeNumber<std::uint16_t>(input));
  run.Plugin().Tick();
}

}  // namespace

void FuzzFrameRecord(std::string_view input) {
  PluginRun run;
  run.SetUp();
  // Mails take ten times as long as all the rest.
  const bool makesMails = TakeByte(input) % 4 == 0;
  while (!input.empty()) Step(input, run);
  if (makesMails) run.Deliver();
}

}  // namespace tvx::test
