// The documents that a host hands to the plug-in, built from the parts that a case cares for; for
// tests, fault sweep, fuzz targets and benchmarks alike.
//
// Attributes are passed as they stand in XML ("MaxRetryQueue='3' SSL='2'"); those that are not named
// get usual values where a document needs some. Nothing is escaped.
#pragma once

#include <cstdint>
#include <string>

namespace tvx::test {

// An attribute that is there unless the case names it itself.
inline std::string Usually(const std::string& attributes, const std::string& name,
                           const std::string& value) {
  if ((" " + attributes).find(" " + name + "=") != std::string::npos) return {};
  return " " + name + "='" + value + "'";
}

// "tDVR" around the content. Delta 1 is a change, 0 a full system document.
inline std::string Root(const std::string& content, const std::string& attributes = "") {
  return "<tDVR " + attributes + ">" + content + "</tDVR>";
}
inline std::string Change(const std::string& content) {
  return Root(content, "Delta='1'");
}
inline std::string SystemDocument(const std::string& content) {
  return Root(content, "Delta='0'");
}

// --- notification configuration -----------------------------------------------------------------

inline constexpr const char* kServer =
    "<smtp description='Main' address='mail.example'>"
    "<Authentication username='user' password='secret'/></smtp>";

// description 'Profile ID', from, subject, one recipient and a body, unless others are named.
inline std::string Profile(std::int32_t id, const std::string& attributes = "",
                           const std::string& elements = "<to>t@x</to><body>b</body>") {
  return "<smtp ID='" + std::to_string(id) + "' " + attributes +
         Usually(attributes, "description", "Profile " + std::to_string(id)) +
         Usually(attributes, "from", "f@x") + Usually(attributes, "subject", "s") + ">" + elements +
         "</smtp>";
}

// The "Notify" element; goes into Root for notify.xml, into Change for an update.
inline std::string Notify(const std::string& profiles, const std::string& attributes = "",
                          const std::string& servers = kServer) {
  return "<Notify" + Usually(attributes, "ID", "786432") + " " + attributes + "><Servers>" +
         servers + "</Servers><Profiles>" + profiles + "</Profiles></Notify>";
}

// --- events -------------------------------------------------------------------------------------

// A motion event of the first camera unless other sources are named.
inline std::string EventEntry(std::int32_t profile, bool starts = true,
                              const std::string& attributes = "",
                              const std::string& sources = "<EventSource ID='66049' Type='2'/>") {
  return "<Profile ID='" + std::to_string(profile) + "' Alarm='" + (starts ? "1" : "0") + "' " +
         attributes + Usually(attributes, "Action", "7") +
         Usually(attributes, "Time", "1500000000") + Usually(attributes, "Milliseconds", "250") +
         ">" + sources + "</Profile>";
}
// elements stand before the "Notify" element, as the host's "Servers" do.
inline std::string EventDocument(const std::string& entries, const std::string& elements = "") {
  return Root(elements + "<Notify ID='786432'><Profiles>" + entries + "</Profiles></Notify>");
}

// --- cameras ------------------------------------------------------------------------------------

// A device with one video input and one encoder channel, each with this number on it; without a
// stream identifier its frames carry the source key, Source(number).
inline std::string Camera(
    std::uint32_t device, const std::string& name, int standard = 5,
    const std::string& channelAttributes = "Number='1' Width='64' Height='64'") {
  return "<Device Number='" + std::to_string(device) +
         "'><Context Number='0'><Video><Input Number='1' Name='" + name +
         "'/></Video><Codec><Encoder><Channel " + channelAttributes + " Standard='" +
         std::to_string(standard) + "'/></Encoder></Codec></Context></Device>";
}
// The device parts of a document, around cameras and inputs.
inline std::string Devices(const std::string& devices, const std::string& id = "65536") {
  return "<Devices ID='" + id + "'>" + devices + "</Devices>";
}
// An event whose source is the device's first video input, and which notifies.
inline std::string NotifyingEvent(std::uint32_t id, std::uint32_t device) {
  return "<Event ID='" + std::to_string(id) + "' PreAlarm='5'>" +
         "<Devices ID='65536'><Device Number='" + std::to_string(device) +
         "'><Video><Input Number='1'/></Video></Device></Devices>" +
         "<Action><Notify/></Action></Event>";
}
// The source key of a device's first video input: device part 0x10000, index 1.
constexpr std::int32_t Source(std::uint32_t device) {
  return static_cast<std::int32_t>(0x10000U | device << 8 | 1U);
}

}  // namespace tvx::test
