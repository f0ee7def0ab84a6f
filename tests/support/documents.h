// The documents that a host hands to the plug-in, built from the parts that a case cares for; for
// tests, fault sweep, fuzz targets and benchmarks alike.
//
// Attributes are passed as they stand in XML ("MaxRetryQueue='3' SSL='2'"); those that are not named
// get usual values where a document needs some. Nothing is escaped.
#pragma once

#include <cstdint>
#include <string>

namespace tvx::test {

// "tDVR" around the content. Delta 1 is a change, 0 a full system document.
std::string Root(const std::string& content, const std::string& attributes = "");
std::string Change(const std::string& content);
std::string SystemDocument(const std::string& content);

// --- notification configuration -----------------------------------------------------------------

extern const char* const kServer;

// description 'Profile ID', from, subject, one recipient and a body, unless others are named.
std::string Profile(std::int32_t id, const std::string& attributes = "",
                    const std::string& elements = "<to>t@x</to><body>b</body>");

// The "Notify" element; goes into Root for notify.xml, into Change for an update.
std::string Notify(const std::string& profiles, const std::string& attributes = "",
                   const std::string& servers = kServer);

// --- events -------------------------------------------------------------------------------------

// A motion event of the first camera unless other sources are named.
std::string EventEntry(std::int32_t profile, bool starts = true, const std::string& attributes = "",
                       const std::string& sources = "<EventSource ID='66049' Type='2'/>");
// elements stand before the "Notify" element, as the host's "Servers" do.
std::string EventDocument(const std::string& entries, const std::string& elements = "");

// --- cameras ------------------------------------------------------------------------------------

// A device with one video input and one encoder channel, each with this number on it; without a
// stream identifier its frames carry the source key, Source(number).
std::string Camera(std::uint32_t device, const std::string& name, int standard = 5,
                   const std::string& channelAttributes = "Number='1' Width='64' Height='64'");
// The device parts of a document, around cameras and inputs.
std::string Devices(const std::string& devices, const std::string& id = "65536");
// An event whose source is the device's first video input, and which notifies.
std::string NotifyingEvent(std::uint32_t id, std::uint32_t device);
// The source key of a device's first video input: device part 0x10000, index 1.
constexpr std::int32_t Source(std::uint32_t device) {
  return static_cast<std::int32_t>(0x10000U | device << 8 | 1U);
}

// One device with two sub-channels, and one of everything else that a system document may hold.
extern const char* const kSampleSystem;

}  // namespace tvx::test
