// Everything of a movie file but its samples.
//
// Standard: QuickTime File Format. The file reads
//
//   ftyp                      the file is a QuickTime movie
//   moov                      the movie
//     mvhd                    its times
//     trak                    the one track
//       tkhd                  its times and size
//       edts elst             one edit: all of the media, from its start
//       mdia                  the media
//         mdhd hdlr           its times; what handles it: video
//         minf                about the media data
//           vmhd hdlr         how to draw it; where to find it: in a file
//           dinf dref         the file: this one
//           stbl              where each sample is
//             stsd            its format, with avcC or esds
//             stts stss       its duration; which samples can be started at
//             stsc stsz stco  its chunk, its size; the place of each chunk (co64 beyond 4 GiB)
//   free                      room that the index did not need
//   wide mdat                 the samples; the empty atom in front is room for a 64-bit length
//
// The index stands in front so that a player can begin before it has the whole file. Versions are 0
// throughout, and there is neither an empty edit nor an empty table: players refuse or misread
// them.
// Threads: any; no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/byte_writer.h"
#include "quicktime/frame_size.h"
#include "quicktime/sample_format.h"
#include "quicktime/sample_table.h"
#include "quicktime/track_timing.h"

namespace quicktime {

struct Movie {
  std::uint32_t createdSince1904 = 0;  // seconds
  FrameSize size;
  TrackTiming timing;
  const SampleFormat& format;
  const SampleTable& samples;
};

// How many bytes stand in front of the samples at most, when the movie's samples take the place of
// SampleTable::Longest and the format may still grow.
std::size_t LargestHeader(const Movie& movie);

// What stands in front of the samples, exactly so many bytes, which must be enough. Throws
// std::length_error when they are not.
ByteWriter MovieHeader(const Movie& movie, std::size_t bytes);

}  // namespace quicktime
