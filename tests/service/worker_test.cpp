#include "service/worker.h"

#include <gtest/gtest.h>

#include <new>
#include <utility>
#include <vector>

#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

// Runs out of memory at the first reports.
class FailingOwner : public IStatusReceiver {
 public:
  explicit FailingOwner(int failures) : failures_(failures) {}

  void ReportStatus(std::int32_t profileId, ProfileStatus) override {
    if (failures_-- > 0) throw std::bad_alloc();
    reported.push_back(profileId);
  }

  std::vector<std::int32_t> reported;

 private:
  int failures_;
};

WorkQueue::Item Notification(const std::shared_ptr<const NotifyConfig>& config, std::int32_t id) {
  auto item = std::make_shared<NotifyWorkItem>();
  item->config = config;
  item->profile = &config->profiles.at(id);
  return item;
}

TEST(Worker, OneBadNotificationIsLoggedAndReportedAndTheNextOneWorks) {
  const struct {
    int failures;
    std::vector<std::int32_t> reported;
  } cases[] = {{1, {1, 2}}, {2, {2}}};  // the second one fails in the report of the failure, too
  for (const auto& one : cases) {
    const test::TemporaryFolder folder;
    const test::FakeHost host;
    NotifyConfig config;
    for (const std::int32_t id : {1, 2}) {
      config.profiles[id].ID = id;
      config.profiles[id].description = id == 1 ? "Gate" : "Yard";
    }
    const auto shared = std::make_shared<const NotifyConfig>(std::move(config));
    auto stop = std::make_shared<NotifyWorkItem>();
    stop->kind = NotifyWorkItem::Kind::Stop;
    WorkQueue queue;
    queue.Enqueue({Notification(shared, 1), Notification(shared, 2), stop});

    FailingOwner owner(one.failures);
    ProcessChannel channel;
    RunWorkerLoop(queue, owner, channel, &test::FakeHost::Entry, [&] {
      return WorkerConfig{shared, false};
    });
    EXPECT_EQ(owner.reported, one.reported);
    EXPECT_EQ(host.Logged("Failed to process notification of profile Gate: std::bad_alloc"),
              one.failures);
    EXPECT_EQ(host.Logged("Failed to process notification of profile Yard: std::bad_alloc"), 0);
  }
}

}  // namespace
}  // namespace tvx
