// The eight exports, called as the host calls them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "host/host_records.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"
#include "support/temporary_folder.h"

extern "C" {
int Load(void* request, void* result);
int Open(void* request, void* result);
int Close(void* request, void* result);
int Read(void* request, void* result);
int Write(void* request, void* result);
int Seek(void* request, void* result);
int IOCTL(void* request, void* result);
int Unload(void* request, void* result);
}

namespace tvx {
namespace {

using Export = int (*)(void*, void*);

// A result record full of a pattern, so that every byte that is written shows.
template <typename Result>
struct Answer {
  Answer() { std::memset(bytes, 0x5A, sizeof(bytes)); }
  Result& Record() { return *reinterpret_cast<Result*>(bytes); }

  // The offsets of the words that no longer hold the pattern.
  std::vector<std::size_t> Written() const {
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at < sizeof(bytes); at += 4) {
      std::uint32_t word = 0;
      std::memcpy(&word, bytes + at, 4);
      if (word != 0x5A5A5A5A) offsets.push_back(at);
    }
    return offsets;
  }

  alignas(void*) unsigned char bytes[96];
};

using Offsets = std::vector<std::size_t>;

template <typename Result, typename Request>
Answer<Result> Call(Export function, Request request) {
  Answer<Result> answer;
  EXPECT_EQ(function(&request, answer.bytes), 0);
  return answer;
}

WriteRequest MakeWrite(std::uint32_t kind, std::uint32_t addressee, const std::string& data) {
  WriteRequest request{};
  request.kind = static_cast<RecordKind>(kind);
  request.addressee = addressee;
  request.data = data.data();
  request.length = static_cast<std::uint32_t>(data.size());
  return request;
}

IoctlRequest MakeIoctl(std::uint32_t code, const std::string& payload = "") {
  IoctlRequest request{};
  request.code = static_cast<ControlCode>(code);
  request.payload = payload.data();
  request.length = static_cast<std::uint32_t>(payload.size());
  return request;
}

Answer<PluginCapabilities> LoadPlugin() {
  return Call<PluginCapabilities>(Load, LoadRequest{{}, 4711, &test::FakeHost::Entry});
}

class ExportsTest : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
  test::FakeHost host_;
};

// First: once closed, the process channel stays closed for the life of the process.
TEST_F(ExportsTest, RunsFromLoadToUnloadWithThreadsOfTheHost) {
  LoadPlugin();
  test::FakePrograms programs(
      host_, [](const std::string& chunk) { Call<IoctlResult>(IOCTL, MakeIoctl(4, chunk)); });
  test::WriteFile("notify.xml",
                  "<tDVR><Notify ID='786432'><Servers><smtp description='d' address='a'/></Servers>"
                  "<Profiles><smtp ID='1' description='Gate' from='f@x' subject='s'><to>t@x</to>"
                  "</smtp></Profiles></Notify></tDVR>");
  std::thread opener([] { Call<OpenResult>(Open, ReadRequest{}); });
  opener.join();
  std::thread worker([] { Call<IoctlResult>(IOCTL, MakeIoctl(1)); });
  std::thread watchdog([] {
    ReadRequest request{};
    request.runWatchdog = 1;
    Call<ReadResult>(Read, request);
  });
  const std::string event =
      "<tDVR><Notify ID='786432'><Profiles><Profile ID='1' Alarm='1' Action='1'/></Profiles>"
      "</Notify></tDVR>";
  Call<WriteResult>(Write, MakeWrite(2, 0, event));
  EXPECT_TRUE(host_.WaitFor([&] {
    return host_.Logged("Profile Description: Gate. Notification attempt return code= 0") == 1;
  }));
  Call<PlainResult>(Close, ReadRequest{});
  worker.join();
  watchdog.join();
  Call<PlainResult>(Unload, ReadRequest{});
  EXPECT_TRUE(host_.MalformedRequests().empty());
}

