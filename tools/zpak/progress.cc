#include "tools/zpak/progress.h"

#include <unistd.h>

#include <cstdio>

namespace pelcast::zpak {
namespace {

constexpr uint64_t kBarCells = 30;

}  // namespace

std::string ProgressLine(const std::string& label, uint64_t done, uint64_t total) {
  if (total == Progress::kUnknownTotal) return label + " " + std::to_string(done);
  const uint64_t filled = total == 0 ? kBarCells : done * kBarCells / total;
  return label + " [" + std::string(filled, '#') + std::string(kBarCells - filled, ' ') + "] " +
         std::to_string(done) + "/" + std::to_string(total);
}

Progress::Progress(std::string label, uint64_t total, bool wanted)
    : label_(std::move(label)),
      total_(total),
      shown_(wanted && total > 1 && isatty(STDERR_FILENO) != 0) {
  Update(0);
}

Progress::~Progress() { Clear(); }

void Progress::Update(uint64_t done) {
  if (!shown_) return;
  const std::string line = ProgressLine(label_, done, total_);
  std::fprintf(stderr, "\r%s", line.c_str());
  if (line.size() < lastWidth_) std::fprintf(stderr, "%s", std::string(lastWidth_ - line.size(), ' ').c_str());
  lastWidth_ = line.size();
  std::fflush(stderr);
}

void Progress::Clear() {
  if (!shown_ || lastWidth_ == 0) return;
  std::fprintf(stderr, "\r%s\r", std::string(lastWidth_, ' ').c_str());
  std::fflush(stderr);
}

}  // namespace pelcast::zpak
