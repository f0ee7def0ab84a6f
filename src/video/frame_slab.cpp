#include "video/frame_slab.h"

#include <atomic>
#include <cstddef>

namespace tvx {
namespace {

// Room for a FrameData with its reference counts. The block as a whole nearly fills a size class of
// the 32-bit system allocator.
constexpr std::size_t kSlotSize = sizeof(void*) == 4 ? 32 : 56;
constexpr std::uint32_t kSlots = 7;

}  // namespace

// Every slot is a share in the block: a used one belongs to its frame, the unused ones to the
// maker. Whoever gives up the last share destroys the block.
class FrameSlab {
 public:
  bool Full() const { return used_ == kSlots; }
  std::uint32_t Unused() const { return kSlots - used_; }
  void* TakeSlot() { return slots_ + kSlotSize * used_++; }

  static void GiveUp(FrameSlab* slab, std::uint32_t shares) {
    if (slab->shares_.fetch_sub(shares, std::memory_order_acq_rel) == shares) {
      std::unique_ptr<FrameSlab>{slab};
    }
  }

 private:
  std::atomic<std::uint32_t> shares_{kSlots};
  std::uint32_t used_ = 0;  // changed by the maker only
  alignas(void*) std::byte slots_[kSlotSize * kSlots];
};

namespace {

// Lets the standard library put a frame and its counts into a slot.
template <typename T>
struct SlotAllocator {
  using value_type = T;

  explicit SlotAllocator(FrameSlab* from) : slab(from) {}
  template <typename U>
  SlotAllocator(const SlotAllocator<U>& other) : slab(other.slab) {}

  T* allocate(std::size_t) {
    static_assert(sizeof(T) <= kSlotSize);
    static_assert(alignof(T) <= alignof(void*));
    return static_cast<T*>(slab->TakeSlot());
  }
  void deallocate(T*, std::size_t) { FrameSlab::GiveUp(slab, 1); }

  FrameSlab* slab;
};

}  // namespace

FrameMaker::~FrameMaker() {
  if (open_ != nullptr) FrameSlab::GiveUp(open_, open_->Unused());
}

std::shared_ptr<FrameData> FrameMaker::Make(const void* handle, std::uint32_t length) {
  if (open_ == nullptr) open_ = std::make_unique<FrameSlab>().release();
  auto data = std::allocate_shared<FrameData>(SlotAllocator<FrameData>(open_), handle, length);
  // Without a share in it, the maker must forget a block that may go at any moment.
  if (open_->Full()) open_ = nullptr;
  return data;
}

}  // namespace tvx