TEST_F(ExportsTest, WriteTheListedBytesAndNothingElse) {
  auto load = LoadPlugin();
  const unsigned char expected[64] = {
      0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0, 0, 0x0C, 0,    0x6C, 0,    0,    2,
      0,    0,    0,    0,    0x10, 0,    0,    2,    0, 0, 0,    0,    0,    0,    0,    0,
      0,    0,    0,    3,    0,    0,    0,    0,    0, 0, 0,    0,    0x5A, 0x5A, 0x5A, 0x5A,
      0x5A, 0x5A, 0x5A, 0x5A, 1,    0,    1,    1,    0, 0, 0x5A, 0x5A, 0,    0,    0,    0};
  EXPECT_EQ(std::memcmp(load.bytes, expected, sizeof(expected)), 0);
  EXPECT_EQ((Call<PlainResult>(Seek, ReadRequest{}).Written()), (Offsets{8}));
  EXPECT_EQ((Call<ReadResult>(Read, ReadRequest{}).Written()), (Offsets{16}));  // at once
  EXPECT_EQ((Call<IoctlResult>(IOCTL, MakeIoctl(99)).Written()), (Offsets{12}));
  EXPECT_EQ((Call<WriteResult>(Write, MakeWrite(2, 0, "x")).Written()), (Offsets{16}));
  EXPECT_EQ((Call<WriteResult>(Write, MakeWrite(32, kModuleId, "")).Written()), (Offsets{16}));
  EXPECT_EQ((Call<PlainResult>(Close, ReadRequest{}).Written()), (Offsets{8}));
  EXPECT_EQ((Call<PlainResult>(Unload, ReadRequest{}).Written()), (Offsets{8}));
  EXPECT_EQ((Call<PlainResult>(Unload, ReadRequest{}).Written()), (Offsets{8}));  // nothing there
}

TEST_F(ExportsTest, WithoutAServiceEveryCallIsHarmless) {
  const std::string event = "<tDVR/>";
  EXPECT_EQ((Call<WriteResult>(Write, MakeWrite(1, 7, event)).Written()), (Offsets{16, 20}));
  EXPECT_EQ((Call<WriteResult>(Write, MakeWrite(2, 7, event)).Written()), (Offsets{16}));
  EXPECT_EQ((Call<OpenResult>(Open, ReadRequest{}).Written()), (Offsets{8, 12}));
  ReadRequest watch{};
  watch.runWatchdog = 1;
  EXPECT_EQ((Call<ReadResult>(Read, watch).Written()), (Offsets{16}));
  for (const std::uint32_t code : {1u, 2u, 4u}) {
    EXPECT_EQ((Call<IoctlResult>(IOCTL, MakeIoctl(code, event)).Written()), (Offsets{12}));
  }
}

TEST_F(ExportsTest, WriteTellsFramesEventsAndTicksApart) {
  LoadPlugin();
  const std::string unknown =
      "<tDVR><Notify ID='786432'><Profiles><Profile ID='9' Alarm='1' Action='1'/></Profiles>"
      "</Notify></tDVR>";
  const auto isTakenAsEvent = [&](const WriteRequest& request) {
    host_.ClearLog();
    Call<WriteResult>(Write, request);
    return !host_.Log().empty();
  };
  EXPECT_TRUE(isTakenAsEvent(MakeWrite(2, 0, unknown)));
  EXPECT_TRUE(isTakenAsEvent(MakeWrite(32, 0, unknown)));  // a tick of somebody else's
  EXPECT_FALSE(isTakenAsEvent(MakeWrite(32, kModuleId, unknown)));
  EXPECT_FALSE(isTakenAsEvent(MakeWrite(2, kModuleId, unknown)));
  EXPECT_FALSE(isTakenAsEvent(MakeWrite(1, 0, unknown)));  // a frame, refused
  WriteRequest skipped = MakeWrite(2, 0, unknown);
  skipped.skip = 1;
  EXPECT_FALSE(isTakenAsEvent(skipped));
  // A frame is one even when it is addressed to the module; both words are written.
  auto frame = Call<WriteResult>(Write, MakeWrite(1, kModuleId, unknown));
  EXPECT_EQ(frame.Written(), (Offsets{16, 20}));
  EXPECT_EQ(frame.Record().frameAccepted, 0u);
  Call<PlainResult>(Unload, ReadRequest{});
}

}  // namespace
}  // namespace tvx
