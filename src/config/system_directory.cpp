#include "config/system_directory.h"

#include <tinyxml.h>

#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "base/immortal.h"
#include "config/event_source_key.h"
#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

constexpr std::uint32_t kDeviceBits = 0x0FFF0000;
constexpr std::uint32_t kNumberBits = 0x0000FF00;
constexpr std::uint32_t kIndexBits = 0x000000FF;
constexpr std::uint32_t kAllButSubChannel = kDeviceBits | kNumberBits | kIndexBits;

// Streams of one camera differ in their sub-channel only.
constexpr std::uint32_t kCameraBits = kAllButSubChannel;

// The fields of an identifier by which entries of a kind are told apart.
std::uint32_t FieldsOf(NameKind kind) {
  switch (kind) {
    case NameKind::VideoInput:
    case NameKind::AudioInput:
      return 0xFFFFFFFFu;
    case NameKind::TriggerInput:
    case NameKind::TriggerOutput:
    case NameKind::PointOfSale:
      return kAllButSubChannel;
    case NameKind::Device:
      return kDeviceBits | kNumberBits;
    case NameKind::SourceGroup:
    case NameKind::SoftTrigger:
    case NameKind::TimeTrigger:
      return kDeviceBits | kIndexBits;
  }
  return 0;
}

SourceId WithoutIndex(SourceId id) {
  return {id.value & ~kIndexBits};
}

// The "ID" of a section: the device part of everything in it.
std::uint32_t SectionId(const TiXmlElement& section) {
  return PatternAttribute(section, "ID").value_or(0);
}

// A number as a field of an identifier, which keeps its low bits.
std::optional<std::uint32_t> FieldAttribute(const TiXmlElement& element, const char* name) {
  const auto number = IntAttribute(element, name);
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

}  // namespace

std::string StandInName(NameKind kind, SourceId id) {
  const std::string number = std::to_string(id.Number());
  const std::string index = std::to_string(id.Index());
  switch (kind) {
    case NameKind::Device:
      return "Device " + number;
    case NameKind::VideoInput:
      return "Video Input " + number + '-' + index;
    case NameKind::AudioInput:
      return "Audio Input " + number + '-' + index;
    case NameKind::TriggerInput:
      return "Trigger Input " + number + '-' + index;
    case NameKind::TriggerOutput:
      return "Trigger Output " + number + '-' + index;
    case NameKind::PointOfSale:
      return "Point of Sale " + number + '-' + index;
    case NameKind::SourceGroup:
      return "Source Group " + index;
    case NameKind::SoftTrigger:
      return "Soft Trigger " + index;
    case NameKind::TimeTrigger:
      return "Time Trigger " + index;
  }
  return {};
}

// Fills a directory from the sections of a document.
class SystemDirectory::Reader {
 public:
  Reader(SystemDirectory& directory, const TiXmlElement& root)
      : directory_(directory), root_(root) {}

  void Read() {
    for (const TiXmlElement& devices : Children(root_, "Devices")) {
      const std::uint32_t part = SectionId(devices);
      for (const TiXmlElement& device : Children(devices, "Device")) ReadDevice(device, part);
    }
    ReadPointsOfSale();
    ReadTriggers("SoftTriggers", "SoftTrigger", NameKind::SoftTrigger);
    ReadTriggers("TimeTriggers", "TimeTrigger", NameKind::TimeTrigger);
    for (const TiXmlElement& events : Children(root_, "Events")) {
      for (const TiXmlElement& group : Children(events, "SourceGroup")) ReadGroup(group);
    }
  }

 private:
  void AddName(NameKind kind, SourceId id, const char* name) {
    // An empty name says as little as none, and must not keep out a later entry that has one.
    if (name != nullptr && *name != '\0') directory_.names_.emplace(KeyOf(kind, id), name);
  }

  void ReadDevice(const TiXmlElement& device, std::uint32_t part) {
    const auto number = FieldAttribute(device, "Number");
    if (!number) return;
    const SourceId id = MakeSourceId(0, part, *number, 0);
    AddName(NameKind::Device, id, device.Attribute("Name"));
    for (const TiXmlElement& context : Children(device, "Context")) ReadContext(context, id);
    for (const TiXmlElement& trigger : Children(device, "Trigger")) {
      ReadItems(trigger, "Input", NameKind::TriggerInput, id);
      ReadItems(trigger, "Output", NameKind::TriggerOutput, id);
    }
  }

  // Names the items of one device or context, whose identifiers differ in the index only. Returns
  // the index of the first item; nothing when there is none.
  std::optional<std::uint32_t> ReadItems(const TiXmlElement& parent, const char* element,
                                         NameKind kind, SourceId owner) {
    std::optional<std::uint32_t> first;
    for (const TiXmlElement& item : Children(parent, element)) {
      const auto number = FieldAttribute(item, "Number");
      if (!number) continue;
      if (!first) first = number;
      AddName(kind, {owner.value | (*number & kIndexBits)}, item.Attribute("Name"));
    }
    return first;
  }

  void ReadContext(const TiXmlElement& context, SourceId device) {
    const std::uint32_t subChannel = FieldAttribute(context, "Number").value_or(0);
    const SourceId owner{device.value | subChannel << 28};
    std::optional<std::uint32_t> firstInput;
    for (const TiXmlElement& video : Children(context, "Video")) {
      const auto first = ReadItems(video, "Input", NameKind::VideoInput, owner);
      if (!firstInput) firstInput = first;
    }
    for (const TiXmlElement& audio : Children(context, "Audio")) {
      ReadItems(audio, "Input", NameKind::AudioInput, owner);
    }
    for (const TiXmlElement& codec : Children(context, "Codec")) {
      for (const TiXmlElement& encoder : Children(codec, "Encoder")) {
        for (const TiXmlElement& channel : Children(encoder, "Channel")) {
          ReadStream(channel, owner, firstInput.value_or(0));
        }
      }
    }
  }

