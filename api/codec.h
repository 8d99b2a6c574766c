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

}  // namespace pelcast::api

struct pelcast_codec {
  pelcast::api::FrameLayout layout;
  pelcast::api::BandPlane planes[pelcast::api::kMaxLinearPlanes];
  uint32_t planeCount = 0;
  uint64_t bandBytes = 0;  // bytes of each thread's band buffer
  std::vector<pelcast::api::ThreadState> threads;
  pelcast::api::WorkerPool pool;
  uint8_t* staging = nullptr;  // the encoder's aligned linear frame, made on the first encode
};

namespace pelcast::api {

// Tile rows per band of `plane` when a frame is split over the codec's
// threads: bands of about a band buffer, and enough of them to share out.
uint64_t BandTileRows(const pelcast_codec& codec, const BandPlane& plane, uint64_t tileRows);

}  // namespace pelcast::api
