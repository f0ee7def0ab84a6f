#include "config/event_action_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/event_source_key.h"
#include "config/system_document.h"

namespace tvx {
namespace {

using test::SystemDocument;

TEST(EventSourceKey, IsFoundInTheEventsElement) {
  const struct {
    const char* what;
    std::uint32_t key;
    const char* event;
  } kCases[] = {
      {"nothing", 0, ""},
      {"video input", 0x00010203,
       R"(<Devices ID="65536"><Device Number="2"><Video><Input Number="3"/></Video></Device></Devices>)"},
      {"beside its device", 0x00010203,
       R"(<Devices ID="65536"><Device Number="2"/></Devices><Video><Input Number="3"/></Video>)"},
      {"in the list of devices", 0x00010203,
       R"(<Devices ID="65536"><Video><Input Number="3"/></Video><Device Number="2"/></Devices>)"},
      {"in a context", 0x40010203,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="4"><Video><Input Number="3"/></Video></Context></Device></Devices>)"},
      {"beside its context", 0x40010203,
       R"(<Devices ID="65536"><Device Number="2"><Video><Input Number="3"/></Video></Device></Devices><Context Number="4"/>)"},
      {"in the second context", 0x50010203,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="4"/><Context Number="5"><Video><Input Number="3"/></Video></Context></Device></Devices>)"},
      {"context that is no number", 0x00010203,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="x"/><Video><Input Number="3"/></Video></Device></Devices>)"},
      {"the first in document order", 0x00010203,
       R"(<Devices ID="65536"><Device Number="2"><Video><Input Number="3"/></Video></Device></Devices><Video><Input Number="9"/></Video>)"},
      {"the first that has a number", 0x00010203,
       R"(<Devices ID="65536"><Device/><Device Number="2"><Video><Input/><Input Number="3"/></Video></Device></Devices>)"},
      {"excess bits go nowhere", 0x0FFFFF03,
       R"(<Devices ID="4294967295"><Device Number="511"><Video><Input Number="259"/></Video></Device></Devices>)"},
      {"negative numbers", 0x0FFFFFFF,
       R"(<Devices ID="-1"><Device Number="-1"><Video><Input Number="-1"/></Video></Device></Devices>)"},
      {"no list identifier", 0,
       R"(<Devices><Device Number="2"><Video><Input Number="3"/></Video></Device></Devices>)"},
      {"no device number", 0,
       R"(<Devices ID="65536"><Device><Video><Input Number="3"/></Video></Device></Devices>)"},
      {"other kind of device event", 0,
       R"(<Devices ID="65536"><Device Number="2"><Trigger><Input Number="3"/></Trigger></Device></Devices>)"},
      {"only below the action", 0,
       R"(<Devices ID="65536"><Device Number="2"/></Devices><Action><Context Number="1"><Video><Input Number="3"/></Video></Context></Action>)"},

      {"channel", 0x10010203,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="1"><Codec><Encoder><Channel Number="3"/></Encoder></Codec></Context></Device></Devices>)"},
      {"channel beside its context", 0x10010203,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="1"/><Codec><Encoder><Channel Number="3"/></Encoder></Codec></Device></Devices>)"},
      {"channel of the default context", 0x00010203,
       R"(<Devices ID="65536"><Device Number="2"><Context><Codec><Encoder><Channel Number="3"/></Encoder></Codec></Context></Device></Devices>)"},
      {"channel of an unreadable context", 0,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="x"><Codec><Encoder><Channel Number="3"/></Encoder></Codec></Context></Device></Devices>)"},
      {"channel without a context", 0,
       R"(<Devices ID="65536"><Device Number="2"><Codec><Encoder><Channel Number="3"/></Encoder></Codec></Device></Devices>)"},
      {"channel without a number", 0,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="1"><Codec><Encoder><Channel/></Encoder></Codec></Context></Device></Devices>)"},
      {"an input goes before a channel", 0x10010204,
       R"(<Devices ID="65536"><Device Number="2"><Context Number="1"><Codec><Encoder><Channel Number="3"/></Encoder></Codec><Video><Input Number="4"/></Video></Context></Device></Devices>)"},

      {"analytics", 0x00010203,
       R"(<Analytics ID="65536"><Device Number="2"/><Input Number="3"/></Analytics>)"},
      {"analytics, nested, no sub-channel", 0x00010203,
       R"(<Analytics ID="4026597376"><Device Number="2"><Context Number="1"/><Input Number="3"/></Device></Analytics>)"},
      {"analytics beside its device and input", 0x00010203,
       R"(<Analytics ID="65536"/><Device Number="2"/><Input Number="3"/>)"},
      {"analytics without an input", 0,
       R"(<Analytics ID="65536"><Device Number="2"/></Analytics>)"},
      {"devices go before analytics", 0,
       R"(<Devices ID="65536"><Device Number="2"/></Devices><Analytics ID="65536"><Device Number="2"/><Input Number="3"/></Analytics>)"},
      {"analytics when the devices name none", 0x00010203,
       R"(<Devices/><Analytics ID="65536"><Device Number="2"/><Input Number="3"/></Analytics>)"},
  };
  for (const auto& each : kCases) {
    const SystemDocument document(each.event);
    EXPECT_EQ(EventSourceKey(document.Root()).value, each.key) << each.what;
  }
}

// An event about one video input, with further attributes and children.
std::string Event(int input, const std::string& children, const std::string& name = "Event") {
  return '<' + name + R"(><Devices ID="65536"><Device Number="2"><Video><Input Number=")" +
         std::to_string(input) + R"("/></Video></Device></Devices>)" + children + "</" + name + '>';
}

