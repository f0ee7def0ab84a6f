// `notifypi host` as a program: the breaches of the contract that it finds, how it feeds and ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/table.h"
#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

struct Outcome {
  int exitCode;
  std::string output;

  std::vector<json> Lines(const std::string& kind) const {
    std::vector<json> lines;
    std::istringstream text(output);
    for (std::string line; std::getline(text, line);) {
      const json object = json::parse(line, nullptr, false);
      if (object.is_object() && object["kind"] == kind) lines.push_back(object);
    }
    return lines;
  }
  std::vector<std::string> Texts(const std::string& kind) const {
    std::vector<std::string> texts;
    for (const json& line : Lines(kind)) texts.push_back(line["text"]);
    return texts;
  }
};

Outcome RunShell(const std::string& command) {
  const int status = std::system(("{ " + command + "\n} >output 2>&1").c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ReadFile("output")};
}

class HostCommand : public testing::Test {
 protected:
  HostCommand() {
    WriteFile("event.xml",
              "<tDVR><Notify ID='786432'><Profiles><Profile ID='1' Alarm='1' Action='7'/>"
              "</Profiles></Notify></tDVR>");
    WriteFile("notify.xml",
              "<tDVR><Notify ID='786432'><Servers><smtp description='d' address='127.0.0.1'/>"
              "</Servers><Profiles autoincrement='2'><smtp ID='1' description='Gate' from='a@b' "
              "subject='s'><to>c@d</to><body>x</body></smtp></Profiles></Notify></tDVR>");
  }
  static Outcome RunHost(const std::string& arguments, const std::string& before = {}) {
    return RunShell(before + " " NOTIFYPI_COMMAND " host --json " + arguments);
  }

  TemporaryFolder folder_;
};

TEST_F(HostCommand, FindsEachBreachOfTheContract) {
  const std::string table = ReadFile(BREACHES);
  for (const auto& row : Rows(table.substr(table.find("\n\n")))) {
    const std::string camera =
        row[0] == "event" ? "" : "--speed 20 --before 4 --camera '66049 jpeg'";
    const Outcome run =
        RunHost("--settle 0.1 --event event.xml --plugin " FAULTY_PLUGIN " " + camera,
                "PLUGIN_FAULT='" + row[1] + "'");
    EXPECT_EQ(run.exitCode, row[2].empty() ? 0 : 1) << row[1] << run.output;
    if (row[2].empty()) continue;  // a release may overtake the answer
    EXPECT_THAT(run.Texts("fault"), Contains(HasSubstr(row[2]))) << row[1];
  }
}

TEST_F(HostCommand, TimeOutIsAFaultAndLeavesNoProgramBehind) {
  WriteFile("curl", "#!/bin/sh\n[ $1 = -V ] && exit\necho $$ > pid; exec sleep 60\n");
  chmod("curl", 0700);
  const Outcome run = RunHost("--event event.xml --timeout 1");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.Texts("fault"), ElementsAre("not done after 1 s; still running: ./curl"));
  // Gone, or dead and not yet reaped by whoever has inherited it.
  EXPECT_EQ(RunShell("grep '^State:[^Z]*$' /proc/$(cat pid)/status").output.find("State"),
            std::string::npos);
}

TEST_F(HostCommand, StopsCleanlyOnASignal) {
  for (const std::string signal : {"INT", "HUP", "QUIT"}) {
    const Outcome run = RunHost("--mail-server 'echo up; exec sleep 60'",
                                "timeout --preserve-status -s " + signal + " 0.5");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_THAT(run.Texts("host"), Contains("mail server down"));
    EXPECT_EQ(run.Texts("host").back(), "unloaded");
  }
}

// The host makes the system document that goes with the cameras: the plug-in takes what notifies,
// and of a camera with pictures only those.
TEST_F(HostCommand, FeedsEachPacketOfAFile) {
  RunShell(
      "for codec in libx264 mpeg4 mjpeg; do ffmpeg -v error -f lavfi -i "
      "testsrc2=size=64x48:rate=10:duration=2 -c:v $codec -g 10 $codec.mp4; done");
  const Outcome run = RunHost(
      "--settle 0.1 --speed 20 --before 3 --event event.xml --camera '66049 h264 libx264.mp4'"
      " --camera '66305 mpeg4 mpeg4.mp4' --camera '66305/1 jpeg mjpeg.mp4'"
      " --camera '66561 h264 mpeg4.mp4'");
  EXPECT_EQ(run.exitCode, 0) << run.output;
  const int packets =
      std::stoi(RunShell("ffprobe -v error -show_packets -of compact libx264.mp4 | wc -l").output);
  std::string accounts;
  for (const json& it : run.Lines("frames")) {
    EXPECT_EQ(it["offered"], packets);
    EXPECT_EQ(it["taken"], it["stream"] == 66305 ? 0 : packets);
    EXPECT_EQ(it["given_back"], it["taken"]);
    accounts += it["stream"].dump() + " ";
  }
  EXPECT_EQ(accounts, "66049 66305 66561 268501761 ");
}

TEST_F(HostCommand, TellsWhatCannotBeRun) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"--event event.xml --mail-server 'echo no port >&2; exit 3'", 1, "come up: no port"},
      {"--camera '66049/16 h264'", 2, "\"66049/16\" is no stream"},
      {"--camera '66049 h264 event.xml'", 2, "ffprobe finds no video in "},
      {"--camera '66049 h264 film.mp4'", 2, "film.mp4: no such file"},
      {"--help; " NOTIFYPI_COMMAND " chekc", 2, "no subcommand \"chekc\"; did you mean \"check\"?"},
      {"--script event.xml --event event.xml", 2, "--script excludes --event"},
      {"--speed 2 --event event.xml --plugin " NOTIFYPI_PLUGIN, 2, "cannot be driven"},
      {"--plugin event.xml --event event.xml", 2, "cannot load the plug-in"},
      {"--timeout -1", 2, "--timeout: \"-1\" is no number from 0 up"},
  };
  for (const auto& [arguments, exitCode, told] : cases) {
    const Outcome run = RunHost(arguments);
    EXPECT_EQ(run.exitCode, exitCode);
    EXPECT_THAT(run.output, HasSubstr(told));
  }
}

}  // namespace
}  // namespace tvx::test
