#include "service/notification_processing.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "config/event_types.h"
#include "service/web_link_step.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

using Texts = std::vector<std::string>;

// Answers transfers with a script.
class ScriptedHelper : public NotifyHelper {
 public:
  explicit ScriptedHelper(test::FakeHost& host)
      : NotifyHelper(owner_, channel_, &test::FakeHost::Entry), host_(host) {}

  bool RunTransfer(const Texts& arguments, const std::string&, std::int32_t& exitValue,
                   Texts&) override {
    EXPECT_EQ(host_.FramesOut(), 0u) << "frames are held while the mail is on its way";
    paths.push_back(*(arguments.end() - 2));
    messages.push_back(test::ReadFile(paths.back()));
    exitValue = paths.size() > exits.size() ? 0 : exits[paths.size() - 1];
    return true;
  }

  std::vector<std::int32_t> exits;
  Texts paths, messages;

 private:
  struct : IStatusReceiver {
    void ReportStatus(std::int32_t, ProfileStatus) override {}
  } owner_;
  ProcessChannel channel_;
  test::FakeHost& host_;
};

class NotificationProcessing : public testing::Test {
 protected:
  NotificationProcessing() {
    NotifyProfile profile;
    profile.ID = 4;
    profile.attach = true;
    profile.description = "Gate";
    profile.MaxVideoSeconds = 30;
    profile.from = "f@x";
    profile.subject = "s{source}";
    profile.to = {"t@x"};
    profile.cc = {"c@x"};
    profile.bcc = {"b@x"};
    profile.body = "At {source}";
    profile.usesPlaceholders = true;
    SmtpServer server;
    server.address = "mail.example";
    config_.servers = {server};
    config_.EmailSizeLimitMB = 1;
    config_.profiles[4] = profile;
  }

  // A notification of the profile as the configuration is now.
  NotifyWorkItem& Item(int pictures = 0) {
    config_.MaxRetryQueue = 7;  // the one that counts is the snapshot's
    item_ = NotifyWorkItem{};
    item_.config = std::make_shared<const NotifyConfig>(config_);
    item_.profile = &item_.config->profiles.at(4);
    item_.attachVideo = item_.profile->attach;
    item_.preTriggerSeconds = 5;
    item_.eventSeconds = 1500000000;
    item_.eventMilliseconds = 250;
    item_.facts.eventTime = 1500000000;
    item_.facts.sourceName = "Door";
    item_.system = system_;
    // Pictures of 400 KB, so two to a message.
    const std::string payload(400 << 10, 'p');
    for (int i = 0; i < pictures; ++i) {
      const auto data = std::make_shared<FrameData>(host_.Lend(payload), payload.size());
      data->TakeOver(&test::FakeHost::Entry);
      VideoBuffer history(StreamFormat{}, 10 << 20);
      FrameBin bin;
      history.Add({0, kKeyFrame, 0, data}, bin);
      item_.videos.push_back(
          {std::to_string(i),
           std::make_shared<CVideoEmailStream>(history, 0, 0, 0, std::weak_ptr<INotifyReady>(),
                                               std::make_shared<ClipTally>())});
    }
    return item_;
  }

  // True when it was delivered.
  bool Process(NotifyWorkItem& item) {
    helper_.paths.clear();
    helper_.messages.clear();
    host_.ClearLog();
    return ProcessNotification(item, snapshot_, helper_, *stream_) == ProfileStatus::Delivered;
  }

  static Texts FilesLeft() {
    Texts files;
    for (const auto& entry : boost::filesystem::directory_iterator("data")) {
      files.push_back(entry.path().filename().string());
    }
    return files;
  }

  test::TemporaryFolder folder_;
  test::FakeHost host_;
  NotifyConfig config_;
  NotifyConfig snapshot_;
  std::unique_ptr<INotifyFileStream> stream_ =
      std::make_unique<NotifyFileStreamImpl>(&test::FakeHost::Entry);
  ScriptedHelper helper_{host_};
  NotifyWorkItem item_;
  std::shared_ptr<SystemFacts> system_ = std::make_shared<SystemFacts>(SystemFacts{"A1", "D", "M"});
};

