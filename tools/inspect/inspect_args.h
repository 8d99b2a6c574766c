// Command line of pelcast-inspect.
#pragma once

#include <cstdint>
#include <string>

#include "tools/inspect/rgb_image.h"
#include "tools/inspect/tile_stats.h"

namespace pelcast::inspect {

inline constexpr uint32_t kMaxShrink = 64;

struct InspectOptions {
  InspectFormat format = InspectFormat::kNv12;
  std::string formatName;
  std::string input;
  int32_t width = 0;
  int32_t height = 0;
  std::string outputPrefix;  // empty: no pictures
  bool json = false;
  bool quiet = false;
  bool help = false;
  YuvMatrix matrix = YuvMatrix::kBt709;
  uint32_t shrink = 1;
  bool oneFrame = false;  // only frame `frame`
  uint64_t frame = 0;
};

// Fills `options` from the arguments after the program name. Returns an empty
// string on success, otherwise what is wrong, in one line. With --help the
// rest of the line is not checked.
std::string ParseArguments(int argc, const char* const* argv, InspectOptions* options);

// The --help text.
std::string HelpText();

}  // namespace pelcast::inspect
