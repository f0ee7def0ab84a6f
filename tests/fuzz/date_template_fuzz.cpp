// Input: the event's time and type (four bytes and one), the subject on the first line, the body.
#include <cstring>
#include <string>

#include "config/templates.h"
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = tvx::test::AsText(data, size);
  tvx::TemplateFacts facts;
  std::int32_t time = 0;
  if (input.size() < sizeof(time)) return 0;
  std::memcpy(&time, input.data(), sizeof(time));
  input.remove_prefix(sizeof(time));
  facts.eventTime = time;
  facts.eventType = static_cast<std::int8_t>(tvx::test::TakeByte(input));
  // Texts of the system's own can hold braces, too.
  facts.sourceName = "Gate {date}";
  facts.systemName = "{time";
  facts.serial = "A-1001";
  facts.macAddress = "}";
  facts.eventState = "{event state}";

  std::string subject(tvx::test::TakeLine(input));
  std::string body(input);
  tvx::ContainsPlaceholder(body);
  int asked = 0;
  const auto webLink = [&asked] {
    ++asked;
    return std::string("http://{time format=\"%Y\"}/");
  };
  tvx::ExpandTemplates(facts, webLink, subject, body);
  tvx::test::Require(asked <= 1, "the web server is asked at most once");
  return 0;
}
