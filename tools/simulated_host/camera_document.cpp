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
  const std::string& name = element.ValueStr();
  const auto add = [&element](const char* attribute, std::set<std::int32_t>& to) {
    if (const auto value = IntAttribute(element, attribute)) to.insert(*value);
  };
  add("Action", references.actions);
  if (name == "SourceGroup") add("ID", references.groups);
  for (const TiXmlElement& child : Children(element)) Collect(child, references);
}

References ReferencesOf(const std::vector<std::string>& eventDocuments) {
  References references;
  for (const std::string& text : eventDocuments) {
    const ParsedDocument document = ParseDocument(text.data(), text.size());
    if (document.Root() != nullptr) Collect(*document.Root(), references);
  }
  if (references.actions.empty()) references.actions.insert(kDefaultAction);
  return references;
}

int Standard(VideoCodec codec) {
  switch (codec) {
    case VideoCodec::H264:
      return standard::kH264;
    case VideoCodec::Mpeg4:
      return standard::kMpeg4;
    case VideoCodec::Jpeg:
      break;
  }
  return standard::kJpeg;
}

int Int(std::uint32_t number) {
  return static_cast<int>(number);
}

// The "Context" of a stream, below its "Devices" and its "Device".
TiXmlElement& AppendContext(TiXmlNode& parent, SourceId source) {
  TiXmlElement& devices = AppendElement(parent, "Devices");
  devices.SetAttribute("ID", Int(source.DevicePart()));
  TiXmlElement& device = AppendElement(devices, "Device");
  device.SetAttribute("Number", Int(source.Number()));
  TiXmlElement& context = AppendElement(device, "Context");
  context.SetAttribute("Number", Int(source.SubChannel()));
  return context;
}

void AppendInput(TiXmlElement& context, SourceId source) {
  TiXmlElement& input = AppendElement(AppendElement(context, "Video"), "Input");
  input.SetAttribute("Number", Int(source.Index()));
}

void AppendStream(TiXmlElement& root, const Camera& camera, bool isCamera) {
  const SourceId source{camera.stream};
  TiXmlElement& context = AppendContext(root, source);
  if (isCamera) AppendInput(context, source);
  TiXmlElement& channel =
      AppendElement(AppendElement(AppendElement(context, "Codec"), "Encoder"), "Channel");
  channel.SetAttribute("ID", std::to_string(camera.stream));
  channel.SetAttribute("Number", Int(source.Index()));
  channel.SetAttribute("Width", camera.width);
  channel.SetAttribute("Height", camera.height);
  channel.SetAttribute("Standard", Standard(camera.codec));
}

}  // namespace

std::string MakeSystemDocument(const std::vector<Camera>& cameras,
                               const std::vector<std::string>& eventDocuments) {
  constexpr std::uint32_t kWithoutSubChannel = 0x0FFFFFFF;
  const References references = ReferencesOf(eventDocuments);
  // A stream without a camera of its own is seen as one.
  const auto isCamera = [&cameras](const Camera& it) {
    return it.stream <= kWithoutSubChannel ||
           std::none_of(cameras.begin(), cameras.end(), [&it](const Camera& other) {
             return other.stream == (it.stream & kWithoutSubChannel);
           });
  };

  const auto document = NewDocument();
  TiXmlElement& root = AppendElement(*document, "tDVR");
  root.SetAttribute("Delta", 0);
  for (const Camera& camera : cameras) AppendStream(root, camera, isCamera(camera));
  TiXmlElement& events = AppendElement(root, "Events");
  for (const std::int32_t id : references.groups) {
    TiXmlElement& group = AppendElement(events, "SourceGroup");
    group.SetAttribute("ID", id);
    for (const Camera& camera : cameras) {
      if (!isCamera(camera)) continue;
      const SourceId source{camera.stream};
      AppendInput(AppendContext(AppendElement(group, "Entry"), source), source);
    }
  }
  for (const std::int32_t action : references.actions) {
    for (const Camera& camera : cameras) {
      if (!isCamera(camera)) continue;
      TiXmlElement& event = AppendElement(events, "Event");
      event.SetAttribute("ID", action);
      event.SetAttribute("PreAlarm", kPreAlarmSeconds);
      const SourceId source{camera.stream};
      AppendInput(AppendContext(event, source), source);
      AppendElement(AppendElement(event, "Action"), "Notify");
    }
  }
  return PrintDocument(*document);
}

}  // namespace tvx::tool
