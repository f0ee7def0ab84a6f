#include "config/notify_config.h"

#include <gtest/gtest.h>

#include <string>

#include "config/module_documents.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

// Reads a "Notify" block with these servers and profiles; returns what the reader said.
bool Read(NotifyConfig& config, const std::string& notify) {
  const std::string text = "<tDVR Delta='1'>" + notify + "</tDVR>";
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  EXPECT_NE(parsed.Root(), nullptr) << text;
  return parsed.Root() != nullptr && ReadNotify(*parsed.Root(), config);
}

std::string Block(const std::string& servers, const std::string& profiles,
                  const std::string& attributes = "") {
  return "<Notify ID='786432' " + attributes + "><Servers>" + servers + "</Servers><Profiles>" +
         profiles + "</Profiles></Notify>";
}

std::string Profile(const std::string& attributes, const std::string& children = "<to>t@x</to>") {
  return "<smtp description='d' from='f@x' subject='s' " + attributes + ">" + children + "</smtp>";
}

std::string Print(const NotifyConfig& config) {
  return PrintDocument(*BuildNotifyDocument(config));
}

TEST(NotifyWriter, WritesEveryElementInItsOrder) {
  NotifyConfig config;
  ASSERT_TRUE(
      Read(config,
           "<Notify ID='786432' MaxRetrySeconds='60' MaxRetryQueue='5' EmailSizeLimitMB='3'>"
           "<Web address='http://web:81'/>"
           "<Servers><smtp description='A' address='mail' port='465'/>"
           "<smtp description='B' address='mx' UseSSL='2'>"
           "<Authentication username='u' password='p&amp;'/></smtp></Servers>"
           "<Profiles autoincrement='9'><smtp ID='4' attach='1' description='Gate' "
           "ThrottleSeconds='30' from='f@x' subject='At {time}' MaxVideoSeconds='20' "
           "EventEdge='2'><to>a@x</to><cc>c@x</cc><to>b@x</to><bcc>d@x</bcc>"
           "<body>Line 1\nLine 2</body></smtp></Profiles></Notify>"));
  EXPECT_TRUE(config.loaded);
  EXPECT_TRUE(config.profiles.at(4).usesPlaceholders);
  config.curlSupportsSmtps = true;
  EXPECT_EQ(Print(config),
            "<?xml ?>\n"
            "<tDVR Delta=\"0\">\n"
            "    <Notify ID=\"786432\" SupportsThrottleSeconds=\"1\" SupportsAttach=\"1\" "
            "SupportsVideoAttach=\"1\" SupportsStatus=\"1\" SupportsEventEdge=\"1\" "
            "TemplateSupportLevel=\"3\" IsSupported=\"1\" SSL=\"2\" MaxRetrySeconds=\"60\" "
            "MaxRetryQueue=\"5\" EmailSizeLimitMB=\"3\">\n"
            "        <Web address=\"http://web:81\" />\n"
            "        <Servers>\n"
            "            <smtp description=\"A\" address=\"mail\" port=\"465\" UseSSL=\"1\" />\n"
            "            <smtp description=\"B\" address=\"mx\" port=\"25\" UseSSL=\"2\">\n"
            "                <Authentication username=\"u\" password=\"p&amp;\" />\n"
            "            </smtp>\n"
            "        </Servers>\n"
            "        <Profiles autoincrement=\"9\">\n"
            "            <smtp ID=\"4\" attach=\"1\" description=\"Gate\" ThrottleSeconds=\"30\" "
            "from=\"f@x\" subject=\"At {time}\" MaxVideoSeconds=\"20\" EventEdge=\"2\">\n"
            "                <to>a@x</to>\n"
            "                <to>b@x</to>\n"
            "                <cc>c@x</cc>\n"
            "                <bcc>d@x</bcc>\n"
            "                <body>Line 1&#x0A;Line 2</body>\n"
            "            </smtp>\n"
            "        </Profiles>\n"
            "    </Notify>\n"
            "</tDVR>\n");
}

