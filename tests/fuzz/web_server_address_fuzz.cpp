// Input: the address as an administrator types it.
#include <string>

#include "fuzz/input.h"
#include "web/percent_encode.h"
#include "web/web_server_address.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tvx::test::Require;
  const std::string text(tvx::test::AsText(data, size));

  const tvx::WebServerAddress address = tvx::ParseWebServerAddress(text);
  Require(text.find(address.host) != std::string::npos, "the host is part of the text");
  Require(address.hostPort.find(address.host) != std::string::npos, "the host is what is named");

  const std::string encoded = tvx::PercentEncode(text);
  std::string decoded;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] != '%') {
      decoded.push_back(encoded[i]);
      continue;
    }
    Require(encoded.size() - i > 2, "two figures follow each percent sign");
    decoded.push_back(static_cast<char>(std::stoi(encoded.substr(i + 1, 2), nullptr, 16)));
    i += 2;
  }
  Require(decoded == text, "encoding loses nothing");
  return 0;
}
