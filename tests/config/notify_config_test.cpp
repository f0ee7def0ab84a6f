#include "config/notify_config.h"

#include <gtest/gtest.h>

#include <boost/regex.hpp>
#include <string>

#include "config/module_documents.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/parse.h"

namespace tvx {
namespace {

bool Read(NotifyConfig& config, const std::string& notify) {
  return ReadNotify(*test::Parse(test::Change(notify)).Root(), config);
}

// Of a tag a line, without indentation.
std::string Print(const NotifyConfig& config) {
  static const boost::regex indentation("\n +");
  return boost::regex_replace(PrintDocument(*BuildNotifyDocument(config)), indentation, "\n");
}

TEST(NotifyWriter, WritesEveryElementInItsOrderAndTheReaderReadsThem) {
  const std::string printed = R"(<?xml ?>
<tDVR Delta="0">
<Notify ID="786432" SupportsThrottleSeconds="1" SupportsAttach="1" SupportsVideoAttach="1" SupportsStatus="1" SupportsEventEdge="1" TemplateSupportLevel="3" IsSupported="1" SSL="2" MaxRetrySeconds="60" MaxRetryQueue="5" EmailSizeLimitMB="3">
<Web address="http://web:81" />
<Delivery Standard="1" VerifyCertificates="0" CertificateFile="ca.pem" MaxTransferSeconds="900" HelloName="nvr" />
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
  NotifyConfig config;
  ASSERT_TRUE(ReadNotify(*test::Parse(printed).Root(), config));
  EXPECT_TRUE(config.loaded && config.profiles.at(4).usesPlaceholders);
  config.curlSupportsSmtps = true;
  EXPECT_EQ(Print(config), printed);

  NotifyConfig empty;
  empty.secondReviewerMode = true;
  EXPECT_EQ(Print(empty), R"(<?xml ?>
<tDVR Delta="0">
<Notify ID="786432" SupportsThrottleSeconds="1" SupportsAttach="0" SupportsVideoAttach="0" SupportsStatus="1" SupportsEventEdge="1" TemplateSupportLevel="3" IsSupported="1" MaxRetrySeconds="172800" MaxRetryQueue="100" EmailSizeLimitMB="10">
<Web address="" />
<Servers />
<Profiles autoincrement="1" />
</Notify>
</tDVR>
)");
}

// The delivery settings are taken before the block is found wanting; all else stays as it was.
TEST(NotifyReader, RejectsABlockWithoutItsEssentials) {
  const auto row = [](const std::string& notify) {
    NotifyConfig config;
    config.servers.resize(1);
    config.profiles[1];
    EXPECT_FALSE(Read(config, notify) || config.loaded);
    EXPECT_TRUE(config.servers.size() == 1 && config.profiles.size() == 1);
    return std::to_string(config.MaxRetryQueue);
  };
  test::ExpectRows(row, test::Table(TABLES));
}

// Each row changes the configuration of the one before.
TEST(NotifyReader, DeliveryIsKeptWithoutItsElementAndNotWrittenAtItsDefaults) {
  NotifyConfig config;
  const auto row = [&](const std::string& xml) {
    EXPECT_TRUE(
        Read(config, test::Notify("", "", test::kServer + ("</Servers>" + xml + "<Servers>"))));
    const std::string printed = Print(config);
    const std::size_t at = printed.find("<Delivery ");
    return at == std::string::npos ? "-"
                                   : printed.substr(at + 10, printed.find(" />", at) - at - 10);
  };
  test::ExpectRows(row, test::Table(TABLES));
}

// Port and UseSSL of the servers, from the rest of the first one's element on. Half credentials drop
// a server.
TEST(NotifyReader, ServersFallBackOrAreSkipped) {
  NotifyConfig config;
  const auto row = [&](const std::string& xml) {
    EXPECT_TRUE(Read(config, test::Notify("", "", "<smtp description='' address='' " + xml)));
    std::string servers;
    for (const SmtpServer& server : config.servers) {
      servers += std::to_string(server.port) + '/' + std::to_string(server.UseSSL) + ' ';
    }
    return servers;
  };
  test::ExpectRows(row, test::Table(TABLES));
}

// Each row replaces the profiles of the one before. The numbers are ID, attach, MaxVideoSeconds,
// EventEdge and ThrottleSeconds; the last is the counter of identifiers. "~" stands for empty texts,
// "@" for a recipient.
TEST(NotifyReader, ProfilesInheritAreNumberedOrSkipped) {
  NotifyConfig config;
  const auto row = [&](std::string smtp) {
    smtp = boost::regex_replace(smtp, boost::regex("~"), "from='' subject=''");
    smtp = boost::regex_replace(smtp, boost::regex("@"), "<to>t</to>");
    EXPECT_TRUE(Read(config, test::Notify("<smtp description='' " + smtp + "</smtp>")));
    std::ostringstream text;
    for (const auto& [id, profile] : config.profiles) {
      text << id << ':' << profile.attach << ',' << profile.MaxVideoSeconds << ','
           << profile.EventEdge << ',' << profile.ThrottleSeconds << ' ';
      for (const auto* list : {&profile.to, &profile.cc, &profile.bcc}) {
        for (const std::string& address : *list) text << address;
      }
      text << profile.body << (profile.usesPlaceholders ? " ~ " : " ");
    }
    text << config.nextProfileId;
    return text.str();
  };
  test::ExpectRows(row, test::Table(TABLES));
  config.secondReviewerMode = true;
  EXPECT_TRUE(Read(config, test::Notify(test::Profile(1, "attach='1'"))));
  EXPECT_FALSE(config.profiles.at(1).attach);
  config.profiles[-1].attach = true;
  EXPECT_TRUE(ClearAttachFlags(config));
  EXPECT_FALSE(ClearAttachFlags(config));
}

TEST(Megabytes, SaturateInsteadOfWrapping) {
  const auto row = [](const std::string& megabytes) {
    return std::to_string(MegabytesToBytes(std::stoi(megabytes)));
  };
  test::ExpectRows(row, "0<=0   10485760<=10   4293918720<=4095   4294967295<=4096 & -1");
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
