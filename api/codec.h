// The record behind pelcast_codec, shared by the files of the public layer.
#pragma once

#include <cstdint>
#include <vector>

#include "api/frame_layout.h"
#include "api/worker_pool.h"
#include "pelcast/pelcast.h"
#include "surface/zpak_context.h"

namespace pelcast::api {

// What one thread of a codec works with: a codec context of its own (its
// address tables are built once, on the thread's first band) and a buffer for
// one decoded band.
struct ThreadState {
  ZpakContext* context = nullptr;
  uint8_t* band = nullptr;
};

// Bytes [offset, offset + bytes) of a frame.
struct ByteRun {
  uint64_t offset;
  uint64_t bytes;
};

}  // namespace pelcast::api

struct pelcast_codec {
  pelcast::api::FrameLayout layout;
  pelcast::api::BandPlane planes[pelcast::api::kMaxLinearPlanes];
  uint32_t planeCount = 0;
  uint64_t bandBytes = 0;  // bytes of each thread's band buffer
  std::vector<pelcast::api::ThreadState> threads;
  pelcast::api::WorkerPool pool;
  uint8_t* staging = nullptr;  // the encoder's aligned linear frame, made on the first encode
  // The byte runs of a ZPAK frame that no tile store reaches (offset, bytes),
  // found on the second encode; cleared before each later one instead of the
  // whole frame.
  std::vector<pelcast::api::ByteRun> unstored;
  uint64_t encodes = 0;
  bool knowsUnstored = false;
};

namespace pelcast::api {

// Tile rows per band of `plane` when a frame is split over the codec's
// threads: bands of about a band buffer, and enough of them to share out.
uint64_t BandTileRows(const pelcast_codec& codec, const BandPlane& plane, uint64_t tileRows);

}  // namespace pelcast::api
