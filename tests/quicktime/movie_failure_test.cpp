// What goes wrong is told, and leaves no file behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include "quicktime/coded_clip.h"
#include "quicktime/movie_file.h"
#include "quicktime/movie_writer.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

constexpr FourCharacterCode kRaw = MakeFourCharacterCode("RAW1");
const CodedFrames kFrames = {{"first", true}, {"second", false}};

// Writing stops at this many bytes, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

void Track(ExportContainer& writer, std::uint32_t frames) {
  writer.AddVideoTrack(kRaw, 320, 240, 1, frames, NoTextOverlayStyle);
}

void Sample(ExportContainer& writer, std::size_t bytes = 5) {
  const std::string payload(bytes, 'x');
  writer.WriteSample(payload.data(), payload.size(), kKeyFrameSample, 0);
}

class MovieFailure : public ::testing::Test {
 protected:
  // Names in the test's folder.
  std::vector<std::string> Left() const {
    std::vector<std::string> names;
    for (const auto& entry : boost::filesystem::directory_iterator(folder_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  tvx::test::TemporaryFolder folder_;
};

TEST_F(MovieFailure, OpenAnswersWithTheReason) {
  ::mkdir("folder", 0700);
  tvx::test::WriteFile("file", "");
  ASSERT_EQ(::symlink("loop", "loop"), 0);
  const std::pair<std::string, int> cases[] = {
      {"", ENOENT},       {"missing/clip.mov", ENOENT},
      {"folder", EISDIR}, {"file/clip.mov", ENOTDIR},
      {"loop", ELOOP},    {std::string(300, 'n'), ENAMETOOLONG},
      {"none/", ENOENT}};
  for (const auto& [path, error] : cases) {
    MovieWriter writer;
    EXPECT_EQ(writer.Open(path), error) << path;
    writer.Finish(0.0);
  }
  EXPECT_THAT(Left(), testing::UnorderedElementsAre("folder", "file", "loop"));
}

TEST_F(MovieFailure, AFileHasItsNameOnlyWhenItIsWhole) {
  const std::string longest = std::string(251, 'n') + ".mov";
  for (const std::string& name : {std::string("clip.mov"), longest}) {
    tvx::test::WriteFile(name, "the one before");
    {
      MovieWriter writer;
      ASSERT_EQ(writer.Open(name), 0);
      Track(writer, 2);
      Sample(writer);
      EXPECT_EQ(tvx::test::ReadFile(name), "the one before");
    }
    EXPECT_EQ(tvx::test::ReadFile(name), "the one before");
    EXPECT_THAT(Left(), testing::ElementsAre(name));
    WriteMovie(name, kRaw, 320, 240, 1, kFrames);
    EXPECT_THAT(Left(), testing::ElementsAre(name));
    EXPECT_THAT(ReadMovie(name).brokenRules, testing::IsEmpty());
    std::remove(name.c_str());
  }
}

TEST_F(MovieFailure, CallsBesideWhatWasAnnouncedFailAndLeaveNothing) {
  using Calls = void (*)(MovieWriter&);
  const Calls cases[] = {
      [](MovieWriter& writer) { Sample(writer); },
      [](MovieWriter& writer) { writer.Finish(0.0); },
      [](MovieWriter& writer) { Track(writer, 0); },
      [](MovieWriter& writer) { Track(writer, 0xFFFFFFFF); },
      [](MovieWriter& writer) {
        Track(writer, 1);
        Track(writer, 1);
      },
      [](MovieWriter& writer) {
        Track(writer, 2);
        Sample(writer);
        writer.Finish(0.0);
      },
      [](MovieWriter& writer) {
        Track(writer, 1);
        Sample(writer);
        Sample(writer);
      },
      [](MovieWriter& writer) {
        Track(writer, 1);
        writer.WriteSample("x", 1, kKeyFrameSample, 1);
      },
      [](MovieWriter& writer) {
        Track(writer, 1);
        writer.WriteSample("x", SIZE_MAX, kKeyFrameSample, 0);
      },
  };
  int number = 0;
  for (const Calls calls : cases) {
    SCOPED_TRACE(number++);
    MovieWriter writer;
    ASSERT_EQ(writer.Open("clip.mov"), 0);
    EXPECT_THROW(calls(writer), std::logic_error);
    EXPECT_THAT(Left(), testing::IsEmpty());
    EXPECT_THROW(Sample(writer), std::logic_error);
    EXPECT_THROW(writer.Finish(0.0), std::logic_error);
  }
}

TEST_F(MovieFailure, AMovieWithoutAPictureFails) {
  EXPECT_THROW(WriteMovie("clip.mov", kRaw, 320, 240, 1, {{"", true}, {"", false}}),
               std::runtime_error);
  EXPECT_THAT(Left(), testing::IsEmpty());
}

// The disk may refuse while samples are written or only when the rest of them and the index are.
TEST_F(MovieFailure, AFullDiskIsTold) {
  for (const std::size_t limit : {100U, 5000U, 1'500'000U}) {
    for (const std::size_t sample : {2000U, 900'000U, 4'000'000U}) {
      if (limit > 5 * sample) continue;
      const FileSizeLimit full(limit);
      try {
        WriteMovie("clip.mov", kRaw, 320, 240, 1, CodedFrames(5, {std::string(sample, 'x'), true}));
        ADD_FAILURE() << limit << " bytes took samples of " << sample;
      } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EFBIG);
        EXPECT_THAT(error.what(), testing::HasSubstr("clip.mov"));
      }
      EXPECT_THAT(Left(), testing::IsEmpty());
    }
  }
}

// A device is neither replaced nor removed.
TEST_F(MovieFailure, ADeviceThatTakesNothingIsToldAndLeftAlone) {
  ASSERT_EQ(::symlink("/dev/full", "clip.mov"), 0);
  EXPECT_THROW(WriteMovie("clip.mov", kRaw, 320, 240, 1, kFrames), std::system_error);
  EXPECT_THAT(Left(), testing::ElementsAre("clip.mov"));
  struct stat found {};
  ASSERT_EQ(::stat("/dev/full", &found), 0);
  EXPECT_TRUE(S_ISCHR(found.st_mode));
}

TEST_F(MovieFailure, ANameThatWasTakenMeanwhileIsTold) {
  MovieWriter writer;
  ASSERT_EQ(writer.Open("clip.mov"), 0);
  Track(writer, 1);
  Sample(writer);
  ::mkdir("clip.mov", 0700);
  EXPECT_THROW(writer.Finish(0.0), std::system_error);
  EXPECT_THAT(Left(), testing::ElementsAre("clip.mov"));
}

TEST_F(MovieFailure, AWriterThatFailedCanBeOpenedAgain) {
  MovieWriter writer;
  ASSERT_EQ(writer.Open("first.mov"), 0);
  EXPECT_THROW(Sample(writer), std::logic_error);
  ASSERT_EQ(writer.Open("second.mov"), 0);
  Track(writer, 1);
  Sample(writer);
  writer.Finish(0.0);
  writer.Finish(0.0);
  EXPECT_THAT(Left(), testing::ElementsAre("second.mov"));
}

}  // namespace
}  // namespace quicktime::test
