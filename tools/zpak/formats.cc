#include "tools/zpak/formats.h"

#include <algorithm>
#include <cctype>

namespace pelcast::zpak {
namespace {

struct FormatEntry {
  const char* name;
  pelcast_format format;
};
constexpr FormatEntry kFormats[] = {{"nv12", PELCAST_FORMAT_NV12},
                                    {"rgba8888", PELCAST_FORMAT_RGBA8888},
                                    {"rgb565", PELCAST_FORMAT_RGB565}};

constexpr uint64_t kDecimal = 10;

}  // namespace

std::optional<pelcast_format> ParseFormat(std::string_view name) {
  std::string lower(name);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const FormatEntry& f : kFormats) {
    if (lower == f.name) return f.format;
  }
  return std::nullopt;
}

const char* FormatName(pelcast_format format) {
  for (const FormatEntry& f : kFormats) {
    if (f.format == format) return f.name;
  }
  return "?";
}

const char* PlaneName(pelcast_format format, uint32_t plane) {
  switch (format) {
    case PELCAST_FORMAT_NV12:
      return plane == PELCAST_PLANE_Y ? "y" : "uv";
    case PELCAST_FORMAT_RGBA8888:
      return "rgba";
    default:
      return "rgb565";
  }
}

std::optional<uint64_t> ParseCount(std::string_view text, uint64_t limit) {
  if (text.empty()) return std::nullopt;
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    const auto digit = static_cast<uint64_t>(c - '0');
    if (value > (limit - digit) / kDecimal) return std::nullopt;
    value = value * kDecimal + digit;
  }
  return value;
}

bool ParseSize(std::string_view text, uint32_t* width, uint32_t* height) {
  const size_t x = text.find_first_of("xX");
  if (x == std::string_view::npos) return false;
  const auto w = ParseCount(text.substr(0, x), UINT32_MAX);
  const auto h = ParseCount(text.substr(x + 1), UINT32_MAX);
  if (!w || !h || *w == 0 || *h == 0) return false;
  *width = static_cast<uint32_t>(*w);
  *height = static_cast<uint32_t>(*h);
  return true;
}

std::optional<FrameRange> ParseFrameRange(std::string_view text) {
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos) {
    const auto only = ParseCount(text, UINT64_MAX - 1);
    if (!only) return std::nullopt;
    return FrameRange{*only, *only};
  }
  const auto first = ParseCount(text.substr(0, dash), UINT64_MAX - 1);
  if (!first) return std::nullopt;
  const std::string_view rest = text.substr(dash + 1);
  if (rest.empty()) return FrameRange{*first, UINT64_MAX};
  const auto last = ParseCount(rest, UINT64_MAX - 1);
  if (!last || *last < *first) return std::nullopt;
  return FrameRange{*first, *last};
}

FrameSpan SelectFrames(const FrameRange& range, uint64_t available) {
  const uint64_t end = range.last == UINT64_MAX ? available : std::min(available, range.last + 1);
  return FrameSpan{std::min(range.first, end), end};
}

std::vector<PlaneView> PackedPlanes(pelcast_format format, uint32_t width, uint32_t height) {
  std::vector<PlaneView> planes;
  for (uint32_t p = 0; p < pelcast_plane_count(format); ++p) {
    pelcast_tile_grid grid{};
    if (pelcast_tile_grid_of(format, width, height, p, &grid) != PELCAST_OK) return {};
    PlaneView v{};
    v.plane = p;
    v.tileColumns = grid.columns;
    v.tileRows = grid.rows;
    switch (format) {
      case PELCAST_FORMAT_NV12:
        if (p == PELCAST_PLANE_Y) {
          v = {p, PlaneName(format, p), 0, width, 1, width, height, grid.tile_width, grid.tile_height,
               grid.columns, grid.rows};
        } else {
          // A chroma tile covers twice as many image pixels as it holds pairs and rows.
          const uint32_t pairs = (width + 1) / 2;
          v = {p, PlaneName(format, p), size_t{width} * height, 2 * size_t{pairs}, 2, pairs, (height + 1) / 2,
               grid.tile_width / 2, grid.tile_height / 2, grid.columns, grid.rows};
        }
        break;
      case PELCAST_FORMAT_RGBA8888:
        v = {p, PlaneName(format, p), 0, 4 * size_t{width}, 4, width, height, grid.tile_width,
             grid.tile_height, grid.columns, grid.rows};
        break;
      default:
        v = {p, PlaneName(format, p), 0, 2 * size_t{width}, 2, width, height, grid.tile_width,
             grid.tile_height, grid.columns, grid.rows};
        break;
    }
    planes.push_back(v);
  }
  return planes;
}

}  // namespace pelcast::zpak
