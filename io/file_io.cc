#include "io/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pelcast {
namespace {

// Stream buffer for outputs: frames are written in large blocks, so a bigger
// buffer than stdio's default only saves copies for the small row writes.
constexpr size_t kOutputBufferBytes = 1 << 16;
// Stream buffer for inputs: whole frames are read straight into their
// buffers whatever its size, but row and chunk reads refill it, each refill
// a system call.
constexpr size_t kInputBufferBytes = 1 << 16;

bool SameFile(const char* a, const char* b) {
  struct stat first {};
  struct stat second {};
  if (stat(a, &first) != 0 || stat(b, &second) != 0) return false;
  return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

FILE* OpenInput(const char* path) {
  FILE* file = std::fopen(path, "rb");
  // The C library opens a directory for reading, but every read of it fails
  // and its size is whatever the file system reports; it is no input.
  struct stat info {};
  if (file != nullptr && fstat(fileno(file), &info) == 0 && S_ISDIR(info.st_mode)) {
    std::fclose(file);
    return nullptr;
  }
  if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kInputBufferBytes);
  return file;
}

FILE* OpenOutput(const char* path, const char* inputPath) {
  if (inputPath != nullptr && SameFile(path, inputPath)) return nullptr;
  FILE* file = std::fopen(path, "wb");
  if (file != nullptr) std::setvbuf(file, nullptr, _IOFBF, kOutputBufferBytes);
  return file;
}

void CreateIfMissing(const char* path) {
  constexpr mode_t kNewFileMode = 0666;  // as fopen creates files, less the umask
  const int fd = open(path, O_WRONLY | O_CREAT, kNewFileMode);
  if (fd >= 0) close(fd);
}

void CloseFile(FILE* file) {
  if (file != nullptr) std::fclose(file);
}

bool AtEndOfFile(FILE* file) { return std::feof(file) != 0; }

}  // namespace pelcast
