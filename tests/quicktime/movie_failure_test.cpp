// What goes wrong is told, and leaves no file behind.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>

#include "quicktime/movie_fixture.h"
#include "quicktime/movie_writer.h"
#include "quicktime/output_file.h"

namespace {

// What becomes of the call of writev after so many others, or of close: an error, no byte written,
// or half of its last piece.
constexpr int kClose = -1, kNothing = 0, kHalf = -1;
int faultyCall = INT_MAX, result = 0, calls = 0;

}  // namespace

// In the place of the system's own.
extern "C" ssize_t writev(int file, const iovec* pieces, int count) {
  iovec some[] = {pieces[0], pieces[count - 1]};
  if (calls++ == faultyCall) {
    errno = result;
    if (result != kHalf) return result == kNothing ? 0 : -1;
    some[some[1].iov_len != 0 ? count - 1 : 0].iov_len /= 2;
  }
  return ::syscall(SYS_writev, file, some, count);
}

extern "C" int close(int file) {
  const long closed = ::syscall(SYS_close, file);
  errno = faultyCall == kClose ? result : errno;
  return faultyCall == kClose ? -1 : static_cast<int>(closed);
}

namespace quicktime::test {
namespace {

using MovieFailure = MovieTest;

// A letter a call: a track of 0, 1, 2, as many (m) and more (M) frames than may be; a sample, one
// of another track, one longer than memory, an empty one; the end.
void Call(MovieWriter& writer, const std::string& calls) {
  for (const char call : calls) {
    if (call == 'f') {
      writer.Finish(0.0);
    } else if (std::strchr("sole", call) != nullptr) {
      writer.WriteSample("x", call == 'l' ? SIZE_MAX : call != 'e', kKeyFrameSample, call == 'o');
    } else {
      const auto frames = call == 'm' ? 2'000'000U : call == 'M' ? 2'000'001U : call - '0';
      writer.AddVideoTrack(kRaw, 320, 240, 1, frames, NoTextOverlayStyle);
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
    EXPECT_EQ(RunShell("echo *"), "clip.mov next.mov.part\n");
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
  EXPECT_EQ(RunShell("echo *"), "clip.mov next.mov\n");
  EXPECT_EQ(tvx::test::ReadFile("clip.mov"), "the one before");
}

// Halves are done to the end, a refusal is told. Samples are gathered, just fill what is gathered,
// or are written by themselves.
TEST_F(MovieFailure, EveryCallIsAskedForItsResult) {
  constexpr std::size_t kPiece = OutputFile::kLongPiece, kLess = kPiece - 1;
  constexpr std::size_t kLengths[] = {kPiece, kLess, kLess, kLess, kLess, 4,         1,
                                      kLess,  kLess, kLess, kLess, 5,     9 * kPiece};
  CodedFrames frames;
  for (const std::size_t length : kLengths) {
    frames.push_back({std::string(length - 1, static_cast<char>('a' + frames.size())) + "!", true});
  }
  const std::string name = std::string(251, 'n') + ".mov";  // the longest there is
  for (int call = kClose, made = 1; call + 1 < made; made = calls, ++call) {
    for (const int fault : {kNothing, ENOSPC, kHalf, EINTR}) {
      if (call == kClose && (fault == kHalf || fault == kNothing)) continue;
      SCOPED_TRACE(testing::Message() << call << " " << fault);
      tvx::test::WriteFile(name, "the one before");
      int told = calls = 0;
      faultyCall = call;
      result = fault;
      try {
        WriteMovie(name, kRaw, 320, 240, 2, frames);
      } catch (const std::system_error& error) {
        told = error.code().value();
        EXPECT_THAT(error.what(), testing::HasSubstr(name));
      }
      faultyCall = INT_MAX;
      EXPECT_EQ(told, fault == kNothing ? EIO : fault == ENOSPC ? ENOSPC : 0);
      EXPECT_EQ(RunShell("echo *"), name + "\n");
      if (told == 0) {
        ExpectMovie(name, frames);
      } else {
        EXPECT_EQ(tvx::test::ReadFile(name), "the one before");
      }
    }
  }
}

// Nobody leads the half-written file elsewhere, nor keeps us waiting for a reader. Devices and pipes
// are neither replaced nor removed, and a name may be taken meanwhile.
TEST_F(MovieFailure, WhatIsInTheWayIsToldAndLeftAlone) {
  RunShell("mkdir folder; touch file; ln -s loop loop; ln -s file trap.mov.part; mkfifo fifo");
  const std::pair<std::string, int> errors[] = {
      {"", ENOENT},       {"missing/clip.mov", ENOENT},
      {"folder", EISDIR}, {"file/clip.mov", ENOTDIR},
      {"loop", ELOOP},    {std::string(300, 'n'), ENAMETOOLONG},
      {"none/", ENOENT},  {"trap.mov", ELOOP},
      {"fifo", ENXIO}};
  MovieWriter writer;
  for (const auto& [path, error] : errors) {
    EXPECT_EQ(writer.Open(path), error) << path;
    writer.Finish(0.0);
  }
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  for (const char* name : {"/dev/full", "fifo"}) {
    EXPECT_THROW(WriteMovie(name, kRaw, 320, 240, 1, {{"first", true}}), std::system_error);
  }
  ::close(reader);
  ASSERT_EQ(writer.Open("clip.mov"), 0);
  Call(writer, "1s");
  RunShell("mkdir clip.mov");
  EXPECT_THROW(writer.Finish(0.0), std::system_error);
  EXPECT_EQ(RunShell("echo *"), "clip.mov fifo file folder loop trap.mov.part\n");
  EXPECT_TRUE(boost::filesystem::is_other("/dev/full"));
}

}  // namespace
}  // namespace quicktime::test