  void ReadStream(const TiXmlElement& channel, SourceId owner, std::uint32_t defaultIndex) {
    const auto number = FieldAttribute(channel, "Number");
    VideoStream stream;
    stream.source = {owner.value | (number.value_or(defaultIndex) & kIndexBits)};
    const std::uint32_t id = PatternAttribute(channel, "ID").value_or(stream.source.value);
    stream.format.ID = static_cast<std::int32_t>(id);
    stream.format.Number = number ? static_cast<std::int32_t>(*number) : -1;
    stream.format.Width = IntAttribute(channel, "Width").value_or(0);
    stream.format.Height = IntAttribute(channel, "Height").value_or(0);
    stream.format.Standard = IntAttribute(channel, "Standard").value_or(0);

    const std::size_t at = directory_.streams_.size();
    // A second stream with the same identifier stays out altogether: found by its source, it would
    // show the frames of the first one's camera.
    if (!directory_.byStreamId_.emplace(stream.format.ID, at).second) return;
    directory_.streams_.push_back(stream);
    directory_.bySource_.emplace(stream.source.value, at);
    directory_.byCamera_[id & kCameraBits].push_back(at);
  }

  void ReadPointsOfSale() {
    std::unordered_map<std::int32_t, const char*> profiles;
    for (const TiXmlElement& section : Children(root_, "POSATM")) {
      const std::uint32_t part = SectionId(section);
      for (const TiXmlElement& profile : Children(section, "Profile")) {
        const auto number = IntAttribute(profile, "Number");
        const char* name = profile.Attribute("Name");
        if (!number || name == nullptr || *name == '\0') continue;
        profiles.emplace(*number, name);
        const SourceId id = MakeSourceId(0, part, static_cast<std::uint32_t>(*number), 0);
        AddName(NameKind::PointOfSale, id, name);
      }
    }
    for (const TiXmlElement& section : Children(root_, "Serial")) {
      const std::uint32_t part = SectionId(section);
      for (const TiXmlElement& input : Children(section, "Input")) {
        const auto device = FieldAttribute(input, "Device");
        const auto profile = IntAttribute(input, "Profile");
        if (!device || !profile) continue;
        const auto found = profiles.find(*profile);
        if (found == profiles.end()) continue;
        for (const char* stream : {"StreamID", "RawStreamID"}) {
          const auto index = FieldAttribute(input, stream);
          if (!index) continue;
          AddName(NameKind::PointOfSale, MakeSourceId(0, part, *device, *index), found->second);
        }
      }
    }
  }

  void ReadTriggers(const char* section, const char* element, NameKind kind) {
    for (const TiXmlElement& triggers : Children(root_, section)) {
      ReadItems(triggers, element, kind, MakeSourceId(0, SectionId(triggers), 0, 0));
    }
  }

  void ReadGroup(const TiXmlElement& group) {
    if (!PatternAttribute(group, "ID")) return;
    const SourceId id = ReadSourceGroupReference(&group).source;
    AddName(NameKind::SourceGroup, id, group.Attribute("Name"));
    for (const TiXmlElement& entry : Children(group, "Entry")) {
      const EventReference member = GroupMember(entry);
      if (member.source.value == 0) continue;
      if (!members_.emplace(id, member.source, member.type).second) continue;
      directory_.groups_[id.value].push_back(member);
    }
  }

  SystemDirectory& directory_;
  const TiXmlElement& root_;
  std::set<std::tuple<SourceId, SourceId, std::int32_t>> members_;  // group, source, type
};

SystemDirectory::SystemDirectory(const TiXmlElement& root) {
  Reader(*this, root).Read();
}

std::string SystemDirectory::Name(NameKind kind, SourceId id) const {
  const std::string* name = FindName(kind, id);
  if (name == nullptr && kind == NameKind::PointOfSale) name = FindName(kind, WithoutIndex(id));
  return name == nullptr ? StandInName(kind, id) : *name;
}

const VideoStream* SystemDirectory::FindStream(std::int32_t streamId) const {
  const auto found = byStreamId_.find(streamId);
  return found == byStreamId_.end() ? nullptr : &streams_[found->second];
}

const VideoStream* SystemDirectory::StreamOfSource(SourceId source) const {
  const auto found = bySource_.find(source.value);
  return found == bySource_.end() ? nullptr : &streams_[found->second];
}

std::vector<const VideoStream*> SystemDirectory::StreamsOfCamera(std::int32_t streamId) const {
  std::vector<const VideoStream*> streams;
  const auto found = byCamera_.find(static_cast<std::uint32_t>(streamId) & kCameraBits);
  if (found == byCamera_.end()) return streams;
  streams.reserve(found->second.size());
  for (const std::size_t at : found->second) streams.push_back(&streams_[at]);
  return streams;
}

const std::vector<EventReference>& SystemDirectory::GroupMembers(SourceId group) const {
  static const Immortal<std::vector<EventReference>> none;
  const auto found = groups_.find(group.value);
  return found == groups_.end() ? none.value : found->second;
}

SystemDirectory::NameKey SystemDirectory::KeyOf(NameKind kind, SourceId id) {
  return static_cast<NameKey>(kind) << 32 | (id.value & FieldsOf(kind));
}

const std::string* SystemDirectory::FindName(NameKind kind, SourceId id) const {
  const auto found = names_.find(KeyOf(kind, id));
  return found == names_.end() ? nullptr : &found->second;
}

}  // namespace tvx