// The sources of the table of a document with this content, by the index of their input.
std::vector<std::uint32_t> Inputs(const std::string& content) {
  const auto table = ReadEventActionTable(SystemDocument(content).Root());
  if (!table) return {999};
  std::vector<std::uint32_t> inputs;
  for (const SourceId source : table->sources) inputs.push_back(source.Index());
  return inputs;
}

TEST(EventActionTable, HoldsTheSourcesOfNotifyingEventsAndGroups) {
  const std::string notify = "<Action><Notify/></Action>";
  using Expected = std::vector<std::uint32_t>;
  EXPECT_EQ(Inputs("<Events>" + Event(4, notify) + Event(2, notify, "AnyName") + Event(4, notify) +
                   Event(1, "<Action/><Action><Notify/></Action>") +
                   Event(5, "<Action><Mail/></Action>") + Event(6, "<Notify/>") + "<Event>" +
                   notify + "</Event></Events>"),
            (Expected{1, 2, 4}));

  const std::string group3 = "<SourceGroup ID=\"3\">" + Event(7, "", "Entry") +
                             Event(8, "", "Entry") + "<Entry/>" + Event(9, "", "Other") +
                             "</SourceGroup>";
  const std::string group259 =
      "<SourceGroup ID=\"259\">" + Event(10, "", "Entry") + "</SourceGroup>";
  const std::string names3 = "<Event><SourceGroup ID=\"3\"/>" + notify + "</Event>";
  EXPECT_EQ(Inputs("<Events>" + group3 + group259 + names3 + "</Events>"), (Expected{7, 8}));
  EXPECT_EQ(Inputs("<Events>" + names3 + "</Events><Events>" + group259 + group3 + "</Events>"),
            (Expected{7, 8}))
      << "described in another list";
  EXPECT_EQ(Inputs("<Events>" + group3 + group259 + "<Event><SourceGroup ID=\"259\"/>" + notify +
                   "</Event></Events>"),
            Expected{10})
      << "the whole identifier counts";
  EXPECT_EQ(Inputs("<Events>" + group3 + "<Event><SourceGroup ID=\"3\"/></Event></Events>"),
            Expected{})
      << "named by an event that does not notify";
  EXPECT_EQ(
      Inputs("<Events>" + group3 + "<Event><SourceGroup ID=\"x\"/>" + notify + "</Event></Events>"),
      Expected{});
  EXPECT_EQ(
      Inputs("<Events>" + group3 + Event(1, "<SourceGroup ID=\"3\"/>" + notify) + "</Events>"),
      Expected{1})
      << "an event with a source of its own does not stand for a group";
}

TEST(EventActionTable, IsNotTouchedByADocumentWithoutEvents) {
  EXPECT_FALSE(ReadEventActionTable(SystemDocument("<Devices/>").Root()).has_value());
  const auto emptied = ReadEventActionTable(SystemDocument("<Events/>").Root());
  ASSERT_TRUE(emptied.has_value());
  EXPECT_TRUE(emptied->sources.empty());
}

TEST(EventActionTable, OfTheSampleDocument) {
  const auto table = ReadEventActionTable(SystemDocument::Sample().Root());
  ASSERT_TRUE(table.has_value());
  EXPECT_EQ(table->sources, std::set<SourceId>{SourceId{0x00010201}});
}

}  // namespace
}  // namespace tvx
