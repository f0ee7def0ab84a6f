#include "config/notify_config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/module_documents.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/parse.h"

namespace tvx {
namespace {

bool Read(NotifyConfig& config, const std::string& notify) {
  return ReadNotify(*test::Parse(test::Change(notify)).Root(), config);
}

std::string Print(const NotifyConfig& config) {
  return PrintDocument(*BuildNotifyDocument(config));
}

TEST(NotifyWriter, WritesEveryElementInItsOrderAndTheReaderReadsThem) {
  NotifyConfig config;
  ASSERT_TRUE(Read(config, R"(
      <Notify ID='786432' MaxRetrySeconds='60' MaxRetryQueue='5' EmailSizeLimitMB='3'>
      <Web address='http://web:81'/><Servers><smtp description='A' address='mail' port='465'/>
      <smtp description='B' address='mx' UseSSL='2'><Authentication username='u' password='p&amp;'/>
      </smtp><smtp description='C' address='m'><Authentication username='' password='p'/></smtp>
      </Servers><Profiles autoincrement='9'><smtp ID='4' attach='1' description='Gate'
      ThrottleSeconds='30' from='f@x' subject='At {time}' MaxVideoSeconds='20' EventEdge='2'>
      <to>a@x</to><cc>c@x</cc><to>b@x</to><bcc>d@x</bcc><body>Line 1
Line 2</body></smtp></Profiles></Notify>)"));
  EXPECT_TRUE(config.loaded);
  EXPECT_TRUE(config.profiles.at(4).usesPlaceholders);
  config.curlSupportsSmtps = true;
  const std::string printed = R"(<?xml ?>
<tDVR Delta="0">
    <Notify ID="786432" SupportsThrottleSeconds="1" SupportsAttach="1" SupportsVideoAttach="1" SupportsStatus="1" SupportsEventEdge="1" TemplateSupportLevel="3" IsSupported="1" SSL="2" MaxRetrySeconds="60" MaxRetryQueue="5" EmailSizeLimitMB="3">
        <Web address="http://web:81" />
        <Servers>
            <smtp description="A" address="mail" port="465" UseSSL="1" />
            <smtp description="B" address="mx" port="25" UseSSL="2">
                <Authentication username="u" password="p&amp;" />
            </smtp>
            <smtp description="C" address="m" port="25" UseSSL="0">
                <Authentication username="" password="p" />
            </smtp>
        </Servers>
        <Profiles autoincrement="9">
            <smtp ID="4" attach="1" description="Gate" ThrottleSeconds="30" from="f@x" subject="At {time}" MaxVideoSeconds="20" EventEdge="2">
                <to>a@x</to>
                <to>b@x</to>
                <cc>c@x</cc>
                <bcc>d@x</bcc>
                <body>Line 1&#x0A;Line 2</body>
            </smtp>
        </Profiles>
    </Notify>
</tDVR>
)";
  EXPECT_EQ(Print(config), printed);
  NotifyConfig again;
  again.curlSupportsSmtps = true;
  ASSERT_TRUE(ReadNotify(*test::Parse(printed).Root(), again));
  EXPECT_EQ(Print(again), printed);
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
  const struct {
    const char* notify;
    std::int32_t maxRetryQueue;
  } kCases[] = {
      {"", 100},
      {"<Notify ID='786433' MaxRetryQueue='7'><Servers/><Profiles/></Notify>", 100},
      {"<Notify MaxRetryQueue='7'><Servers/><Profiles/></Notify>", 100},
      // Taken before the block is found wanting.
      {"<Notify ID='786432' MaxRetryQueue='7'><Servers/></Notify>", 7},
      {"<Notify ID='786432' MaxRetryQueue='x'><Profiles/></Notify>", 100},
  };
  for (const auto& each : kCases) {
    NotifyConfig config;
    config.servers.resize(1);
    config.profiles[1];
    EXPECT_FALSE(Read(config, each.notify)) << each.notify;
    EXPECT_EQ(config.MaxRetryQueue, each.maxRetryQueue) << each.notify;
    EXPECT_FALSE(config.loaded);
    EXPECT_TRUE(config.servers.size() == 1 && config.profiles.size() == 1) << "stay as they were";
  }
}

TEST(NotifyReader, ServersFallBackAndHalfCredentialsDropThem) {
  const struct {
    const char* xml;
    const char* servers;  // port/UseSSL of each
  } kCases[] = {
      {"<smtp description='d' address='a'/>", "25/0 "},
      {"<smtp description='d' address='a' port='465'/>", "465/1 "},
      {"<smtp description='d' address='a' port='465' UseSSL='x'/>", "465/1 "},
      {"<smtp description='d' address='a' port='465' UseSSL='0'/>", "465/0 "},
      {"<smtp description='d' address='a' port='x' UseSSL='9'/>", "25/9 "},
      {"<smtp description='d'/><smtp address='a'/>", ""},
      {"<smtp description='d' address='a'><Authentication username='u'/></smtp>", ""},
      {"<smtp description='d' address='a'><Authentication password='p'/></smtp>", ""},
      {"<smtp description='' address=''><Authentication username='' password=''/></smtp>", "25/0 "},
      {"<smtp description='d' address='a'/></Servers><Servers><smtp description='e' address='b' "
       "port='9'/>",
       "25/0 9/0 "},
  };
  NotifyConfig config;
  for (const auto& each : kCases) {
    ASSERT_TRUE(Read(config, test::Notify("", "", each.xml)));
    std::string servers;
    for (const SmtpServer& server : config.servers) {
      servers += std::to_string(server.port) + '/' + std::to_string(server.UseSSL) + ' ';
    }
    EXPECT_EQ(servers, each.servers) << each.xml;
  }
}

TEST(NotifyReader, MalformedProfilesAreSkippedOneByOne) {
  NotifyConfig config;
  using test::Profile;
  ASSERT_TRUE(Read(
      config,
      test::Notify("<smtp ID='x' description='d' from='f' subject='s'><to>t</to></smtp>"
                   "<smtp description='d' from='f' subject='s'><to>t</to></smtp>"
                   "<smtp ID='1' from='f' subject='s'><to>t</to></smtp>"
                   "<smtp ID='1' description='d' subject='s'><to>t</to></smtp>"
                   "<smtp ID='1' description='d' from='f'><to>t</to></smtp>" +
                   Profile(1, "", "<to></to>") + Profile(1, "", "<cc>t</cc>") +
                   Profile(1, "", "<to>t</to><body>a</body><body>b</body>") +
                   Profile(4, "", "<to/><to>t</to><cc/><cc>c</cc><cc>d</cc><bcc/><bcc>b</bcc>") +
                   Profile(5, "ThrottleSeconds='1' subject='{serial}'") +
                   Profile(5, "ThrottleSeconds='2' subject=''"))));
  ASSERT_EQ(config.profiles.size(), 2u);
  const NotifyProfile& profile = config.profiles.at(4);
  using Texts = std::vector<std::string>;
  EXPECT_EQ(profile.to, Texts{"t"});
  EXPECT_EQ(profile.cc, (Texts{"c", "d"}));
  EXPECT_EQ(profile.bcc, Texts{"b"});
  EXPECT_EQ(profile.body, "");
  EXPECT_EQ(config.profiles.at(5).ThrottleSeconds, 2);  // the later element wins
  EXPECT_FALSE(config.profiles.at(5).usesPlaceholders);
}

TEST(NotifyReader, GivesIdentifiersFromTheCounter) {
  NotifyConfig config;
  config.nextProfileId = 3;
  const std::string given =
      test::Profile(0, "", "") + test::Profile(0);  // a malformed one uses one up
  ASSERT_TRUE(Read(config, "<Notify ID='786432'><Servers/><Profiles autoincrement='7'>" + given +
                               "</Profiles><Profiles autoincrement='2'>" + given +
                               "</Profiles></Notify>"));
  EXPECT_EQ(config.profiles.begin()->first, 10);  // of the last list
  EXPECT_EQ(config.nextProfileId, 11);
  ASSERT_TRUE(Read(config, test::Notify("")));  // a smaller counter does not turn it back
  EXPECT_EQ(config.nextProfileId, 11);
  EXPECT_TRUE(config.profiles.empty());
}

TEST(NotifyReader, AProfileInheritsWhatItsSuccessorDoesNotSay) {
  const struct {
    const char* attributes;
    const char* result;  // attach, MaxVideoSeconds, EventEdge, ThrottleSeconds
  } kCases[] = {
      {"", "0 0 0 0"},
      {"attach='1' MaxVideoSeconds='20' EventEdge='2' ThrottleSeconds='9'", "1 20 2 9"},
      {"", "1 20 2 0"},  // the throttle alone is not kept
      {"MaxVideoSeconds='x' EventEdge='1'", "1 20 1 0"},
      {"attach='2'", "0 20 1 0"},  // true for exactly 1
      {"attach='1'", "1 20 1 0"},
      {"attach=''", "0 20 1 0"},
  };
  NotifyConfig config;
  const auto reread = [&](const std::string& attributes) {
    EXPECT_TRUE(Read(config, test::Notify(test::Profile(1, attributes))));
    const NotifyProfile& read = config.profiles.at(1);
    return std::to_string(read.attach) + ' ' + std::to_string(read.MaxVideoSeconds) + ' ' +
           std::to_string(read.EventEdge) + ' ' + std::to_string(read.ThrottleSeconds);
  };
  for (const auto& each : kCases)
    EXPECT_EQ(reread(each.attributes), each.result) << each.attributes;
  config.secondReviewerMode = true;
  EXPECT_EQ(reread("attach='1'"), "0 20 1 0");
  config.profiles[-1].attach = true;
  EXPECT_TRUE(ClearAttachFlags(config));
  EXPECT_FALSE(config.profiles.at(-1).attach);
  EXPECT_FALSE(ClearAttachFlags(config));
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
