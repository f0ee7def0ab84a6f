// The index of a track: how long each sample is, where a player can start, which samples lie
// together.
//
// All samples lie behind each other from one place of the file on, in chunks of equally many, as
// players read a chunk at a time. How many is fixed beforehand, so that the size of the index is
// known before the samples are.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace quicktime {

class SampleTable {
 public:
  // A chunk holds at least one sample.
  explicit SampleTable(std::uint32_t samplesPerChunk);

  void Reserve(std::uint32_t samples) { sizes_.reserve(samples); }
  // The number of its description is from 1.
  void Add(std::uint32_t bytes, bool isSync, std::uint32_t description = 1);
  // Lengthens the last sample; there must be one, and the sum must fit.
  void ExtendLast(std::uint32_t bytes);

  std::uint32_t Count() const { return static_cast<std::uint32_t>(sizes_.size()); }
  const std::vector<std::uint32_t>& Sizes() const { return sizes_; }  // bytes
  std::uint32_t Largest() const;                                      // bytes; 0 when empty
  std::uint64_t TotalBytes() const;

  const std::vector<std::uint32_t>& SyncSamples() const { return syncSamples_; }
  bool AllAreSync() const { return syncSamples_.size() == sizes_.size(); }

  std::uint32_t SamplesPerChunk() const { return samplesPerChunk_; }
  // Samples that lie together; all of a chunk have one description.
  struct Chunk {
    std::uint32_t samples;
    std::uint32_t description;
    std::uint64_t offset;
  };
  // When the first begins there.
  std::vector<Chunk> Chunks(std::uint64_t first) const;

  // A table that takes at least as much room in a file as any of so many samples or fewer.
  static SampleTable Longest(std::uint32_t samples, std::uint32_t samplesPerChunk);

 private:
  const std::uint32_t samplesPerChunk_;
  std::vector<std::uint32_t> sizes_;
  std::vector<std::uint32_t> syncSamples_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> changes_;  // from a sample on, a description
};

}  // namespace quicktime
