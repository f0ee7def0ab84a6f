// Full system documents for tests.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "config/xml_document.h"

namespace tvx::test {

// One device with two sub-channels, and one of everything else that a document may describe.
constexpr const char* kSystemDocument = R"(
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

// A document whose root can be read. The content goes into a "tDVR" root.
class SystemDocument {
 public:
  explicit SystemDocument(const std::string& content)
      : SystemDocument(Whole(), "<tDVR Delta=\"0\">" + content + "</tDVR>") {}

  static SystemDocument Sample() { return {Whole(), kSystemDocument}; }

  const TiXmlElement& Root() const { return *parsed_.Root(); }

 private:
  struct Whole {};

  SystemDocument(Whole, const std::string& text)
      : parsed_(ParseDocument(text.data(), text.size())) {
    if (parsed_.Root() == nullptr) throw std::invalid_argument("the test's document: " + text);
  }

  ParsedDocument parsed_;
};

}  // namespace tvx::test
