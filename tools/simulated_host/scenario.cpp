#include "simulated_host/scenario.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "simulated_host/camera_document.h"

namespace tvx::tool {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  // Whatever else it is, a pipe perhaps, may never come to an end.
  if (error || !fs::is_regular_file(status)) {
    throw ScenarioError("cannot read " + path + ": " +
                        (error ? error.message() : "it is no regular file"));
  }
  std::ostringstream text;
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  // The end of an empty file is a failure of the copy, too.
  if (!file.is_open() || (!(text << file.rdbuf()) && errno != 0)) {
    throw ScenarioError("cannot read " + path + ": " + std::generic_category().message(errno));
  }
  return text.str();
}

// What follows the first word of a line, without blanks around it.
std::string Rest(std::istream& words) {
  std::string rest;
  std::getline(words >> std::ws, rest);
  while (!rest.empty() && (rest.back() == ' ' || rest.back() == '\t' || rest.back() == '\r')) {
    rest.pop_back();
  }
  return rest;
}

double ReadSeconds(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  constexpr double kLongest = 366 * 24 * 3600.0;
  if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds < 0) {
    throw ScenarioError("\"wait\" is followed by seconds, \"idle\" or \"delivered N\", not \"" +
                        text + "\"");
  }
  if (seconds > kLongest) throw ScenarioError("nobody waits longer than a year");
  return seconds;
}

int ReadCount(const std::string& text) {
  int count = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, count);
  if (result.ec != std::errc() || result.ptr != end || count < 1) {
    throw ScenarioError("\"wait delivered\" is followed by a number from 1");
  }
  return count;
}

Step ReadWait(std::istream& words) {
  std::string what;
  words >> what;
  const std::string argument = Rest(words);
  if (what == "delivered") return AwaitDelivered{ReadCount(argument)};
  if (!argument.empty()) throw ScenarioError("nothing can follow \"wait " + what + "\"");
  if (what == "idle") return AwaitIdle{};
  return Pause{ReadSeconds(what)};
}

Step ReadStep(const std::string& line, const fs::path& folder) {
  std::istringstream words(line);
  std::string word;
  words >> word;
  if (word == "wait") return ReadWait(words);
  const std::string argument = Rest(words);
  if (word == "camera") return ReadCameraStep(argument, folder.string());
  if (word == "mail-server") {
    if (argument == "up") return SetMailServer{true};
    if (argument == "down") return SetMailServer{false};
    throw ScenarioError("\"mail-server\" is followed by \"up\" or \"down\"");
  }
  if (word == "tick") {
    if (!argument.empty()) throw ScenarioError("nothing can follow \"tick\"");
    return SendTick{};
  }
  constexpr std::pair<const char*, DocumentKind> kDocuments[] = {{"system", DocumentKind::System},
                                                                 {"update", DocumentKind::Update},
                                                                 {"event", DocumentKind::Event}};
  for (const auto& [name, kind] : kDocuments) {
    if (word != name) continue;
    if (argument.empty()) throw ScenarioError("\"" + word + "\" is followed by a file name");
    return ReadDocument(kind, (folder / argument).string());
  }
  throw ScenarioError("unknown step \"" + word + "\"");
}

}  // namespace

SendDocument ReadDocument(DocumentKind kind, const std::string& path) {
  return {kind, path, ReadFile(path)};
}

StartCamera ReadCameraStep(const std::string& text, const std::string& folder) {
  try {
    return {ReadCamera(text, folder)};
  } catch (const CameraError& error) {
    throw ScenarioError(error.what());
  }
}

std::vector<Step> ReadScenario(const std::string& path, bool hasMailServer) {
  std::istringstream lines(ReadFile(path));
  const fs::path folder = fs::path(path).parent_path();
  std::vector<Step> steps;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    try {
      steps.push_back(ReadStep(line, folder));
      if (!hasMailServer && std::holds_alternative<SetMailServer>(steps.back())) {
        throw ScenarioError("a step with the mail server, but --mail-server is missing");
      }
    } catch (const ScenarioError& error) {
      throw ScenarioError(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  return steps;
}

void CompleteCameras(std::vector<Step>& steps) {
  std::vector<Camera> cameras;
  std::vector<std::string> events;
  auto first = steps.end();
  for (auto step = steps.begin(); step != steps.end(); ++step) {
    if (const auto* start = std::get_if<StartCamera>(&*step)) {
      if (cameras.empty()) first = step;
      cameras.push_back(start->camera);
    } else if (const auto* document = std::get_if<SendDocument>(&*step)) {
      if (document->kind == DocumentKind::System) return;
      if (document->kind == DocumentKind::Event) events.push_back(document->text);
    }
  }
  if (cameras.empty()) return;
  steps.insert(first, SendDocument{DocumentKind::System, "made for the cameras",
                                   MakeSystemDocument(cameras, events)});
}

}  // namespace tvx::tool
