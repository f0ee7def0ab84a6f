#include "quicktime/sample_table.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <numeric>

namespace quicktime {

SampleTable::SampleTable(std::uint32_t samplesPerChunk)
    : samplesPerChunk_(std::max<std::uint32_t>(samplesPerChunk, 1)) {}

void SampleTable::Add(std::uint32_t bytes, bool isSync, std::uint32_t description) {
  if (changes_.empty() || changes_.back().second != description) {
    changes_.emplace_back(Count(), description);
  }
  sizes_.push_back(bytes);
  if (isSync) syncSamples_.push_back(Count());
}

void SampleTable::ExtendLast(std::uint32_t bytes) {
  assert(!sizes_.empty() && bytes <= std::numeric_limits<std::uint32_t>::max() - sizes_.back());
  sizes_.back() += bytes;
}

std::uint32_t SampleTable::Largest() const {
  return sizes_.empty() ? 0 : *std::max_element(sizes_.begin(), sizes_.end());
}

std::uint64_t SampleTable::TotalBytes() const {
  return std::accumulate(sizes_.begin(), sizes_.end(), std::uint64_t{0});
}

std::vector<SampleTable::Chunk> SampleTable::Chunks(std::uint64_t first) const {
  std::vector<Chunk> chunks;
  std::uint64_t offset = first;
  auto change = changes_.begin();
  for (std::uint32_t i = 0; i < Count(); ++i) {
    const bool changes = change != changes_.end() && change->first == i;
    if (chunks.empty() || changes || chunks.back().samples == samplesPerChunk_) {
      chunks.push_back({0, changes ? (change++)->second : chunks.back().description, offset});
    }
    ++chunks.back().samples;
    offset += sizes_[i];
  }
  return chunks;
}

SampleTable SampleTable::Longest(std::uint32_t samples, std::uint32_t samplesPerChunk) {
  SampleTable table(samplesPerChunk);
  // A last chunk that is not full has an entry of its own, which a table of fewer samples may need
  // where one of all of them does not.
  const std::uint32_t count = samples % table.samplesPerChunk_ == 0 ? samples + 1 : samples;
  table.Reserve(count);
  // All but one: where every sample is a sync sample, the list of them is left out.
  for (std::uint32_t i = 0; i < count; ++i) table.Add(0, i != 0);
  return table;
}

}  // namespace quicktime
