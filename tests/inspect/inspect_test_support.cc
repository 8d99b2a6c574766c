#include "tests/inspect/inspect_test_support.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

namespace pelcast::inspect::testing {
namespace {

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

ToolRun RunInspector(const std::vector<std::string>& args) {
  pelcast::testing::TempDir capture;
  const std::string outPath = capture.File("out");
  const std::string errPath = capture.File("err");
  const pid_t pid = fork();
  if (pid == 0) {
    if (freopen(outPath.c_str(), "w", stdout) == nullptr) _exit(127);
    if (freopen(errPath.c_str(), "w", stderr) == nullptr) _exit(127);
    std::vector<char*> argv{const_cast<char*>("pelcast-inspect")};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(PELCAST_INSPECT_BINARY, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return ToolRun{Slurp(outPath), Slurp(errPath), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

Picture ReadPng(const std::string& path) {
  Picture picture;
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
    ADD_FAILURE() << "cannot read " << path << ": " << image.message;
    return picture;
  }
  image.format = PNG_FORMAT_RGB;
  picture.width = image.width;
  picture.height = image.height;
  picture.rgb.resize(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr) == 0) {
    ADD_FAILURE() << "cannot decode " << path << ": " << image.message;
  }
  return picture;
}

std::array<int, 3> ReferenceRgb(int y, int u, int v, LumaWeights k) {
  const double luma = (y - 16) * 255.0 / 219.0;
  const double pb = (u - 128) * 255.0 / 224.0;
  const double pr = (v - 128) * 255.0 / 224.0;
  const double r = luma + 2 * (1 - k.red) * pr;
  const double b = luma + 2 * (1 - k.blue) * pb;
  const double g = (luma - k.red * r - k.blue * b) / (1 - k.red - k.blue);
  auto clamp = [](double x) { return static_cast<int>(std::lround(std::clamp(x, 0.0, 255.0))); };
  return {clamp(r), clamp(g), clamp(b)};
}

}  // namespace pelcast::inspect::testing
