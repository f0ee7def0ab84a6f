#include "soak/load.h"

#include <algorithm>
#include <cmath>

#include "simulated_host/camera_document.h"
#include "soak/message_key.h"

namespace tvx::soak {
namespace {

constexpr int kAction = 7;

// Profiles.
constexpr std::int32_t kPlain = 1;
constexpr std::int32_t kClip = 2;
constexpr std::int32_t kPicture = 3;
constexpr std::int32_t kSeldomPlain = 4;
constexpr std::int32_t kSeldomClips = 5;
constexpr std::int32_t kNone = 99;  // that there is not

enum class Edge { Start = 0, End = 1, Both = 2 };

struct Profile {
  std::int32_t id;
  bool attach;
  int clipSeconds;
  int throttle;
  Edge edge;
};
constexpr Profile kProfiles[] = {{kPlain, false, 0, 0, Edge::Both},
                                 {kClip, true, 2, 0, Edge::Start},
                                 {kPicture, true, 0, 0, Edge::Start},
                                 {kSeldomPlain, false, 0, 5, Edge::Both},
                                 {kSeldomClips, true, 2, 3, Edge::End}};

// Within a round.
struct Span {
  double begin;
  double end;
};
constexpr Span kOutages[] = {{20, 26}, {70, 78}, {123, 128}};
constexpr double kConfigurationsEnd = 60;
constexpr double kConfigurationInterval = 4;
constexpr double kSystemDocumentInterval = 15;

Mention MentionOf(std::int32_t id, bool isStart) {
  for (const Profile& profile : kProfiles) {
    if (profile.id != id) continue;
    const Edge edge = isStart ? Edge::Start : Edge::End;
    return {id, true, profile.edge == Edge::Both || profile.edge == edge, profile.throttle};
  }
  return {id, false, false, 0};
}

std::string Entry(std::int32_t profile, bool isStart, std::int32_t number,
                  const std::vector<std::uint32_t>& sources) {
  std::string text = "<Profile ID=\"" + std::to_string(profile) + "\" Alarm=\"" +
                     (isStart ? "1" : "0") + "\" Action=\"" + std::to_string(kAction) +
                     "\" Time=\"" + std::to_string(kFirstEventTime + number) +
                     "\" Milliseconds=\"0\">";
  for (const std::uint32_t source : sources) {
    text += "<EventSource ID=\"" + std::to_string(source) + "\" Type=\"2\"/>";
  }
  return text + "</Profile>";
}

std::string EventDocument(const std::string& entries) {
  return "<tDVR><Servers><Server Serial=\"A-1001\" Description=\"Main building\"/></Servers>"
         "<Notify ID=\"786432\"><Profiles>" +
         entries + "</Profiles></Notify></tDVR>";
}

std::string Escaped(const char* text) {
  std::string escaped;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c == '"') {
      escaped += "&quot;";
    } else {
      escaped += *c;
    }
  }
  return escaped;
}

std::string ProfileElement(const Profile& profile, int number) {
  const std::string id = std::to_string(profile.id);
  return "<smtp ID=\"" + id + "\" description=\"P" + id + "\" attach=\"" +
         (profile.attach ? "1" : "0") + "\" MaxVideoSeconds=\"" +
         std::to_string(profile.clipSeconds) + "\" ThrottleSeconds=\"" +
         std::to_string(profile.throttle) + "\" EventEdge=\"" +
         std::to_string(static_cast<int>(profile.edge)) + "\" from=\"nvr@example.com\" subject=\"" +
         id + " " + Escaped(kSubjectDate) +
         "\"><to>guard@example.com</to><cc>office@example.com</cc><body>{event type} at {source} "
         "of {system name}, {event state}. Configuration " +
         std::to_string(number) + ".&#13;&#10;</body></smtp>";
}

double InRound(double seconds) {
  return std::fmod(seconds, kRound);
}

}  // namespace

EventSource::EventSource(const std::vector<tool::Camera>& cameras) : cameras_(cameras) {}

const tool::Camera& EventSource::AnyCamera(bool stillImages) {
  for (;;) {
    const tool::Camera& camera = cameras_[random_() % cameras_.size()];
    if ((camera.codec == tool::VideoCodec::Jpeg) == stillImages) return camera;
  }
}

Event EventSource::Make(std::int32_t number, bool isBehind) {
  constexpr int kSlotOfThrottled = 1;
  bool isStart = true;
  std::vector<std::int32_t> profiles;
  bool stillImages = false;
  switch (isBehind ? kSlotOfThrottled : number % kEventsPerSecond) {
    case 0:
    case 5:
    case 10:
    case 15:
      isStart = random_() % 2 == 0;
      profiles = {kPlain};
      break;
    case 3:
    case 13:
      profiles = {kClip};
      break;
    case 7:
      profiles = {kPicture};
      stillImages = true;
      break;
    case 8:
      isStart = false;
      profiles = {kClip};
      break;
    case 9:
      profiles = {kNone};
      break;
    default:
      isStart = number % 2 == 0;
      profiles = {kSeldomPlain, kSeldomClips};
  }
  const std::vector<std::uint32_t> sources = {AnyCamera(stillImages).stream,
                                              AnyCamera(stillImages).stream};
  Event event;
  std::string entries;
  for (const std::int32_t profile : profiles) {
    event.mentions.push_back(MentionOf(profile, isStart));
    const bool both = profile == kSeldomClips;
    entries += Entry(profile, isStart, number, {sources.begin(), sources.end() - (both ? 0 : 1)});
  }
  event.document = EventDocument(entries);
  return event;
}

std::string ConfigurationOf(int number, int mailServerPort) {
  std::string text =
      "<tDVR Delta=\"1\"><Notify ID=\"786432\" MaxRetrySeconds=\"50\" MaxRetryQueue=\"40\" "
      "EmailSizeLimitMB=\"1\"><Servers><smtp description=\"Sink\" address=\"127.0.0.1\" port=\"" +
      std::to_string(mailServerPort) +
      "\" UseSSL=\"0\"/></Servers><Profiles autoincrement=\"100\">";
  for (const Profile& profile : kProfiles) text += ProfileElement(profile, number);
  return text + "</Profiles></Notify></tDVR>";
}

std::string SystemDocumentOf(int number, const std::vector<tool::Camera>& cameras) {
  std::vector<tool::Camera> present = cameras;
  if (number % 2 == 1) {
    const auto still = std::find_if(present.begin(), present.end(), [](const tool::Camera& it) {
      return it.codec == tool::VideoCodec::Jpeg;
    });
    present.erase(still);
  }
  return tool::MakeSystemDocument(present, {EventDocument(Entry(kPlain, true, 0, {}))});
}

bool MailServerIsUp(double seconds) {
  return std::none_of(std::begin(kOutages), std::end(kOutages), [&](const Span& outage) {
    return outage.begin <= InRound(seconds) && InRound(seconds) < outage.end;
  });
}

int ConfigurationsUntil(double seconds) {
  const double rounds = std::floor(seconds / kRound);
  const double within = std::min(InRound(seconds), kConfigurationsEnd);
  return static_cast<int>(rounds * kConfigurationsEnd / kConfigurationInterval +
                          std::floor(within / kConfigurationInterval));
}

int SystemDocumentsUntil(double seconds) {
  return static_cast<int>(seconds / kSystemDocumentInterval);
}

}  // namespace tvx::soak
