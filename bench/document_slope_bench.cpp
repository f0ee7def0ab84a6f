// Large documents through the exported IOCTL and Write: what ten times the document costs. Processor
// time of the call alone; each iteration has a plug-in of its own.
//
//   servers/N   a change with N mail servers, where as many others are configured
//   profiles/N  a change with N profiles, likewise
//   cameras/N   a full system document of N cameras whose motion notifies
//   entries/N   an event document with N entries, whose clips wait for frames
//   sources/N   an event of N sources
#include <functional>
#include <string>

#include "support/documents.h"
#include "support/plugin.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr const char* kVideo = "attach='1' MaxVideoSeconds='10'";

std::string Repeat(int count, const std::function<std::string(const std::string&)>& text) {
  std::string all;
  for (int i = 1; i <= count; ++i) all += text(std::to_string(i));
  return all;
}

std::string Servers(int count, const std::string& domain) {
  return test::Change(test::Notify(test::Profile(1), "", Repeat(count, [&](const auto& number) {
                                     return "<smtp description='Main' address='mail" + number +
                                            "." + domain + "'/>";
                                   })));
}

std::string Profiles(int count, const std::string& subject) {
  return test::Change(test::Notify(Repeat(count, [&](const auto& number) {
    return test::Profile(std::stoi(number), "subject='" + subject + "'");
  })));
}

std::string Sources(int count) {
  return Repeat(count,
                [](const auto& number) { return "<EventSource Type='2' ID='" + number + "'/>"; });
}

// One profile with video, one camera, and its first frames.
void PrepareVideo(Plugin& plugin) {
  plugin.driver.Update(test::Change(test::Notify(test::Profile(1, kVideo))));
  plugin.driver.Update(test::SystemDocument(test::Devices(test::Camera(2, "Gate")) + "<Events>" +
                                            test::NotifyingEvent(7, 2) + "</Events>"));
  plugin.driver.Frame(static_cast<std::uint32_t>(test::Source(2)), true);
}

struct Case {
  const char* name;
  int small;
  std::function<void(Plugin&, int)> prepare;
  std::function<std::string(int)> document;
  bool isEvent;
};

const Case kCases[] = {
    {"servers", 10'000, [](Plugin& plugin, int n) { plugin.driver.Update(Servers(n, "old")); },
     [](int n) { return Servers(n, "new"); }, false},
    {"profiles", 2'000, [](Plugin& plugin, int n) { plugin.driver.Update(Profiles(n, "old")); },
     [](int n) { return Profiles(n, "new"); }, false},
    {"cameras", 1'000, [](Plugin& plugin, int) { plugin.driver.Update(ProfilesDocument(1)); },
     SystemDocumentOf, false},
    {"entries", 1'900, [](Plugin& plugin, int) { PrepareVideo(plugin); },
     [](int n) {
       return test::EventDocument(Repeat(n, [](const auto&) { return test::EventEntry(1); }));
     },
     true},
    {"sources", 5'000, [](Plugin& plugin, int) { PrepareVideo(plugin); },
     [](int n) { return test::EventDocument(test::EventEntry(1, true, "", Sources(n))); }, true},
};

void Take(benchmark::State& state, const Case& it, int size) {
  const std::string document = it.document(size);
  for (auto _ : state) {
    Plugin plugin;
    it.prepare(plugin, size);
    TimeOnce(state, [&] {
      if (it.isEvent) {
        plugin.driver.Event(document);
      } else {
        plugin.driver.Update(document);
      }
    });
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  for (const auto& it : tvx::bench::kCases) {
    for (const int size : {it.small, 10 * it.small}) {
      benchmark::RegisterBenchmark(
          (it.name + ("/" + std::to_string(size))).c_str(),
          [&it, size](benchmark::State& state) { tvx::bench::Take(state, it, size); })
          ->UseManualTime()
          ->Iterations(1);
    }
  }
  return tvx::bench::RunCases(argc, argv);
}
