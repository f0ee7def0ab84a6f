// The timeline as text, for people, and as JSON, for programs. Each event is described once, for
// both (event_printers.cpp).
//
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "simulated_host/secrets.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

// An event as people read it, without control characters. Calls between host and plug-in have
// neither: they are for programs.
struct EventText {
  std::string label;  // its kind, one word
  std::string text;
};
EventText DescribeForPeople(const HostEvent& event);

// One line for each event.
class TextPrinter : public TimelinePrinter {
 public:
  // The file is not owned.
  explicit TextPrinter(std::FILE* out) : out_(out) {}
  void Print(double seconds, const HostEvent& event) override;

 private:
  std::FILE* const out_;
};

// One JSON object a line for each event, with "time" (seconds) and "kind".
class JsonPrinter : public TimelinePrinter {
 public:
  // The file is not owned. With bytes: also the calls between host and plug-in, with their records
  // and payloads, and for every object the thread; secrets (secrets.h) are hidden in all of them.
  JsonPrinter(std::FILE* out, bool bytes) : out_(out), bytes_(bytes) {}
  void Print(double seconds, const HostEvent& event) override;

 private:
  void AddBytes(nlohmann::ordered_json& json, const HostEvent& event);
  std::string PayloadOf(const HostEvent& event);
  std::string WholeLines(const ChunkHeader& chunk, std::string_view output);

  std::FILE* const out_;
  const bool bytes_;
  Secrets secrets_;
  std::map<std::thread::id, int> threads_;  // numbered as they appear
  // Output of programs without a line end, by request and kind of chunk.
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> output_;
};

}  // namespace tvx::tool