TEST(NotifyWriter, AnEmptyConfigurationInSecondReviewerModeHasItsFrame) {
  NotifyConfig config;
  config.secondReviewerMode = true;
  const std::string printed = Print(config);
  EXPECT_EQ(printed.find(" SSL="), std::string::npos);
  for (const char* part :
       {"SupportsAttach=\"0\" SupportsVideoAttach=\"0\"", "<Web address=\"\" />", "<Servers />",
        "<Profiles autoincrement=\"1\" />",
        "MaxRetrySeconds=\"172800\" MaxRetryQueue=\"100\" EmailSizeLimitMB=\"10\""}) {
    EXPECT_NE(printed.find(part), std::string::npos) << part << " in " << printed;
  }
}

TEST(NotifyReader, RejectsABlockWithoutItsEssentials) {
  NotifyConfig config;
  EXPECT_FALSE(Read(config, ""));
  EXPECT_FALSE(
      Read(config, "<Notify ID='786433' MaxRetryQueue='7'><Servers/><Profiles/></Notify>"));
  EXPECT_EQ(config.MaxRetryQueue, 100);
  EXPECT_FALSE(Read(config, "<Notify ID='786432' MaxRetryQueue='7'><Servers/></Notify>"));
  EXPECT_EQ(config.MaxRetryQueue, 7);  // taken before the block is found wanting
  EXPECT_FALSE(Read(config, "<Notify ID='786432' MaxRetryQueue='x'><Profiles/></Notify>"));
  EXPECT_EQ(config.MaxRetryQueue, 7);
  EXPECT_FALSE(config.loaded);
}

TEST(NotifyReader, ServersFallBackAndHalfCredentialsDropThem) {
  struct Case {
    const char* xml;
    int kept;
    std::int32_t port;
    std::int32_t useSsl;
  };
  for (const Case& c :
       {Case{"<smtp description='d' address='a'/>", 1, 25, 0},
        Case{"<smtp description='d' address='a' port='465'/>", 1, 465, 1},
        Case{"<smtp description='d' address='a' port='465' UseSSL='0'/>", 1, 465, 0},
        Case{"<smtp description='d' address='a' port='x' UseSSL='9'/>", 1, 25, 9},
        Case{"<smtp description='d'/>", 0, 0, 0}, Case{"<smtp address='a'/>", 0, 0, 0},
        Case{"<smtp description='d' address='a'><Authentication username='u'/></smtp>", 0, 0, 0},
        Case{"<smtp description='d' address='a'><Authentication password='p'/></smtp>", 0, 0, 0},
        Case{"<smtp description='d' address='a'><Authentication username='' password=''/></smtp>",
             1, 25, 0}}) {
    NotifyConfig config;
    ASSERT_TRUE(Read(config, Block(c.xml, "")));
    ASSERT_EQ(config.servers.size(), static_cast<std::size_t>(c.kept)) << c.xml;
    if (c.kept == 0) continue;
    EXPECT_EQ(config.servers[0].port, c.port) << c.xml;
    EXPECT_EQ(config.servers[0].UseSSL, c.useSsl) << c.xml;
  }
}

TEST(NotifyReader, MalformedProfilesAreSkippedOneByOne) {
  NotifyConfig config;
  ASSERT_TRUE(
      Read(config, Block("", Profile("ID='x'") + Profile("") + Profile("ID='1'", "<to></to>") +
                                 Profile("ID='2'", "<to>t@x</to><body>a</body><body>b</body>") +
                                 "<smtp ID='3' description='d' from='f@x'><to>t@x</to></smtp>" +
                                 Profile("ID='4'", "<to/><to>t@x</to><cc/><cc>c@x</cc>") +
                                 Profile("ID='5' ThrottleSeconds='1'") +
                                 Profile("ID='5' ThrottleSeconds='2'"))));
  ASSERT_EQ(config.profiles.size(), 2u);
  EXPECT_EQ(config.profiles.at(4).to, (std::vector<std::string>{"t@x"}));
  EXPECT_EQ(config.profiles.at(4).cc, (std::vector<std::string>{"c@x"}));
  EXPECT_EQ(config.profiles.at(4).body, "");
  EXPECT_EQ(config.profiles.at(5).ThrottleSeconds, 2);  // the later element wins
}

