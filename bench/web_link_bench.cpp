// Building a link without the network: address, scan of the web server's answer, search, encoding.
//
//   older/N, newer/N   N cameras, in the search format of older or newer web servers; the answer
//                      lists 20 systems and this one is the last
#include <string>
#include <vector>

#include "support/fake_host.h"
#include "support/run.h"
#include "web/web_link.h"

namespace tvx::bench {
namespace {

constexpr int kSystems = 20;

std::string LoginAnswerOf(bool newer) {
  std::string answer = R"({"version":"1.0","user":{"name":"admin"},"list":[)";
  for (int i = 0; i < kSystems; ++i) {
    const std::string number = std::to_string(1000 + i);
    answer += (i == 0 ? "" : ",");
    answer += R"({"id":"server-)" + number + R"(","name":"Building )" + number +
              R"(","serial":"A-)" + number + "\"" + (newer ? R"(,"model":"M2")" : "") +
              R"(,"address":"10.0.0.1"})";
  }
  return answer + "]}";
}

void Build(benchmark::State& state, bool newer, int cameraCount) {
  const std::string answer = LoginAnswerOf(newer);
  const std::string serial = "A-" + std::to_string(1000 + kSystems - 1);
  std::vector<SourceId> cameras;
  for (int i = 0; i < cameraCount; ++i) {
    cameras.push_back(SourceId{66049 + 256 * static_cast<std::uint32_t>(i)});
  }
  const WebLinkEvent event{true, 1499999990, 1500000030};
  const WebFetch fetch = [&](const WebServerAddress&, const std::string&) { return answer; };
  for (auto _ : state) {
    const std::string link = BuildWebLink(event, "http://webclient.example.com:8080", serial,
                                          cameras, {kModuleId, &test::FakeHost::Entry}, fetch);
    if (link.front() != 'h') state.SkipWithError("no link was built");
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  for (const int cameras : {1, 16}) {
    const std::string count = std::to_string(cameras);
    benchmark::RegisterBenchmark(("older/" + count).c_str(), tvx::bench::Build, false, cameras);
    benchmark::RegisterBenchmark(("newer/" + count).c_str(), tvx::bench::Build, true, cameras);
  }
  return tvx::bench::RunCases(argc, argv);
}
