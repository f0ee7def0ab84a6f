// The eight exports, called as the host calls them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/process_channel.h"
#include "support/documents.h"
#include "support/fake_programs.h"
#include "support/plugin_driver.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

// Calls one with a result record full of a pattern. The offsets of the words that no longer hold it.
using Offsets = std::vector<std::size_t>;
template <typename Request>
Offsets Written(test::Export* function, Request request, unsigned char* bytes = nullptr) {
  alignas(void*) unsigned char own[96];
  if (bytes == nullptr) bytes = own;
  std::memset(bytes, 0x5A, sizeof(own));
  EXPECT_EQ(function(&request, bytes), 0);
  Offsets offsets;
  for (std::size_t at = 0; at < sizeof(own); at += 4) {
    if (std::memcmp(bytes + at, "\x5A\x5A\x5A\x5A", 4) != 0) offsets.push_back(at);
  }
  return offsets;
}

class ExportsTest : public testing::Test {
 protected:
  ~ExportsTest() override { EXPECT_EQ(host_.Problems(), std::vector<std::string>{}); }

  test::TemporaryFolder folder_;
  test::FakeHost host_;
};

TEST_F(ExportsTest, WriteTheListedBytesAndNothingElse) {
  host_.Answer(HostCommand::ChannelMessage, 1, 0);
  const test::Exports call = test::LinkedExports();
  unsigned char capabilities[96];
  Written(call.Load, LoadRequest{{}, 4711, &test::FakeHost::Entry});
  Written(call.Unload, ReadRequest{});
  TheProcessChannel().RunProgram({"./curl"});
  EXPECT_TRUE(host_.Chunks().empty()) << "a host that has unloaded is sent nothing";
  Written(call.Load, LoadRequest{{}, 4711, &test::FakeHost::Entry}, capabilities);
  const unsigned char expected[64] = {
      0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0, 0, 0x0C, 0,    0x6C, 0,    0,    2,
      0,    0,    0,    0,    0x10, 0,    0,    2,    0, 0, 0,    0,    0,    0,    0,    0,
      0,    0,    0,    3,    0,    0,    0,    0,    0, 0, 0,    0,    0x5A, 0x5A, 0x5A, 0x5A,
      0x5A, 0x5A, 0x5A, 0x5A, 1,    0,    1,    1,    0, 0, 0x5A, 0x5A, 0,    0,    0,    0};
  EXPECT_EQ(std::memcmp(capabilities, expected, sizeof(expected)), 0);
  ReadRequest watch{};
  watch.runWatchdog = 1;
  for (const bool isLoaded : {true, false}) {
    EXPECT_EQ(Written(call.Seek, ReadRequest{}), (Offsets{8}));
    EXPECT_EQ(Written(call.Read, isLoaded ? ReadRequest{} : watch), (Offsets{16}));  // at once
    for (const std::uint32_t code : {99u, 2u, 4u, isLoaded ? 3u : 1u}) {
      IoctlRequest request{};
      request.code = static_cast<ControlCode>(code);
      EXPECT_EQ(Written(call.Ioctl, request), (Offsets{12})) << code;
    }
    for (const std::uint32_t kind : {1u, 2u, 32u}) {
      EXPECT_EQ(Written(call.Write, test::PluginDriver::Record(kind, kind == 32 ? kModuleId : 7)),
                kind == 1 ? (Offsets{16, 20}) : (Offsets{16}));
    }
    EXPECT_EQ(Written(call.Close, ReadRequest{}), (Offsets{8}));
    EXPECT_EQ(Written(call.Open, ReadRequest{}), (Offsets{8, 12}));
    EXPECT_EQ(Written(call.Unload, ReadRequest{}), (Offsets{8}));
  }
}

TEST_F(ExportsTest, WriteTellsFramesEventsAndTicksApart) {
  test::PluginDriver plugin(host_, test::LinkedExports());
  const auto isTakenAsEvent = [&](std::uint32_t kind, std::uint32_t addressee, int skip = 0) {
    WriteRequest record = test::PluginDriver::Record(kind, addressee);
    record.skip = static_cast<decltype(record.skip)>(skip);
    host_.ClearLog();
    plugin.WriteRecord(record, test::EventDocument(test::EventEntry(9)));
    return !host_.Log().empty();
  };
  EXPECT_TRUE(isTakenAsEvent(2, 0));
  EXPECT_TRUE(isTakenAsEvent(32, 0));  // a tick of somebody else's
  EXPECT_FALSE(isTakenAsEvent(32, kModuleId));
  EXPECT_FALSE(isTakenAsEvent(2, kModuleId));
  EXPECT_FALSE(isTakenAsEvent(1, 0));  // a frame, refused
  EXPECT_FALSE(isTakenAsEvent(2, 0, 1));
  // A frame is one even when it is addressed to the module.
  plugin.Update(
      test::SystemDocument(test::Devices(test::Camera(2, "Gate", 5, "ID='786432' Number='1'")) +
                           "<Events>" + test::NotifyingEvent(7, 2) + "</Events>"));
  EXPECT_TRUE(plugin.Frame(kModuleId, true));
  EXPECT_FALSE(plugin.Frame(kModuleId + 1, true));
}

// The host may exit with its threads inside, which then outlive what is destroyed at the exit.
TEST(Exit, LeavesWhatTheLentWorkerUses) {
  static test::FakeHost* host;
  static test::PluginDriver* plugin;
  static constexpr auto kNotify = [](std::size_t count) {
    plugin->Event(test::EventDocument(test::EventEntry(1, true, "", "<SourceGroup ID='3'/>")));
    return host->WaitFor([&] { return host->Statuses().size() == count; });
  };
  const auto exit = [] {
    std::atexit([] { std::_Exit(kNotify(2) ? 7 : 8); });  // the first registered runs last
    const test::TemporaryFolder folder;
    test::FakeHost aHost;
    test::PluginDriver aPlugin(*(host = &aHost), test::LinkedExports());
    plugin = &aPlugin;
    test::FakePrograms programs(aHost, [](const std::string& chunk) { plugin->Report(chunk); });
    plugin->Open();
    plugin->Update(test::Change(test::Notify(test::Profile(1))));
    plugin->StartLoops();
    std::exit(kNotify(1) ? 0 : 1);
  };
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // in a process that has used nothing yet
  EXPECT_EXIT(exit(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace tvx