TEST(NotifyReader, GivesIdentifiersFromTheCounter) {
  NotifyConfig config;
  config.nextProfileId = 3;
  ASSERT_TRUE(Read(config, "<Notify ID='786432'><Servers/><Profiles autoincrement='7'>" +
                               Profile("ID='0'") + "</Profiles></Notify>"));
  EXPECT_EQ(config.profiles.begin()->first, 7);
  EXPECT_EQ(config.nextProfileId, 8);
  ASSERT_TRUE(Read(config, Block("", "")));  // a smaller counter does not turn it back
  EXPECT_EQ(config.nextProfileId, 8);
  EXPECT_TRUE(config.profiles.empty());
}

TEST(NotifyReader, AProfileInheritsWhatItsSuccessorDoesNotSay) {
  NotifyConfig config;
  ASSERT_TRUE(Read(config, Block("", Profile("ID='1' attach='1' MaxVideoSeconds='20' EventEdge='2' "
                                             "ThrottleSeconds='9'"))));
  ASSERT_TRUE(Read(config, Block("", Profile("ID='1'"))));
  EXPECT_TRUE(config.profiles.at(1).attach);
  EXPECT_EQ(config.profiles.at(1).MaxVideoSeconds, 20);
  EXPECT_EQ(config.profiles.at(1).EventEdge, 2);
  EXPECT_EQ(config.profiles.at(1).ThrottleSeconds, 0);  // the throttle alone is not kept
}

TEST(NotifyReader, AttachIsTrueForExactlyOneAndNeverInSecondReviewerMode) {
  for (const char* value : {"0", "2", "-1", "yes", ""}) {
    NotifyConfig config;
    ASSERT_TRUE(Read(config, Block("", Profile(std::string("ID='1' attach='") + value + "'"))));
    EXPECT_FALSE(config.profiles.at(1).attach) << value;
  }
  NotifyConfig config;
  config.secondReviewerMode = true;
  ASSERT_TRUE(Read(config, Block("", Profile("ID='1' attach='1'"))));
  EXPECT_FALSE(config.profiles.at(1).attach);
}

TEST(Megabytes, SaturateInsteadOfWrapping) {
  EXPECT_EQ(MegabytesToBytes(0), 0u);
  EXPECT_EQ(MegabytesToBytes(10), 10485760u);
  EXPECT_EQ(MegabytesToBytes(4095), 4293918720u);
  EXPECT_EQ(MegabytesToBytes(4096), 0xFFFFFFFFu);
  EXPECT_EQ(MegabytesToBytes(-1), 0xFFFFFFFFu);
}

TEST(ModuleDocuments, HaveTheirFixedForm) {
  EXPECT_EQ(RegistrationDocument(),
            "<?xml ?>\n<tDVR Delta=\"0\">\n    <Modules>\n        <Module Name=\"NotifyPI\" "
            "ID=\"786432\" Version=\"19.03.10.153605\" />\n    </Modules>\n</tDVR>\n");
  EXPECT_EQ(StatusDocument({3, 5}, ProfileStatus::Changed, 1500000000),
            "<tDVR>\n    <Notify ID=\"786432\">\n        <Profiles>\n"
            "            <Profile ID=\"3\" Status=\"-1\" Time=\"1500000000\" />\n"
            "            <Profile ID=\"5\" Status=\"-1\" Time=\"1500000000\" />\n"
            "        </Profiles>\n    </Notify>\n</tDVR>\n");
}

}  // namespace
}  // namespace tvx
