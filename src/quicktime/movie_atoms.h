// Everything of a movie file but its samples.
//
// Standard: QuickTime File Format. The file reads
//
//   ftyp                      the file is a QuickTime movie
//   moov                      the movie
//     mvhd                    its times
//     trak                    the one track
//       tkhd                  its times and size
//       edts elst             one edit: all of the media, from the first picture shown
//       mdia                  the media
//         mdhd hdlr           its times; what handles it: video
//         minf                about the media data
//           vmhd hdlr         how to draw it; where to find it: in a file
//           dinf dref         the file: this one
//           stbl              where each sample is
//             stsd            its formats, with avcC or esds, and pasp where pixels are not square
//             stts stss       its duration; which samples can be started at
//             ctts            when it is shown, where that is not the order of the samples
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
#include "quicktime/presentation.h"
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
  Presentation presentation{};
};

// How many bytes to leave in front of the samples, when the movie's samples take the place of
// SampleTable::Longest and the format may still grow. Enough for movies whose pictures are shown as
// they are coded and whose headers do not change, which most are.
std::size_t UsualHeader(const Movie& movie);

// What stands in front of the samples: so many bytes, or more when they are not enough.
ByteWriter MovieHeader(const Movie& movie, std::size_t bytes);

}  // namespace quicktime