TEST_F(NotificationProcessing, SendsOneMessageForEachGroup) {
  const char* const path = "./data/notify-mail-4-1500000000-250-";
  const struct {
    int pictures;
    std::vector<std::int32_t> exits;
    bool isDelivered;
    std::size_t transfers, queued;
  } rows[] = {
      {0, {0}, true, 1, 0},         {0, {67}, false, 1, 0},      {0, {7}, false, 1, 1},
      {2, {0}, true, 1, 0},         {3, {0, 0}, true, 2, 0},     {5, {67, 0, 0}, false, 3, 0},
      {5, {0, 0, 67}, false, 3, 0}, {5, {0, 7, 0}, false, 3, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.exits));
    helper_.exits = row.exits;
    EXPECT_EQ(Process(Item(row.pictures)), row.isDelivered);
    Texts expected;
    int sequence = 0;  // of what is queued
    for (std::size_t part = 1; part <= row.transfers; ++part) {
      const std::string suffix = std::to_string(part) + "-of-" + std::to_string(row.transfers);
      expected.push_back(path + std::to_string(sequence) +
                         (row.transfers == 1 ? "" : "-Part-" + suffix));
      sequence += row.exits[part - 1] == 7;
    }
    EXPECT_EQ(helper_.paths, expected);
    EXPECT_EQ(helper_.queue.size(), row.queued);
    EXPECT_EQ(FilesLeft().size(), row.queued) << "what will be retried, and nothing else";
    EXPECT_EQ(host_.Logged("Failed to send notification using profile Gate.  This message will be "
                           "retried"),
              static_cast<int>(row.queued));
    if (row.queued != 0) {
      const PendingMessage& queued = helper_.queue.back();
      EXPECT_EQ(queued.profileDescription + std::to_string(queued.profileId), "Gate4");
      EXPECT_EQ(queued.servers, config_.servers);
    }
    helper_.queue.clear();
    helper_.messageCounter = 0;
    boost::filesystem::remove_all("data");
  }
}

TEST_F(NotificationProcessing, SaysWhatProfileAndEventSay) {
  Process(Item());
  EXPECT_EQ(helper_.messages,
            Texts{"From: f@x\r\nTo: t@x\r\nCc: c@x\r\nSubject: sDoor\r\n\r\nAt Door"});
  // Names are one line each, and no longer than need be.
  config_.profiles.at(4).body = "{system name}|{serial}|{licensed mac}|{source}\n";
  *system_ = {"A\r\n.\r\nB", "\n.\n\x1b\x7f", std::string(5000, 'm')};
  NotifyWorkItem& hostile = Item();
  hostile.facts.sourceName = std::string(4095, 's') + "\xC3\xBC";
  config_.profiles.at(4).usesPlaceholders = false;
  Process(hostile);
  EXPECT_EQ(helper_.messages.at(0).substr(helper_.messages.at(0).find("\r\n\r\n") + 4),
            " .   |A  .  B|" + std::string(4096, 'm') + "|" + std::string(4095, 's') + "\n");
  config_.profiles.at(4).body = "At {source}";
  NotifyWorkItem& test = Item();
  test.isTest = true;
  Process(test);
  EXPECT_EQ(helper_.messages, Texts{"From: f@x\r\nTo: t@x\r\nCc: c@x\r\nSubject: s{source}\r\n\r\n"
                                    "Testing Profile\r\nAt {source}"});
}

TEST_F(NotificationProcessing, OmitsAttachmentsInSecondReviewerMode) {
  snapshot_.secondReviewerMode = true;  // though it was not on when the event came
  EXPECT_TRUE(Process(Item(3)));
  EXPECT_EQ(helper_.paths.size(), 1u);
  EXPECT_EQ(host_.Log().at(0), (test::LogLine{50, "Attachments will be omitted for \"Gate\""}));
  config_.profiles.at(4).attach = false;
  Process(Item());
  EXPECT_EQ(host_.Logged("Attachments will be omitted for \"Gate\""), 0);
}

