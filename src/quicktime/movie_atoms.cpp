#include "quicktime/movie_atoms.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "quicktime/atom_scope.h"

namespace quicktime {
namespace {

constexpr std::uint32_t kTrackNumber = 1;
constexpr std::uint32_t kOne = 0x00010000;  // 1.0 in 16.16 bits
constexpr std::uint64_t kLargestU32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kAtomHeader = 8;  // length and type

void WriteUnityMatrix(ByteWriter& out) {
  constexpr std::uint32_t kOneOfLastColumn = 0x40000000;  // 1.0 in 2.30 bits
  constexpr std::uint32_t kMatrix[] = {kOne, 0, 0, 0, kOne, 0, 0, 0, kOneOfLastColumn};
  for (const std::uint32_t element : kMatrix) out.U32(element);
}

void WriteFtyp(ByteWriter& out) {
  constexpr FourCharacterCode kQuickTime = MakeFourCharacterCode("qt  ");
  constexpr std::uint32_t kFormatVersion = 0x200;
  AtomScope atom(out, "ftyp");
  out.U32(kQuickTime);  // major brand
  out.U32(kFormatVersion);
  out.U32(kQuickTime);  // the only compatible brand
}

void WriteMvhd(ByteWriter& out, const Movie& movie) {
  constexpr std::uint16_t kFullVolume = 0x0100;
  FullAtomScope atom(out, "mvhd");
  out.U32(movie.createdSince1904);  // creation time
  out.U32(movie.createdSince1904);  // modification time
  out.U32(kMovieTimeScale);
  out.U32(movie.timing.movieDuration);
  out.U32(kOne);  // preferred rate
  out.U16(kFullVolume);
  out.Zeros(10);  // reserved
  WriteUnityMatrix(out);
  out.U32(0);                 // preview time
  out.U32(0);                 // preview duration
  out.U32(0);                 // poster time
  out.U32(0);                 // selection time
  out.U32(0);                 // selection duration
  out.U32(0);                 // current time
  out.U32(kTrackNumber + 1);  // next track number
}

void WriteTkhd(ByteWriter& out, const Movie& movie) {
  constexpr std::uint32_t kEnabled = 1;
  constexpr std::uint32_t kInMovie = 2;
  FullAtomScope atom(out, "tkhd", kEnabled | kInMovie);
  out.U32(movie.createdSince1904);  // creation time
  out.U32(movie.createdSince1904);  // modification time
  out.U32(kTrackNumber);
  out.U32(0);  // reserved
  out.U32(movie.timing.movieDuration);
  out.Zeros(8);  // reserved
  out.U16(0);    // layer
  out.U16(0);    // alternate group
  out.U16(0);    // volume: there is no sound
  out.U16(0);    // reserved
  WriteUnityMatrix(out);
  // As wide as it is shown, which is not what was announced where pixels are not square.
  const PixelShape pixels = movie.format.Pixels();
  const FrameSize coded = movie.format.CodedSize();
  const FrameSize size = pixels.IsSquare() || !coded.IsKnown() ? movie.size : coded;
  const std::uint64_t width =
      std::uint64_t{size.width} * kOne * pixels.horizontal / pixels.vertical;
  out.U32(static_cast<std::uint32_t>(std::min(width, kLargestU32)));
  out.U32(size.height * kOne);
}

void WriteElst(ByteWriter& out, const Movie& movie) {
  FullAtomScope atom(out, "elst");
  out.U32(1);  // entries
  out.U32(movie.timing.movieDuration);
  out.U32(movie.presentation.lead * movie.timing.sampleDuration);  // time in the media
  out.U32(kOne);                                                   // rate
}

void WriteEdts(ByteWriter& out, const Movie& movie) {
  AtomScope atom(out, "edts");
  WriteElst(out, movie);
}

void WriteMdhd(ByteWriter& out, const Movie& movie) {
  constexpr std::uint16_t kUndeterminedLanguage = 0x55C4;  // "und", five bits a letter
  FullAtomScope atom(out, "mdhd");
  out.U32(movie.createdSince1904);  // creation time
  out.U32(movie.createdSince1904);  // modification time
  out.U32(movie.timing.mediaTimeScale);
  out.U32(movie.timing.mediaDuration);
  out.U16(kUndeterminedLanguage);
  out.U16(0);  // quality
}

void WriteHdlr(ByteWriter& out, const char (&type)[5], const char (&subtype)[5], const char* name) {
  FullAtomScope atom(out, "hdlr");
  out.U32(MakeFourCharacterCode(type));
  out.U32(MakeFourCharacterCode(subtype));
  out.U32(0);  // manufacturer
  out.U32(0);  // flags
  out.U32(0);  // mask of flags
  out.PascalString(name);
}

void WriteVmhd(ByteWriter& out) {
  constexpr std::uint32_t kNoLeanAhead = 1;  // always set in files of today
  FullAtomScope atom(out, "vmhd", kNoLeanAhead);
  out.U16(0);    // graphics mode: copy
  out.Zeros(6);  // operation colour
}

void WriteDref(ByteWriter& out) {
  constexpr std::uint32_t kInThisFile = 1;
  FullAtomScope atom(out, "dref");
  out.U32(1);  // entries
  FullAtomScope reference(out, "url ", kInThisFile);
}

void WriteDinf(ByteWriter& out) {
  AtomScope atom(out, "dinf");
  WriteDref(out);
}

TrackFacts Facts(const Movie& movie) {
  const std::uint64_t scale = movie.timing.mediaTimeScale;
  const std::uint64_t bits = movie.samples.TotalBytes() * 8;
  const std::uint64_t largest = movie.samples.Largest();
  // In floating point: the products of hostile sizes and fine clocks are beyond 64 bits.
  const auto perSecond = [scale](std::uint64_t count, std::uint32_t time) {
    const double rate = static_cast<double>(count) * static_cast<double>(scale) / time;
    return static_cast<std::uint32_t>(std::min(rate, static_cast<double>(kLargestU32)));
  };
  TrackFacts facts;
  facts.size = movie.size;
  facts.largestSample = static_cast<std::uint32_t>(largest);
  facts.averageBitRate = perSecond(bits, movie.timing.mediaDuration);
  facts.highestBitRate = perSecond(largest * 8, movie.timing.sampleDuration);
  return facts;
}

void WriteStsd(ByteWriter& out, const Movie& movie) {
  FullAtomScope atom(out, "stsd");
  const std::uint32_t entries = movie.format.Descriptions();
  out.U32(entries);
  for (std::uint32_t i = 1; i <= entries; ++i) movie.format.WriteEntry(out, i, Facts(movie));
}

void WriteStts(ByteWriter& out, const Movie& movie) {
  FullAtomScope atom(out, "stts");
  out.U32(1);  // entries
  out.U32(movie.samples.Count());
  out.U32(movie.timing.sampleDuration);
}

// Left out where every sample is a sync sample; a list of all of them keeps players from seeking.
void WriteStss(ByteWriter& out, const SampleTable& samples) {
  if (samples.AllAreSync()) return;
  FullAtomScope atom(out, "stss");
  out.U32(static_cast<std::uint32_t>(samples.SyncSamples().size()));
  for (const std::uint32_t number : samples.SyncSamples()) out.U32(number);
}

// Left out where pictures are shown as they are coded.
void WriteCtts(ByteWriter& out, const Movie& movie) {
  const std::vector<std::uint32_t>& offsets = movie.presentation.offsets;
  if (offsets.empty()) return;
  FullAtomScope atom(out, "ctts");
  const std::size_t entriesAt = out.Size();
  out.U32(0);
  std::uint32_t entries = 0;
  for (auto begin = offsets.begin(); begin != offsets.end(); ++entries) {
    const auto end =
        std::find_if(begin, offsets.end(), [=](auto offset) { return offset != *begin; });
    out.U32(static_cast<std::uint32_t>(end - begin));
    out.U32(*begin * movie.timing.sampleDuration);
    begin = end;
  }
  out.PatchU32(entriesAt, entries);
}

// An entry for each run of chunks that hold equally many samples of one description.
void WriteStsc(ByteWriter& out, const std::vector<SampleTable::Chunk>& chunks) {
  FullAtomScope atom(out, "stsc");
  const std::size_t entriesAt = out.Size();
  out.U32(0);
  std::uint32_t entries = 0;
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    const SampleTable::Chunk& chunk = chunks[i];
    if (i != 0 && chunk.samples == chunks[i - 1].samples &&
        chunk.description == chunks[i - 1].description) {
      continue;
    }
    ++entries;
    out.U32(static_cast<std::uint32_t>(i + 1));  // from this chunk on
    out.U32(chunk.samples);
    out.U32(chunk.description);
  }
  out.PatchU32(entriesAt, entries);
}

void WriteStsz(ByteWriter& out, const SampleTable& samples) {
  FullAtomScope atom(out, "stsz");
  out.U32(0);  // the samples differ in size
  out.U32(samples.Count());
  for (const std::uint32_t size : samples.Sizes()) out.U32(size);
}

void WriteStco(ByteWriter& out, const std::vector<SampleTable::Chunk>& chunks) {
  FullAtomScope atom(out, "stco");
  out.U32(static_cast<std::uint32_t>(chunks.size()));
  for (const auto& chunk : chunks) out.U32(static_cast<std::uint32_t>(chunk.offset));
}

void WriteCo64(ByteWriter& out, const std::vector<SampleTable::Chunk>& chunks) {
  FullAtomScope atom(out, "co64");
  out.U32(static_cast<std::uint32_t>(chunks.size()));
  for (const auto& chunk : chunks) out.U64(chunk.offset);
}

void WriteChunkOffsets(ByteWriter& out, const std::vector<SampleTable::Chunk>& chunks) {
  if (!chunks.empty() && chunks.back().offset > kLargestU32) {
    WriteCo64(out, chunks);
  } else {
    WriteStco(out, chunks);
  }
}

void WriteStbl(ByteWriter& out, const Movie& movie, std::uint64_t mediaStart) {
  AtomScope atom(out, "stbl");
  WriteStsd(out, movie);
  WriteStts(out, movie);
  WriteStss(out, movie.samples);
  WriteCtts(out, movie);
  const std::vector<SampleTable::Chunk> chunks = movie.samples.Chunks(mediaStart);
  WriteStsc(out, chunks);
  WriteStsz(out, movie.samples);
  WriteChunkOffsets(out, chunks);
}

void WriteMinf(ByteWriter& out, const Movie& movie, std::uint64_t mediaStart) {
  AtomScope atom(out, "minf");
  WriteVmhd(out);
  WriteHdlr(out, "dhlr", "url ", "Data Handler");
  WriteDinf(out);
  WriteStbl(out, movie, mediaStart);
}

void WriteMdia(ByteWriter& out, const Movie& movie, std::uint64_t mediaStart) {
  AtomScope atom(out, "mdia");
  WriteMdhd(out, movie);
  WriteHdlr(out, "mhlr", "vide", "Video Media Handler");
  WriteMinf(out, movie, mediaStart);
}

void WriteTrak(ByteWriter& out, const Movie& movie, std::uint64_t mediaStart) {
  AtomScope atom(out, "trak");
  WriteTkhd(out, movie);
  WriteEdts(out, movie);
  WriteMdia(out, movie, mediaStart);
}

void WriteMoov(ByteWriter& out, const Movie& movie, std::uint64_t mediaStart) {
  AtomScope atom(out, "moov");
  WriteMvhd(out, movie);
  WriteTrak(out, movie, mediaStart);
}

void WriteFree(ByteWriter& out, std::size_t bytes) {
  AtomScope atom(out, "free");
  out.Zeros(bytes - kAtomHeader);
}

// Not a scope: what is in the atom does not pass through here. A length beyond 32 bits takes the
// room of the empty atom.
void WriteMdatHeader(ByteWriter& out, std::uint64_t mediaBytes) {
  constexpr FourCharacterCode kMdat = MakeFourCharacterCode("mdat");
  constexpr std::uint32_t kLengthFollows = 1;
  if (mediaBytes + kAtomHeader <= kLargestU32) {
    { AtomScope room(out, "wide"); }
    out.U32(static_cast<std::uint32_t>(mediaBytes + kAtomHeader));
    out.U32(kMdat);
  } else {
    out.U32(kLengthFollows);
    out.U32(kMdat);
    out.U64(mediaBytes + std::uint64_t{2} * kAtomHeader);
  }
}

constexpr std::size_t kMdatHeader = 2 * kAtomHeader;  // in both forms

}  // namespace

std::size_t UsualHeader(const Movie& movie) {
  ByteWriter out;
  WriteFtyp(out);
  WriteMoov(out, movie, kLargestU32 + 1);  // so far back that it takes the longer offsets
  return out.Size() + movie.format.EntryGrowth() + kAtomHeader + kMdatHeader;
}

ByteWriter MovieHeader(const Movie& movie, std::size_t bytes) {
  ByteWriter out;
  WriteFtyp(out);
  WriteMoov(out, movie, bytes);
  const std::size_t needed = out.Size() + kAtomHeader + kMdatHeader;
  if (needed > bytes) return MovieHeader(movie, std::max(needed, UsualHeader(movie)));
  WriteFree(out, bytes - kMdatHeader - out.Size());
  WriteMdatHeader(out, movie.samples.TotalBytes());
  return out;
}

}  // namespace quicktime
