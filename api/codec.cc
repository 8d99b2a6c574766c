// pelcast_codec: a format and size, the threads a frame is split over, and
// the band-wise decode and encode of whole frames.
#include "api/codec.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "decoder/frame_decoder.h"
#include "encoder/frame_encoder.h"
#include "surface/plane_geometry.h"
#include "surface/tile_format.h"

namespace pelcast::api {
namespace {

// A decoded band of about this many bytes stays in the core's cache while it
// is copied out.
constexpr uint64_t kBandBytes = uint64_t{1} << 18;
// Bands per thread, so that threads that finish early take over the rest.
constexpr uint64_t kBandsPerThread = 4;
// The compressed frame is cleared in pieces of this size, shared out too.
constexpr uint64_t kClearBytes = uint64_t{1} << 20;

bool IsRgb565(const FrameLayout& layout) { return layout.format == PELCAST_FORMAT_RGB565; }

// Exchanges the 5-bit red and blue fields of `pixels` little-endian RGB565
// pixels: the decoder's pixels carry red where the linear format has blue.
void CopySwappingRedBlue(const uint8_t* from, uint8_t* to, uint64_t pixels) {
  constexpr uint16_t kGreen = 0x07E0;
  constexpr uint16_t kLowField = 0x001F;
  constexpr uint32_t kHighShift = 11;
  for (uint64_t i = 0; i < pixels; ++i) {
    uint16_t p;
    std::memcpy(&p, from + 2 * i, sizeof p);
    if constexpr (std::endian::native == std::endian::big) p = __builtin_bswap16(p);
    auto q = static_cast<uint16_t>((p & kGreen) | (p >> kHighShift) | ((p & kLowField) << kHighShift));
    if constexpr (std::endian::native == std::endian::big) q = __builtin_bswap16(q);
    std::memcpy(to + 2 * i, &q, sizeof q);
  }
}

void CopyRow(const FrameLayout& layout, const uint8_t* from, uint8_t* to, uint64_t bytes) {
  if (IsRgb565(layout)) {
    CopySwappingRedBlue(from, to, bytes / 2);
  } else {
    std::memcpy(to, from, bytes);
  }
}

// One band: tile rows [first, first + count) of a plane.
struct Band {
  const BandPlane* plane;
  uint64_t first;
  uint64_t count;
};

// The bands of one run, numbered plane by plane.
struct BandList {
  const BandPlane* planes[kMaxLinearPlanes];
  uint64_t tileRows[kMaxLinearPlanes];
  uint64_t rowsPerBand[kMaxLinearPlanes];
  uint64_t bandCount[kMaxLinearPlanes];
  uint32_t planeCount;
  uint64_t total;
};

BandList MakeBandList(const pelcast_codec& codec, bool encoding) {
  BandList list{};
  for (uint32_t p = 0; p < codec.planeCount; ++p) {
    const BandPlane& plane = codec.planes[p];
    const uint64_t rows = encoding ? plane.encodeTileRows : plane.tileRows;
    list.planes[p] = &plane;
    list.tileRows[p] = rows;
    list.rowsPerBand[p] = BandTileRows(codec, plane, rows);
    list.bandCount[p] = CeilDiv(rows, list.rowsPerBand[p]);
    list.total += list.bandCount[p];
  }
  list.planeCount = codec.planeCount;
  return list;
}

Band BandAt(const BandList& list, uint64_t index) {
  uint32_t p = 0;
  while (p + 1 < list.planeCount && index >= list.bandCount[p]) index -= list.bandCount[p++];
  const uint64_t first = index * list.rowsPerBand[p];
  return Band{list.planes[p], first, std::min(list.rowsPerBand[p], list.tileRows[p] - first)};
}

// Linear rows [first, end) of the plane that a band covers.
struct RowRange {
  uint64_t first;
  uint64_t end;
};

RowRange LinearRowsOf(const Band& band) {
  const uint64_t first = band.first * band.plane->rowsPerTile;
  const uint64_t end = (band.first + band.count) * band.plane->rowsPerTile;
  return RowRange{std::min(first, band.plane->linear.rows), std::min(end, band.plane->linear.rows)};
}

struct DecodeRun {
  pelcast_codec* codec;
  const uint8_t* zpak;
  const pelcast_image* image;
  BandList bands;
};

// Where the decoder can write a band's rows straight into the image: the
// image's rows lie at the decoder's pitch, and every byte the decoder writes
// for the band (whole tile rows; RGBA8888 and RGB565 also whole aligned tile
// columns) is a byte of the image, none of its padding.
bool DecodesInPlace(const FrameLayout& layout, const pelcast_image& image, const Band& band) {
  const BandPlane& plane = *band.plane;
  if (image.strides[plane.imagePlane] != plane.pitch) return false;
  if (layout.format == PELCAST_FORMAT_NV12) return true;  // clipped to the image by the decoder
  const uint64_t rowsWritten = (band.first + band.count) * plane.rowsPerTile;
  return plane.linear.rowBytes == plane.pitch && rowsWritten <= plane.linear.rows;
}

void DecodeBandJob(void* argument, uint32_t worker, uint64_t index) {
  const DecodeRun& run = *static_cast<const DecodeRun*>(argument);
  const FrameLayout& layout = run.codec->layout;
  ThreadState& state = run.codec->threads[worker];
  const Band band = BandAt(run.bands, index);
  const uint32_t p = band.plane->imagePlane;
  const RowRange range = LinearRowsOf(band);
  const size_t stride = run.image->strides[p];
  uint8_t* firstRow = run.image->planes[p] + range.first * stride;
  const bool inPlace = DecodesInPlace(layout, *run.image, band);
  const ZpakConfig config = DecodeConfigOf(layout, run.zpak, inPlace ? firstRow : state.band);
  const TileRowBand rows{band.plane->plane, band.first, band.count};
  if (IsRgb565(layout)) {
    DecodeZpakFrameRgb565Band(state.context, &config, rows);
  } else {
    DecodeZpakFrameBand(state.context, &config, rows);
  }
  const uint64_t rowBytes = band.plane->linear.rowBytes;
  for (uint64_t y = range.first; y < range.end; ++y) {
    uint8_t* to = firstRow + (y - range.first) * stride;
    if (inPlace) {
      // Still in cache: the red/blue exchange in place.
      if (IsRgb565(layout)) CopySwappingRedBlue(to, to, rowBytes / 2);
      continue;
    }
    CopyRow(layout, state.band + (y - range.first) * band.plane->pitch, to, rowBytes);
  }
}

struct EncodeRun {
  pelcast_codec* codec;
  const pelcast_image* image;  // null: encode the staged frame as it is
  uint8_t* zpak;
  uint64_t zpakBytes;
  BandList bands;
  uint8_t fill;       // what ClearJob writes
  bool clearSlots;    // the encoder clears the slot bytes its tiles leave
};

void ClearJob(void* argument, uint32_t, uint64_t index) {
  const EncodeRun& run = *static_cast<const EncodeRun*>(argument);
  const uint64_t start = index * kClearBytes;
  std::memset(run.zpak + start, run.fill, std::min(kClearBytes, run.zpakBytes - start));
}

// Splits interleaved U,V pairs into the U and V rows of the staging planes.
void SplitPairs(const uint8_t* pairs, uint64_t count, uint8_t* u, uint8_t* v) {
  for (uint64_t i = 0; i < count; ++i) {
    u[i] = pairs[2 * i];
    v[i] = pairs[2 * i + 1];
  }
}

// Copies the band's rows of the image into the staging frame, laid out as
// the encode commands stage a frame (NV12 chroma as separate U and V planes
// of half the luma stride).
void StageBand(const pelcast_codec& codec, const pelcast_image& image, const Band& band) {
  const FrameLayout& layout = codec.layout;
  const ZpakInfo& info = layout.encodeInfo;
  const uint32_t p = band.plane->imagePlane;
  const RowRange range = LinearRowsOf(band);
  const uint64_t rowBytes = band.plane->linear.rowBytes;
  for (uint64_t y = range.first; y < range.end; ++y) {
    const uint8_t* from = image.planes[p] + y * image.strides[p];
    if (layout.format == PELCAST_FORMAT_NV12 && p == 1) {
      const uint64_t chromaStride = info.linearStride / 2;
      uint8_t* u = codec.staging + info.yDataSize;
      uint8_t* v = u + chromaStride * (info.linearScanlines / 2);
      SplitPairs(from, rowBytes / 2, u + y * chromaStride, v + y * chromaStride);
    } else {
      const uint64_t stride = layout.format == PELCAST_FORMAT_NV12 ? info.linearStride : info.yStride;
      CopyRow(layout, from, codec.staging + y * stride, rowBytes);
    }
  }
}

void EncodeBandJob(void* argument, uint32_t worker, uint64_t index) {
  const EncodeRun& run = *static_cast<const EncodeRun*>(argument);
  const FrameLayout& layout = run.codec->layout;
  ThreadState& state = run.codec->threads[worker];
  const Band band = BandAt(run.bands, index);
  if (run.image != nullptr) StageBand(*run.codec, *run.image, band);
  ZpakConfig config = EncodeConfigOf(layout, run.codec->staging, run.zpak);
  config.clearUnusedSlotBytes = run.clearSlots ? 1 : 0;
  const TileRowBand rows{band.plane->plane, band.first, band.count};
  if (IsRgb565(layout)) {
    EncodeZpakFrameRgb565Band(state.context, &config, rows);
  } else {
    EncodeZpakFrameBand(state.context, &config, rows);
  }
}

// Fills the whole frame with `fill` (shared out in pieces), then encodes the
// staged frame (restaged from the run's image when it has one).
void FillAndEncode(EncodeRun* run, uint8_t fill) {
  run->fill = fill;
  RunJobs(&run->codec->pool, CeilDiv(run->zpakBytes, kClearBytes), ClearJob, run);
  RunJobs(&run->codec->pool, run->bands.total, EncodeBandJob, run);
}

// Runs of at least this many stored bytes separate two unstored runs;
// shorter ones are cleared with them (the encode that follows rewrites them).
constexpr uint64_t kRunGap = 256;

void AddRun(std::vector<ByteRun>* runs, uint64_t offset, uint64_t bytes) {
  if (!runs->empty() && offset - (runs->back().offset + runs->back().bytes) < kRunGap) {
    runs->back().bytes = offset + bytes - runs->back().offset;
  } else {
    runs->push_back(ByteRun{offset, bytes});
  }
}

// The first byte of [at, end) that is not `fill`, or end; eight at a time.
uint64_t SkipFill(const uint8_t* frame, uint64_t at, uint64_t end, uint8_t fill) {
  constexpr uint64_t kWord = sizeof(uint64_t);
  const uint64_t pattern = 0x0101010101010101ull * fill;
  for (uint64_t word; at + kWord <= end; at += kWord) {
    std::memcpy(&word, frame + at, kWord);
    if (word != pattern) break;
  }
  while (at < end && frame[at] == fill) ++at;
  return at;
}

// The runs of bytes of `frame` equal to `fill`, within `within` (null: the
// whole frame).
std::vector<ByteRun> RunsOf(const uint8_t* frame, uint64_t frameBytes, uint8_t fill,
                            const std::vector<ByteRun>* within) {
  const std::vector<ByteRun> whole{ByteRun{0, frameBytes}};
  std::vector<ByteRun> runs;
  for (const ByteRun& span : within != nullptr ? *within : whole) {
    const uint64_t end = span.offset + span.bytes;
    for (uint64_t at = span.offset; at < end;) {
      const void* found = std::memchr(frame + at, fill, end - at);
      if (found == nullptr) break;
      at = static_cast<uint64_t>(static_cast<const uint8_t*>(found) - frame);
      const uint64_t stop = SkipFill(frame, at, end, fill);
      AddRun(&runs, at, stop - at);
      at = stop;
    }
  }
  return runs;
}

// Finds the bytes of the frame no tile store reaches when the encoder clears
// its slots: the metadata planes' padding, slots of no tile, the frame's
// tail. The staged frame is encoded twice into the caller's buffer, filled
// with 0xFF and then 0x00: a stored byte is the same both times (the same
// frame), a byte never stored keeps the fill both times. What the frame holds
// does not matter; every tile's store covers its whole slot whatever it is.
bool FindUnstoredRuns(EncodeRun run) {
  constexpr uint8_t kHigh = 0xFF;
  run.image = nullptr;
  run.clearSlots = true;
  FillAndEncode(&run, kHigh);
  try {
    const std::vector<ByteRun> high = RunsOf(run.zpak, run.zpakBytes, kHigh, nullptr);
    FillAndEncode(&run, 0);
    run.codec->unstored = RunsOf(run.zpak, run.zpakBytes, 0, &high);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

uint64_t ContextFormatOf(const FrameLayout& layout) {
  switch (layout.format) {
    case PELCAST_FORMAT_NV12:
      return kContextNv12;
    case PELCAST_FORMAT_RGBA8888:
      return kContextRgba8888;
    default:
      return kContextRgb565;
  }
}

void ReleaseThreadState(ThreadState* state) {
  ReleaseZpakContext(state->context);
  ReleaseZeroed(state->band);
  *state = ThreadState{};
}

bool MakeThreadState(const pelcast_codec& codec, ThreadState* state) {
  state->context = AllocateZpakContext();
  state->band = AllocateZeroed(codec.bandBytes);
  if (state->context == nullptr || state->band == nullptr) {
    ReleaseThreadState(state);
    return false;
  }
  ConfigureZpakContext(state->context, ContextFormatOf(codec.layout));
  return true;
}

void ReleaseThreads(pelcast_codec* codec) {
  StopWorkers(&codec->pool);
  for (ThreadState& state : codec->threads) ReleaseThreadState(&state);
  codec->threads.clear();
}

// Gives the codec `count` threads: the caller's and count - 1 workers.
pelcast_status MakeThreads(pelcast_codec* codec, uint32_t count) {
  try {
    codec->threads.resize(count);
  } catch (const std::bad_alloc&) {
    return PELCAST_ERROR_OUT_OF_MEMORY;
  }
  for (ThreadState& state : codec->threads) {
    if (!MakeThreadState(*codec, &state)) {
      ReleaseThreads(codec);
      return PELCAST_ERROR_OUT_OF_MEMORY;
    }
  }
  const uint32_t started = StartWorkers(&codec->pool, count - 1);
  for (uint32_t i = started + 1; i < count; ++i) ReleaseThreadState(&codec->threads[i]);
  codec->threads.resize(started + 1);
  return PELCAST_OK;
}

uint64_t LargestTileRowBytes(const pelcast_codec& codec) {
  uint64_t largest = 0;
  for (uint32_t p = 0; p < codec.planeCount; ++p) {
    largest = std::max(largest, codec.planes[p].rowsPerTile * codec.planes[p].pitch);
  }
  return largest;
}

}  // namespace

uint64_t BandTileRows(const pelcast_codec& codec, const BandPlane& plane, uint64_t tileRows) {
  const uint64_t tileRowBytes = plane.rowsPerTile * plane.pitch;
  uint64_t rows = tileRowBytes == 0 ? tileRows : codec.bandBytes / tileRowBytes;
  const uint64_t bands = kBandsPerThread * codec.threads.size();
  if (codec.threads.size() > 1) rows = std::min(rows, CeilDiv(tileRows, bands));
  return std::max<uint64_t>(rows, 1);
}

}  // namespace pelcast::api

using pelcast::api::CheckFrameSize;
using pelcast::api::CheckImage;

extern "C" {

pelcast_status pelcast_codec_create(pelcast_format format, uint32_t width, uint32_t height,
                                    pelcast_codec** codec) {
  if (codec == nullptr) return PELCAST_ERROR_INVALID_ARGUMENT;
  *codec = nullptr;
  const pelcast_status size = CheckFrameSize(format, width, height);
  if (size != PELCAST_OK) return size;
  auto* made = new (std::nothrow) pelcast_codec;
  if (made == nullptr) return PELCAST_ERROR_OUT_OF_MEMORY;
  made->layout = pelcast::api::MakeFrameLayout(format, width, height);
  made->planeCount = pelcast::api::BandPlanes(made->layout, made->planes);
  made->bandBytes = std::max(pelcast::api::kBandBytes, pelcast::api::LargestTileRowBytes(*made));
  const pelcast_status status = pelcast::api::MakeThreads(made, 1);
  if (status != PELCAST_OK) {
    delete made;
    return status;
  }
  *codec = made;
  return PELCAST_OK;
}

void pelcast_codec_destroy(pelcast_codec* codec) {
  if (codec == nullptr) return;
  pelcast::api::ReleaseThreads(codec);
  pelcast::ReleaseZeroed(codec->staging);
  delete codec;
}

pelcast_status pelcast_codec_set_threads(pelcast_codec* codec, uint32_t threads) {
  if (codec == nullptr || threads > PELCAST_MAX_THREADS) return PELCAST_ERROR_INVALID_ARGUMENT;
  if (threads == 0) {
    threads = std::min<uint32_t>(pelcast::api::AvailableProcessors(), PELCAST_MAX_THREADS);
  }
  if (threads == codec->threads.size()) return PELCAST_OK;
  pelcast::api::ReleaseThreads(codec);
  const pelcast_status status = pelcast::api::MakeThreads(codec, threads);
  // Without memory for more, the codec goes on with one thread.
  if (status != PELCAST_OK && pelcast::api::MakeThreads(codec, 1) != PELCAST_OK) {
    return PELCAST_ERROR_OUT_OF_MEMORY;
  }
  return status;
}

uint32_t pelcast_codec_threads(const pelcast_codec* codec) {
  return codec == nullptr ? 0 : static_cast<uint32_t>(codec->threads.size());
}

pelcast_status pelcast_codec_decode(pelcast_codec* codec, const void* zpak, size_t zpak_size,
                                    const pelcast_image* image) {
  if (codec == nullptr || zpak == nullptr || codec->threads.empty()) {
    return PELCAST_ERROR_INVALID_ARGUMENT;
  }
  const pelcast_status checked = CheckImage(codec->layout, image);
  if (checked != PELCAST_OK) return checked;
  if (zpak_size < codec->layout.geometry.frameSize) return PELCAST_ERROR_BUFFER_TOO_SMALL;
  pelcast::api::DecodeRun run{codec, static_cast<const uint8_t*>(zpak), image,
                              pelcast::api::MakeBandList(*codec, false)};
  pelcast::api::RunJobs(&codec->pool, run.bands.total, pelcast::api::DecodeBandJob, &run);
  return PELCAST_OK;
}

pelcast_status pelcast_codec_encode(pelcast_codec* codec, const pelcast_image* image, void* zpak,
                                    size_t zpak_size) {
  if (codec == nullptr || zpak == nullptr || codec->threads.empty()) {
    return PELCAST_ERROR_INVALID_ARGUMENT;
  }
  const pelcast_status checked = CheckImage(codec->layout, image);
  if (checked != PELCAST_OK) return checked;
  const uint64_t frameBytes = codec->layout.geometry.frameSize;
  if (zpak_size < frameBytes) return PELCAST_ERROR_BUFFER_TOO_SMALL;
  if (codec->staging == nullptr) {
    // Zero once: only the image's own bytes are staged, so the padding the
    // encoder reads past the image stays zero frame after frame.
    codec->staging = pelcast::AllocateZeroed(codec->layout.stagingBytes);
    if (codec->staging == nullptr) return PELCAST_ERROR_OUT_OF_MEMORY;
  }
  pelcast::api::EncodeRun run{codec, image, static_cast<uint8_t*>(zpak), frameBytes,
                              pelcast::api::MakeBandList(*codec, true), 0, false};
  // A codec that encodes more than once learns which bytes no tile stores,
  // and from then on clears only those.
  if (codec->encodes++ == 1) codec->knowsUnstored = pelcast::api::FindUnstoredRuns(run);
  if (codec->knowsUnstored) {
    for (const pelcast::api::ByteRun& r : codec->unstored) std::memset(run.zpak + r.offset, 0, r.bytes);
    run.clearSlots = true;
    pelcast::api::RunJobs(&codec->pool, run.bands.total, pelcast::api::EncodeBandJob, &run);
    return PELCAST_OK;
  }
  pelcast::api::FillAndEncode(&run, 0);
  return PELCAST_OK;
}

}  // extern "C"
