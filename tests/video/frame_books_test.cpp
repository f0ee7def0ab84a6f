// The contract's books under stress: whatever happens, totals agree with what is held, and every
// frame that was taken comes back once.
#include <cstdlib>
#include <new>
#include <random>

#include "video_fixture.h"

namespace {

// How many more allocations of this thread succeed; negative: all of them.
thread_local long allocationsLeft = -1;
thread_local long allocations = 0;

}  // namespace

// Not inlined: the compiler would see malloc meet delete, or new meet free, and warn.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (allocationsLeft == 0) throw std::bad_alloc();
  if (allocationsLeft > 0) --allocationsLeft;
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace tvx::test {
namespace {

void ExpectAgreement(const VideoBuffer& buffer) {
  std::uint32_t bytes = 0;
  std::uint32_t frames = 0;
  std::uint32_t last = buffer.OldestTime();
  for (const FrameGroup& group : buffer.Groups()) {
    ASSERT_FALSE(group.frames.empty());
    EXPECT_TRUE(group.frames.front().IsKey());
    std::uint32_t groupBytes = 0;
    for (const VideoFrame& frame : group.frames) {
      groupBytes += frame.data->Length();
      EXPECT_LE(last, frame.arrivalTime);
      last = frame.arrivalTime;
    }
    EXPECT_EQ(group.bytes, groupBytes);
    bytes += groupBytes;
    frames += static_cast<std::uint32_t>(group.frames.size());
  }
  EXPECT_EQ(buffer.Bytes(), bytes);
  EXPECT_EQ(buffer.Frames(), frames);
}

bool Holds(const VideoBuffer& buffer, const void* handle) {
  for (const FrameGroup& group : buffer.Groups()) {
    for (const VideoFrame& frame : group.frames) {
      if (frame.data->Handle() == handle) return true;
    }
  }
  return false;
}

using FrameBooks = VideoTest;

TEST_F(FrameBooks, BalanceThroughAnySequence) {
  std::mt19937 random(20240611);
  const auto below = [&random](std::uint32_t n) {
    return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(random);
  };
  std::vector<std::shared_ptr<CVideoEmailStream>> clips;
  for (int step = 0; step < 20000; ++step) {
    now += below(300);
    const std::int32_t stream = below(3) == 0 ? kJpegStream : kH264Stream;
    switch (below(40)) {
      case 0:
        set->SetByteLimit(below(5) * 3000);
        break;
      case 1:
        SelectStreams({{kH264Stream, 1, 640, 480, below(2) ? 5 : 4},
                       {kJpegStream, 2, 320, 240, below(8) == 0 ? 5 : 0}});
        break;
      case 2:
      case 3:
        if (auto clip = set->TakeClip(stream, static_cast<std::int32_t>(below(8)),
                                      static_cast<std::int32_t>(below(8)), ready)) {
          clips.push_back(std::move(clip));
        }
        break;
      case 4:
        if (!clips.empty()) {
          const auto chosen = clips.begin() + below(static_cast<std::uint32_t>(clips.size()));
          if (below(4) != 0) (*chosen)->Finish(bin);
          clips.erase(chosen);
        }
        break;
      case 5:
        EmptyBin();
        break;
      case 6:
        if (below(10) == 0) SelectStreams({});
        break;
      default:
        Push(stream, stream == kJpegStream || below(8) == 0 ? kKeyFrame : kDependent,
             1 + below(below(20) == 0 ? 9000 : 600));
    }
    for (const std::int32_t id : {kH264Stream, kJpegStream}) {
      if (set->FindChannel(id) != nullptr) ExpectAgreement(History(id));
    }
    for (const auto& clip : clips) ExpectAgreement(clip->Contents());
    if (HasFailure()) FAIL() << "at step " << step;
  }
  EXPECT_GT(taken.size(), 5000u);
}

// Every allocation of one intake fails in turn, with a history and two clips that want the frame.
TEST_F(FrameBooks, AFrameWhoseIntakeFailedIsHeldNowhereAndStaysTheHosts) {
  for (const std::uint32_t type : {kKeyFrame, kDependent}) {
    int failures = 0;
    for (long allowed = 0;; ++allowed) {
      Reset();
      EmptyBin();
      PushAt(0, kKeyFrame);
      PushAt(500, kKeyFrame);
      now = 600;
      const auto growing = Cut(10, 60);
      const auto ending = Cut(10, 1);
      now = 1500;  // the last that fits into the shorter clip
      const void* handle = NextHandle();
      allocationsLeft = allowed;
      bool accepted = false;
      try {
        accepted = set->TakeFrame({kH264Stream, type, 0, handle, 100}, bin);
      } catch (const std::bad_alloc&) {
        ++failures;
      }
      allocationsLeft = -1;
      for (const VideoBuffer* buffer : {&History(), &growing->Contents(), &ending->Contents()}) {
        ExpectAgreement(*buffer);
        EXPECT_EQ(Holds(*buffer, handle), accepted) << "after " << allowed << " allocations";
      }
      if (accepted) {
        taken.push_back(handle);
        break;
      }
      EXPECT_TRUE(Deliver({kH264Stream, type, 0, handle, 100})) << "the host tries again";
    }
    EXPECT_GE(failures, 3) << "two clips and the history";
  }
}

TEST_F(FrameBooks, AFrameCostsTwoAllocationsAtMost) {
  taken.reserve(2000);
  for (std::uint32_t i = 0; i < 1000; ++i) {
    now += 40;
    for (const std::int32_t stream : {kH264Stream, kJpegStream}) {
      const bool key = stream == kJpegStream || i % 25 == 0;
      const void* handle = NextHandle();
      const long before = allocations;
      ASSERT_TRUE(set->TakeFrame({stream, key ? kKeyFrame : kDependent, 0, handle, 30000}, bin));
      if (i > 0) {  // the first makes the channel too
        EXPECT_LE(allocations - before, 2) << "frame " << i;
      }
      taken.push_back(handle);
    }
  }
  EXPECT_LT(History().Frames(), 1000u) << "the history was full for most of them";
}

}  // namespace
}  // namespace tvx::test
