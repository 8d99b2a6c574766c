// A progress bar for multi-frame work, on standard error and only when it
// is a terminal: "decode [#########           ] 12/27".
#pragma once

#include <cstdint>
#include <string>

namespace pelcast::zpak {

class Progress {
 public:
  // `total` is kUnknownTotal when the input is a pipe.
  static constexpr uint64_t kUnknownTotal = UINT64_MAX;

  // Shown only when `wanted`, standard error is a terminal and there is
  // more than one step.
  Progress(std::string label, uint64_t total, bool wanted);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // `done` steps of the total are complete.
  void Update(uint64_t done);

 private:
  void Clear();
  std::string label_;
  uint64_t total_;
  bool shown_;
  size_t lastWidth_ = 0;
};

// The bar as text for `done` of `total` steps (no carriage return).
std::string ProgressLine(const std::string& label, uint64_t done, uint64_t total);

}  // namespace pelcast::zpak
