// The parsers of foreign bytes, each by itself.
#include <cstdint>
#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/percent_encode.h"
#include "config/templates.h"
#include "fuzz/fuzz.h"
#include "host/host_records.h"
#include "host/ipc_client.h"
#include "host/process_channel.h"
#include "web/http_answer.h"
#include "web/login_answer.h"
#include "web/web_server_address.h"

namespace tvx::test {

// Input: the event's time and type (four bytes and one), the subject on the first line, the body.
void FuzzDateTemplate(std::string_view input) {
  TemplateFacts facts;
  facts.eventTime = TakeNumber<std::int32_t>(input);
  facts.eventType = static_cast<std::int8_t>(TakeByte(input));
  // Texts of the system's own can hold braces, too.
  facts.sourceName = "Gate {date}";
  facts.systemName = "{time";
  facts.serial = "A-1001";
  facts.macAddress = "}";
  facts.eventState = "{event state}";

  std::string subject(TakeLine(input));
  std::string body(input);
  ContainsPlaceholder(body);
  int asked = 0;
  const auto webLink = [&asked] { return ++asked, std::string("http://{time format=\"%Y\"}/"); };
  ExpandTemplates(facts, webLink, subject, body);
  Require(asked <= 1, "the web server is asked at most once");
}

// What became of an answer: its body, the error text, or nothing while it is incomplete.
static std::string Outcome(std::string_view bytes, std::size_t pieceSize) {
  HttpAnswer answer;
  try {
    while (!bytes.empty()) answer.Append(TakeBytes(bytes, pieceSize));
  } catch (const std::runtime_error& error) {
    return std::string("error ") + error.what();
  }
  return answer.HasBody() ? "body " + answer.TakeBody() : "cut off";
}

// Input: the size of the pieces in which the answer arrives (one byte), then the answer.
void FuzzHttpAnswer(std::string_view input) {
  const std::size_t pieceSize = TakeByte(input) + 1;
  Require(Outcome(input, pieceSize) == Outcome(input, input.size()),
          "an answer means the same in one piece and in many");
}

// Input: the serial number on the first line, the answer behind it.
void FuzzLoginAnswer(std::string_view input) {
  const std::string_view serial = TakeLine(input);
  const LoginAnswer found = ScanLoginAnswer(input, serial);
  const bool listed = found.outcome == LoginAnswer::Outcome::Listed;
  Require(!listed || !serial.empty(), "an empty serial number matches nothing");
  Require(listed != found.serverIdEscaped.empty(), "an id comes with a listed system, and only so");
  Require(listed || (found.serverId.empty() && !found.newerSearchFormat),
          "nothing is said of a system that is not listed");

  // The escaped id goes between double-quote characters of another JSON text, so it must not end
  // there, nor swallow the character that does.
  bool escaped = false;
  for (const char c : found.serverIdEscaped) {
    Require(escaped || c != '"', "the escaped id holds no bare double-quote character");
    escaped = !escaped && c == '\\';
  }
  Require(!escaped, "the escaped id does not end in the middle of an escape");
}

// Input: the address as an administrator types it.
void FuzzWebServerAddress(std::string_view input) {
  const std::string text(input);
  const WebServerAddress address = ParseWebServerAddress(text);
  Require(text.find(address.host) != std::string::npos, "the host is part of the text");
  Require(address.hostPort.find(address.host) != std::string::npos, "the host is what is named");

  const std::string encoded = PercentEncode(text);
  std::string decoded = encoded;
  for (std::size_t at = 0; (at = decoded.find('%', at)) != std::string::npos; ++at) {
    Require(decoded.size() - at > 2, "two figures follow each percent sign");
    decoded.replace(at, 3, 1, static_cast<char>(std::stoi(decoded.substr(at + 1, 2), nullptr, 16)));
  }
  Require(decoded == text, "encoding loses nothing");
}

// Input: reports of the host on a program that was just launched (request 0xC00001), each behind
// its size in one byte.
void FuzzChannelChunk(std::string_view input) {
  const std::size_t size = input.size();
  ProcessChannel channel;
  std::promise<void> launched;
  channel.Register(kModuleId, [&](void* chunk, std::uint32_t) {
    std::free(chunk);
    launched.set_value();
    return true;
  });
  // A launch waits for the host, which is this thread.
  auto launch = std::async(std::launch::async, [&] {
    return channel.RunProgram({"./curl", "-V"});
  });
  launched.get_future().wait();
  while (!input.empty()) {
    // A block of exactly this size, so that reading beyond it is noticed.
    const std::string_view report = TakeBytes(input, TakeByte(input));
    const std::vector<char> chunk(report.begin(), report.end());
    channel.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
  }
  channel.Close();
  const std::shared_ptr<ipc::client> program = launch.get();
  std::size_t read = 0;
  for (const OutputStream stream : {OutputStream::Output, OutputStream::Errors}) {
    for (std::string line; ReadLine(*program, stream, line); read += line.size()) {
      Require(line.find('\n') == std::string::npos, "a line holds no line feed");
    }
  }
  Require(read <= size, "no more comes out than went in");
}

}  // namespace tvx::test
