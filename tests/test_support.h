// Helpers for tests that run the built pelcast binary: a private temporary
// directory, file reads and writes, and a runner that captures standard output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pelcast::testing {

using Bytes = std::vector<uint8_t>;

struct RunResult {
  std::string output;  // everything the program wrote to standard output
  int exitStatus;      // -1 when it did not exit normally
};

// Runs pelcast with `args` (not including the program name) in `workDir`.
RunResult RunTool(const std::vector<std::string>& args, const std::string& workDir = ".");

// A fresh directory under the system's temporary directory, removed with its
// contents when the object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void WriteFile(const std::string& path, const Bytes& bytes);
Bytes ReadFile(const std::string& path);
bool FileExists(const std::string& path);

// Deterministic pseudo-random bytes.
Bytes RandomBytes(size_t count, uint32_t seed);

// The five-line usage text exactly as the tool prints it.
std::string UsageText();

// Directory of the shared real-content frames.
std::string CorpusDir();

}  // namespace pelcast::testing
