#include "simulated_host/camera_document.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstdint>
#include <set>

#include "config/source_id.h"
#include "config/stream_format.h"
#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx::tool {
namespace {

constexpr int kDefaultAction = 1;

// What the event documents refer to.
struct References {
  std::set<std::int32_t> actions;
  std::set<std::int32_t> groups;
};

void Collect(const TiXmlElement& element, References& references) {
  if (const auto action = IntAttribute(element, "Action")) references.actions.insert(*action);
  const auto id = IntAttribute(element, "ID");
  if (id && element.ValueStr() == "SourceGroup") references.groups.insert(*id);
  for (const TiXmlElement& child : Children(element)) Collect(child, references);
}

int Standard(VideoCodec codec) {
  return codec == VideoCodec::H264    ? standard::kH264
         : codec == VideoCodec::Mpeg4 ? standard::kMpeg4
                                      : standard::kJpeg;
}

std::string Attribute(const char* name, std::uint32_t value) {
  return std::string(" ") + name + "='" + std::to_string(value) + "'";
}

// The content belongs to the context that the stream is of.
std::string InContext(SourceId source, const std::string& content) {
  return "<Devices" + Attribute("ID", source.DevicePart()) + "><Device" +
         Attribute("Number", source.Number()) + "><Context" +
         Attribute("Number", source.SubChannel()) + ">" + content + "</Context></Device></Devices>";
}

std::string Input(SourceId source) {
  return "<Video><Input" + Attribute("Number", source.Index()) + "/></Video>";
}

std::string Channel(const Camera& camera) {
  return "<Codec><Encoder><Channel" + Attribute("ID", camera.stream) +
         Attribute("Number", SourceId{camera.stream}.Index()) +
         Attribute("Width", static_cast<std::uint32_t>(camera.width)) +
         Attribute("Height", static_cast<std::uint32_t>(camera.height)) +
         Attribute("Standard", static_cast<std::uint32_t>(Standard(camera.codec))) +
         "/></Encoder></Codec>";
}

}  // namespace

std::string MakeSystemDocument(const std::vector<Camera>& cameras,
                               const std::vector<std::string>& eventDocuments) {
  constexpr std::uint32_t kWithoutSubChannel = 0x0FFFFFFF;
  References references;
  for (const std::string& text : eventDocuments) {
    const ParsedDocument document = ParseDocument(text.data(), text.size());
    if (document.Root() != nullptr) Collect(*document.Root(), references);
  }
  if (references.actions.empty()) references.actions.insert(kDefaultAction);

  std::string streams;
  std::vector<SourceId> inputs;
  for (const Camera& camera : cameras) {
    const SourceId source{camera.stream};
    // A stream without a camera of its own is seen as one.
    const bool isCamera =
        camera.stream <= kWithoutSubChannel ||
        std::none_of(cameras.begin(), cameras.end(), [&camera](const Camera& other) {
          return other.stream == (camera.stream & kWithoutSubChannel);
        });
    if (isCamera) inputs.push_back(source);
    streams += InContext(source, (isCamera ? Input(source) : "") + Channel(camera));
  }
  std::string events;
  for (const std::int32_t id : references.groups) {
    events += "<SourceGroup ID='" + std::to_string(id) + "'>";
    for (const SourceId source : inputs) {
      events += "<Entry>" + InContext(source, Input(source)) + "</Entry>";
    }
    events += "</SourceGroup>";
  }
  for (const std::int32_t action : references.actions) {
    for (const SourceId source : inputs) {
      events += "<Event ID='" + std::to_string(action) + "'" +
                Attribute("PreAlarm", kPreAlarmSeconds) + ">" + InContext(source, Input(source)) +
                "<Action><Notify/></Action></Event>";
    }
  }
  return "<tDVR Delta='0'>" + streams + "<Events>" + events + "</Events></tDVR>";
}

}  // namespace tvx::tool
