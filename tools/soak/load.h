// What the host asks of the plug-in: the profiles, the events 20 times a second, and when the mail
// server goes and documents come.
//
// The worker sends one mail at a time, so what is accepted must be less than what it can send: about
// 7.5 notifications a second, of which 3 have clips or pictures. All other events are for profiles
// that are throttled, that do not notify of this edge, or that do not exist. On a machine that is
// too busy for that, more of the events are for throttled profiles: a queue that grows shows nothing.
// Threads: any; values and pure functions.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "simulated_host/camera.h"
#include "soak/ledger.h"

namespace tvx::soak {

constexpr int kEventsPerSecond = 20;

// Notifications under way that are as many as it needs.
constexpr std::uint64_t kEnoughUnderWay = 25;

struct Event {
  std::vector<Mention> mentions;
  std::string document;
};

class EventSource {
 public:
  explicit EventSource(const std::vector<tool::Camera>& cameras);

  // The event of this number; numbers are asked for in their order. isBehind: many notifications
  // are under way.
  Event Make(std::int32_t number, bool isBehind);

 private:
  const tool::Camera& AnyCamera(bool stillImages);

  const std::vector<tool::Camera>& cameras_;
  std::mt19937 random_{1};
};

// The configuration document of this number: mail server, profiles, and a text that is another one
// each time, so that every profile is reported as changed.
std::string ConfigurationOf(int number, int mailServerPort);

// The system document of this number: every second one lacks a camera of still images.
std::string SystemDocumentOf(int number, const std::vector<tool::Camera>& cameras);

// What is to be at a moment of the run, in seconds from its beginning. It repeats itself after
// kRound: first configurations are changed, which clears the retry queue time and again; then they
// are left alone for long enough that a round of retries comes. In both parts the mail server goes
// away for a while, and once it does so at the time of the retries.
constexpr double kRound = 150;
bool MailServerIsUp(double seconds);
int ConfigurationsUntil(double seconds);
int SystemDocumentsUntil(double seconds);

}  // namespace tvx::soak
