// What goes wrong is told, and leaves no file behind.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>
#include <map>
#include <numeric>
#include <set>
#include <system_error>

#include "quicktime/movie_file.h"
#include "quicktime/movie_writer.h"
#include "quicktime/output_file.h"
#include "support/temporary_folder.h"

namespace {

// What the system makes of one call while a movie is written.
struct Fault {
  static constexpr int kHalf = -1;     // each call does half of what it was asked for
  static constexpr int kNothing = -2;  // the call says that it wrote no byte
  const char* call;
  int after;  // so many calls go well first
  int error;
};
Fault* fault = nullptr;

// How many of the bytes the call may write; -1, with errno, when it fails.
ssize_t Allowed(const char* call, std::size_t bytes) {
  if (fault == nullptr || std::strcmp(call, fault->call) != 0) return static_cast<ssize_t>(bytes);
  if (fault->error == Fault::kHalf) return static_cast<ssize_t>((bytes + 1) / 2);
  if (fault->after-- != 0) return static_cast<ssize_t>(bytes);
  errno = fault->error;
  return fault->error == Fault::kNothing ? 0 : -1;
}

template <typename Call>
Call* Real(Call*, const char* name) {
  return reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// In the place of the system's own.
extern "C" ssize_t writev(int file, const iovec* pieces, int count) {
  std::vector<iovec> allowed(pieces, pieces + count);
  std::size_t bytes = 0;
  for (const iovec& piece : allowed) bytes += piece.iov_len;
  ssize_t left = Allowed("writev", bytes);
  if (left <= 0 && bytes != 0) return left;
  for (iovec& piece : allowed) {
    piece.iov_len = std::min(piece.iov_len, static_cast<std::size_t>(left));
    left -= static_cast<ssize_t>(piece.iov_len);
  }
  return Real(&writev, "writev")(file, allowed.data(), count);
}

extern "C" ssize_t pwrite(int file, const void* bytes, std::size_t count, off_t at) {
  const ssize_t allowed = Allowed("pwrite", count);
  if (allowed <= 0) return allowed;
  return Real(&pwrite, "pwrite64")(file, bytes, static_cast<std::size_t>(allowed), at);
}

extern "C" int close(int file) {
  const int result = Real(&close, "close")(file);
  return Allowed("close", 1) < 0 ? -1 : result;
}

namespace quicktime::test {
namespace {

constexpr FourCharacterCode kRaw = MakeFourCharacterCode("RAW1");

class MovieFailure : public ::testing::Test {
 protected:
  // Names in the test's folder.
  std::string Left() const {
    std::set<std::string> names;
    for (const auto& entry : boost::filesystem::directory_iterator(folder_.Path())) {
      names.insert(entry.path().filename().string() + " ");
    }
    return std::accumulate(names.begin(), names.end(), std::string());
  }

  tvx::test::TemporaryFolder folder_;
};

TEST_F(MovieFailure, OpenAnswersWithTheReason) {
  ::mkdir("folder", 0700);
  tvx::test::WriteFile("file", "");
  ASSERT_EQ(::symlink("loop", "loop"), 0);
  ASSERT_EQ(::symlink("file", "trap.mov.part"), 0);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const std::pair<std::string, int> cases[] = {
      {"", ENOENT},       {"missing/clip.mov", ENOENT},
      {"folder", EISDIR}, {"file/clip.mov", ENOTDIR},
      {"loop", ELOOP},    {std::string(300, 'n'), ENAMETOOLONG},
      {"none/", ENOENT},  {"trap.mov", ELOOP},  // nobody leads the half-written file elsewhere
      {"fifo", ENXIO}};                         // nor keeps us waiting for a reader
  for (const auto& [path, error] : cases) {
    MovieWriter writer;
    EXPECT_EQ(writer.Open(path), error) << path;
    writer.Finish(0.0);
  }
  EXPECT_EQ(Left(), "fifo file folder loop trap.mov.part ");
}

// The calls, a letter each: a track of no, one, two, as many and more frames than may be, a sample,
// one of another track, one longer than memory, one without bytes, and the end.
void Call(MovieWriter& writer, const std::string& calls) {
  const std::map<char, std::uint32_t> tracks = {
      {'0', 0}, {'1', 1}, {'2', 2}, {'m', 2'000'000}, {'M', 2'000'001}};
  for (const char call : calls) {
    if (tracks.count(call) != 0) {
      writer.AddVideoTrack(kRaw, 320, 240, 1, tracks.at(call), NoTextOverlayStyle);
    } else if (call == 'f') {
      writer.Finish(0.0);
    } else {
      writer.WriteSample("x",
                         call == 'l'   ? SIZE_MAX
                         : call == 'e' ? 0
                                       : 1,
                         kKeyFrameSample, call == 'o' ? 1 : 0);
    }
  }
}

// Whatever was there under that name stays until the movie is whole.
TEST_F(MovieFailure, CallsBesideWhatWasAnnouncedFailAndLeaveNothing) {
  tvx::test::WriteFile("clip.mov", "the one before");
  tvx::test::WriteFile("next.mov.part", std::string(100'000, 'x'));  // of a host that was killed
  MovieWriter writer;
  for (const std::string calls : {"s", "f", "0", "M", "11", "2sf", "1ss", "1o", "1l", "1ef"}) {
    SCOPED_TRACE(calls);
    ASSERT_EQ(writer.Open("clip.mov"), 0);
    Call(writer, calls.substr(0, calls.size() - 1));
    EXPECT_THROW(Call(writer, calls.substr(calls.size() - 1)), std::exception);
    for (const char* call : {"1", "s", "f"}) EXPECT_THROW(Call(writer, call), std::logic_error);
    EXPECT_EQ(Left(), "clip.mov next.mov.part ");
  }
  // The same object writes the next one, and that only; one that is opened anew starts anew.
  ASSERT_EQ(writer.Open("first.mov"), 0);
  Call(writer, "m");
  ASSERT_EQ(writer.Open("next.mov"), 0);
  Call(writer, "1sff");
  EXPECT_THAT(ReadMovie("next.mov").brokenRules, testing::IsEmpty());
  {
    MovieWriter given;
    ASSERT_EQ(given.Open("clip.mov"), 0);
    Call(given, "1s");
  }
  EXPECT_EQ(Left(), "clip.mov next.mov ");
  EXPECT_EQ(tvx::test::ReadFile("clip.mov"), "the one before");
}

// What the system does by halves is done to the end, and what it refuses is told. The samples are
// gathered, just fill what is gathered, or are written by themselves.
TEST_F(MovieFailure, EveryCallIsAskedForItsResult) {
  const struct {
    Fault fault;
    int told;  // 0: the movie is whole
  } rows[] = {{{"none", 0, 0}, 0},
              {{"writev", 0, Fault::kHalf}, 0},
              {{"writev", 2, EINTR}, 0},
              {{"writev", 0, ENOSPC}, ENOSPC},
              {{"writev", 1, Fault::kNothing}, EIO},
              {{"pwrite", 0, Fault::kHalf}, 0},
              {{"pwrite", 0, EINTR}, 0},
              {{"pwrite", 0, ENOSPC}, ENOSPC},
              {{"pwrite", 0, Fault::kNothing}, EIO},
              {{"close", 0, EINTR}, 0},
              {{"close", 0, EIO}, EIO}};
  constexpr std::size_t kPiece = OutputFile::kLongPiece;
  CodedFrames frames;
  for (const std::size_t length :
       {kPiece, kPiece - 1, kPiece - 1, kPiece - 1, kPiece - 1, std::size_t{4}, std::size_t{1},
        kPiece - 1, kPiece - 1, kPiece - 1, kPiece - 1, std::size_t{5}, 9 * kPiece}) {
    frames.push_back({std::string(length, static_cast<char>('a' + frames.size())), true});
  }
  const std::string name = std::string(251, 'n') + ".mov";  // the longest there is
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.fault.call << " " << row.fault.error);
    tvx::test::WriteFile(name, "the one before");
    Fault copy = row.fault;
    fault = &copy;
    int told = 0;
    try {
      WriteMovie(name, kRaw, 320, 240, 2, frames);
    } catch (const std::system_error& error) {
      told = error.code().value();
      EXPECT_THAT(error.what(), testing::HasSubstr(name));
    }
    fault = nullptr;
    EXPECT_EQ(told, row.told);
    EXPECT_EQ(Left(), name + " ");
    if (told != 0) {
      EXPECT_EQ(tvx::test::ReadFile(name), "the one before");
      continue;
    }
    const MovieFile movie = ReadMovie(name);
    EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_TRUE(movie.samples.at(i) == frames[i].payload) << i;
    }
  }
}

// Devices and pipes are neither replaced nor removed, and a name may be taken meanwhile.
TEST_F(MovieFailure, WhatIsNoFileIsToldAndLeftAlone) {
  ASSERT_EQ(::symlink("/dev/full", "full"), 0);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  for (const char* name : {"full", "fifo"}) {
    EXPECT_THROW(WriteMovie(name, kRaw, 320, 240, 1, {{"first", true}}), std::system_error);
  }
  ::close(reader);
  MovieWriter writer;
  ASSERT_EQ(writer.Open("clip.mov"), 0);
  Call(writer, "1s");
  ::mkdir("clip.mov", 0700);
  EXPECT_THROW(writer.Finish(0.0), std::system_error);
  EXPECT_EQ(Left(), "clip.mov fifo full ");
  EXPECT_TRUE(boost::filesystem::is_other("/dev/full"));
}

}  // namespace
}  // namespace quicktime::test
