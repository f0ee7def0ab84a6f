#include "support/documents.h"

namespace tvx::test {
namespace {

// An attribute that is there unless the case names it itself.
std::string Usually(const std::string& attributes, const std::string& name,
                    const std::string& value) {
  if ((" " + attributes).find(" " + name + "=") != std::string::npos) return {};
  return " " + name + "='" + value + "'";
}

std::string VideoInput(std::uint32_t device) {
  return "<Devices ID='65536'><Device Number='" + std::to_string(device) +
         "'><Video><Input Number='1'/></Video></Device></Devices>";
}

}  // namespace

std::string Root(const std::string& content, const std::string& attributes) {
  return "<tDVR " + attributes + ">" + content + "</tDVR>";
}

std::string Change(const std::string& content) {
  return Root(content, "Delta='1'");
}

std::string SystemDocument(const std::string& content) {
  return Root(content, "Delta='0'");
}

const char* const kServer =
    "<smtp description='Main' address='mail.example'>"
    "<Authentication username='user' password='secret'/></smtp>";

std::string Profile(std::int32_t id, const std::string& attributes, const std::string& elements) {
  return "<smtp ID='" + std::to_string(id) + "' " + attributes +
         Usually(attributes, "description", "Profile " + std::to_string(id)) +
         Usually(attributes, "from", "f@x") + Usually(attributes, "subject", "s") + ">" + elements +
         "</smtp>";
}

std::string Notify(const std::string& profiles, const std::string& attributes,
                   const std::string& servers) {
  return "<Notify" + Usually(attributes, "ID", "786432") + " " + attributes + "><Servers>" +
         servers + "</Servers><Profiles>" + profiles + "</Profiles></Notify>";
}

std::string EventEntry(std::int32_t profile, bool starts, const std::string& attributes,
                       const std::string& sources) {
  return "<Profile ID='" + std::to_string(profile) + "' Alarm='" + (starts ? "1" : "0") + "' " +
         attributes + Usually(attributes, "Action", "7") +
         Usually(attributes, "Time", "1500000000") + Usually(attributes, "Milliseconds", "250") +
         ">" + sources + "</Profile>";
}

std::string EventDocument(const std::string& entries, const std::string& elements) {
  return Root(elements + "<Notify ID='786432'><Profiles>" + entries + "</Profiles></Notify>");
}

std::string Camera(std::uint32_t device, const std::string& name, int standard,
                   const std::string& channelAttributes) {
  return "<Device Number='" + std::to_string(device) +
         "'><Context Number='0'><Video><Input Number='1' Name='" + name +
         "'/></Video><Codec><Encoder><Channel " + channelAttributes + " Standard='" +
         std::to_string(standard) + "'/></Encoder></Codec></Context></Device>";
}

std::string Devices(const std::string& devices, const std::string& id) {
  return "<Devices ID='" + id + "'>" + devices + "</Devices>";
}

std::string NotifyingEvent(std::uint32_t id, std::uint32_t device) {
  return "<Event ID='" + std::to_string(id) + "' PreAlarm='5'>" + VideoInput(device) +
         "<Action><Notify/></Action></Event>";
}

const char* const kSampleSystem = R"(
<tDVR Delta="0">
  <Devices ID="65536">
    <Device Number="2" Name="North gate" Serial="" Description="">
      <Context Number="0">
        <Video><Input Number="1" Name="Gate camera"/></Video>
        <Audio><Input Number="1" Name="Gate microphone"/></Audio>
        <Codec><Encoder>
          <Channel ID="66049" Number="1" Width="1280" Height="720" Standard="5"/>
        </Encoder></Codec>
      </Context>
      <Context Number="1">
        <Codec><Encoder>
          <Channel Number="1" Width="320" Height="180" Standard="0"/>
        </Encoder></Codec>
      </Context>
      <Trigger><Input Number="3" Name="Gate contact"/><Output Number="1" Name="Siren"/></Trigger>
    </Device>
  </Devices>
  <POSATM ID="131072"><Profile Number="4" Name="Till 4"><Keyword Value="VOID"/></Profile></POSATM>
  <Serial ID="196608"><Input Device="1" StreamID="2" Profile="4" RawStreamID="7"/></Serial>
  <SoftTriggers ID="262144"><SoftTrigger Number="1" Name="Panic"/></SoftTriggers>
  <TimeTriggers ID="327680"><TimeTrigger Number="1" Name="Night"/></TimeTriggers>
  <Events>
    <SourceGroup ID="3" Name="Perimeter">
      <Entry><Devices ID="65536"><Device Number="2"><Video><Input Number="1"/></Video></Device></Devices></Entry>
    </SourceGroup>
    <Event ID="7" PreAlarm="5">
      <Devices ID="65536"><Device Number="2"><Video><Input Number="1"/></Video></Device></Devices>
      <Action><Notify/></Action>
    </Event>
    <Event ID="8"><SourceGroup ID="3"/><Action><Notify/></Action></Event>
  </Events>
  <Users><SecondReviewer Enabled="0"/></Users>
</tDVR>)";

}  // namespace tvx::test