TEST_F(NotificationProcessing, RetriesWithinTheLimitOfToday) {
  snapshot_.MaxRetryQueue = 1;
  helper_.exits = {7};
  Process(Item());
  Process(Item());
  EXPECT_EQ(FilesLeft(), Texts{"notify-mail-4-1500000000-250-1"}) << "the newer one";
}

TEST_F(NotificationProcessing, WhatCannotBePreparedHasFailed) {
  const test::LogLine line{
      75, "Failed to prepare email notification file. (Profile Description: Gate)"};
  config_.profiles.at(4).from = "nobody";
  EXPECT_FALSE(Process(Item(3)));
  EXPECT_EQ(host_.Log().back(), line);
  EXPECT_EQ(FilesLeft(), Texts{});

  struct FullDisk : NotifyFileStreamImpl {
    using NotifyFileStreamImpl::NotifyFileStreamImpl;
    void close() override {
      NotifyFileStreamImpl::close();
      isClosed = true;
    }
    bool fail() const override { return isClosed || NotifyFileStreamImpl::fail(); }
    bool isClosed = false;
  };
  stream_ = std::make_unique<FullDisk>(&test::FakeHost::Entry);
  config_.profiles.at(4).from = "f@x";
  EXPECT_FALSE(Process(Item()));
  EXPECT_EQ(host_.Log(), std::vector<test::LogLine>{line}) << "a disk may be full only at the end";
  EXPECT_EQ(FilesLeft(), Texts{});

  boost::filesystem::remove("data");
  test::WriteFile("data", "no folder");
  EXPECT_FALSE(Process(Item(1)));
  EXPECT_EQ(host_.Log(), (std::vector<test::LogLine>{{75, "Unable to create data directory: \"" +
                                                              folder_.Path() + "/data\""}}));
  EXPECT_EQ(helper_.paths, Texts{});
}

TEST_F(NotificationProcessing, LinksToTheVideoOfTheEvent) {
  const char* const noVideo = "[Not a Video Source Event]";
  const char* const noAddress = "[No Valid Web Server Address]";
  const char* const noCamera = "[Connected to Web Server]";
  const struct {
    const char* address;
    std::int32_t type;
    std::uint32_t source;
    std::vector<SourceId> cameras;
    const char* link;
  } rows[] = {
      {"", event_type::kInputTrigger, 3, {}, noAddress},
      {"web", event_type::kInputTrigger, 3, {}, noVideo},
      {"web", event_type::kVideoMotion, 66049, {}, noCamera},
      {"web", event_type::kTestMessage, 0xFFFFFFFF, {}, noCamera},
      {"web",
       event_type::kSourceGroup,
       3,
       {{66049}},
       "http://web/advanced.web?s=7;#"
       "eyJzZWFyY2hTZXJ2ZXJJZCI6IjciLCJzZWFyY2hDYW1lcmFJZHMiOls2NjA0OV0sInNlYXJjaFN0YXJ0IjoxNDk5"
       "OTk5OTk1MDAwLCJzZWFyY2hFbmQiOjE1MDAwMDAwMzAwMDAsIm1vZGUiOiJzZWFyY2giLCJxdWFsaXR5Ijo3LCJz"
       "aXplIjoxMDB9"},  // 1499999995 to 1500000030
  };
  for (const auto& row : rows) {
    config_.webAddress = row.address;
    NotifyWorkItem& item = Item();
    item.facts.eventType = row.type;
    item.source = {row.source};
    item.cameras = row.cameras;
    EXPECT_EQ(WebLinkFor(item, &test::FakeHost::Entry,
                         [](const WebServerAddress&, const std::string&) {
                           return R"({"list":[{"serial":"A1","id":"7"}]})";
                         }),
              row.link);
  }
}

}  // namespace
}  // namespace tvx
