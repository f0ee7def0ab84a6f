#include "support/plugin.h"

#include <string>

#include "support/documents.h"

namespace tvx::bench {
namespace {

// Numbers are 8 bits wide, so more devices take another device part.
constexpr int kDevicesPerPart = 255;

std::string InDevices(int index, const std::string& content) {
  const std::string number = std::to_string(index % kDevicesPerPart + 1);
  return test::Devices("<Device Number='" + number + "'>" + content + "</Device>",
                       std::to_string(65536 * (index / kDevicesPerPart + 1)));
}

}  // namespace

std::string ProfilesDocument(int profiles, const std::string& attributes,
                             const std::string& profileAttributes, const std::string& servers) {
  std::string all;
  for (int i = 0; i < profiles; ++i) {
    all += test::Profile(kFirstProfile + i,
                         "attach='0' description='Gate' from='nvr@example.com' "
                         "subject='{event type} at {source}' MaxVideoSeconds='0' EventEdge='0' " +
                             profileAttributes,
                         "<to>guard@example.com</to><cc>office@example.com</cc><body>{event type} "
                         "at {source}, {date format=\"%Y-%m-%d\"}.&#13;&#10;Recorded by {system "
                         "name}, serial number {serial}.&#13;&#10;</body>");
  }
  return test::Change(test::Notify(all, "MaxRetrySeconds='172800' " + attributes, servers));
}

std::string EventDocumentFor(std::int32_t profile) {
  return test::EventDocument(
      test::EventEntry(profile),
      "<Servers><Server Serial=\"A-1001\" Description=\"Main building\"/></Servers>");
}

std::string SystemDocumentOf(int streams) {
  const std::string input = "<Video><Input Number='1'/></Video>";
  std::string devices;
  std::string events;
  for (int i = 0; i < streams; ++i) {
    const std::string id = std::to_string(i + 1);
    devices += InDevices(i, "<Context>" + input + "<Codec><Encoder><Channel ID='" + id +
                                "' Number='1' Width='1280' Height='720' Standard='5'/></Encoder>"
                                "</Codec></Context>");
    events +=
        "<Event ID='" + id + "'>" + InDevices(i, input) + "<Action><Notify/></Action></Event>";
  }
  return test::SystemDocument(devices + "<Events>" + events + "</Events>");
}

}  // namespace tvx::bench
