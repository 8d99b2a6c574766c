// The pieces under every subcommand: option parsing, frame ranges and
// sizes, raw frame geometry, and JSON text.
#include <gtest/gtest.h>

#include "tools/zpak/args.h"
#include "tools/zpak/formats.h"
#include "tools/zpak/image_files.h"
#include "tools/zpak/json_writer.h"

namespace pelcast::zpak {
namespace {

TEST(Support, ParsesGnuStyleCommandLines) {
  const std::vector<Option> options = {{"json", 0, nullptr, ""},
                                       {"quiet", 'q', nullptr, ""},
                                       {"frames", 0, "A-B", ""}};
  struct Case {
    std::vector<std::string> args;
    std::string error;  // a piece of it; empty: parsed
    std::vector<std::string> operands;
    std::map<std::string, std::string> values;
  };
  const Case cases[] = {
      {{"a", "--json", "b", "-q"}, "", {"a", "b"}, {{"json", ""}, {"quiet", ""}}},
      {{"--frames", "1-2", "x", "--frames=3-"}, "", {"x"}, {{"frames", "3-"}}},
      {{"-", "--", "--json", "-5"}, "", {"-", "--json", "-5"}, {}},
      {{"-12", "x"}, "", {"-12", "x"}, {}},
      {{"--bogus"}, "unknown option '--bogus'", {}, {}},
      {{"-x"}, "unknown option '-x'", {}, {}},
      {{"--frames"}, "--frames needs a value (A-B)", {}, {}},
      {{"--json=1"}, "--json takes no value", {}, {}},
      {{"x", "-h", "--bogus"}, "", {"x"}, {{"help", ""}}},
  };
  for (const Case& c : cases) {
    ParsedArgs parsed;
    const std::string error = ParseArgs(c.args, options, &parsed);
    const std::string label = ::testing::PrintToString(c.args);
    if (!c.error.empty()) {
      EXPECT_NE(error.find(c.error), std::string::npos) << label << ": " << error;
      continue;
    }
    EXPECT_EQ(error, "") << label;
    EXPECT_EQ(parsed.operands, c.operands) << label;
    EXPECT_EQ(parsed.values, c.values) << label;
  }
}

TEST(Support, FrameRangesSizesAndCounts) {
  struct RangeCase {
    std::string text;
    bool valid;
    uint64_t first, last;
  };
  const RangeCase ranges[] = {{"7", true, 7, 7},      {"2-5", true, 2, 5}, {"3-", true, 3, UINT64_MAX},
                              {"5-2", false, 0, 0},   {"-3", false, 0, 0}, {"a-b", false, 0, 0},
                              {"", false, 0, 0},      {"1-2-3", false, 0, 0}};
  for (const RangeCase& c : ranges) {
    const auto r = ParseFrameRange(c.text);
    ASSERT_EQ(r.has_value(), c.valid) << c.text;
    if (r) {
      EXPECT_EQ(r->first, c.first) << c.text;
      EXPECT_EQ(r->last, c.last) << c.text;
    }
  }
  const FrameSpan span = SelectFrames({2, 9}, 5);
  EXPECT_EQ(span.first, 2u);
  EXPECT_EQ(span.end, 5u);
  EXPECT_EQ(SelectFrames({7, 7}, 5).first, 5u);  // past the end: empty
  uint32_t w = 0, h = 0;
  EXPECT_TRUE(ParseSize("1920x1080", &w, &h));
  EXPECT_EQ(std::pair(w, h), std::pair(1920u, 1080u));
  for (const char* bad : {"1920", "0x5", "5x0", "x5", "5x", "1920x1080x3", "-1x5", "99999999999x1"}) {
    EXPECT_FALSE(ParseSize(bad, &w, &h)) << bad;
  }
  EXPECT_EQ(ParseCount("18446744073709551615", UINT64_MAX), UINT64_MAX);
  EXPECT_FALSE(ParseCount("18446744073709551616", UINT64_MAX));
  EXPECT_FALSE(ParseCount("65", 64));
}

TEST(Support, RawFrameGeometry) {
  struct Case {
    pelcast_format format;
    uint32_t width, height;
    RawOptions options;
    bool valid;
    RawLayout layout;
  };
  const Case cases[] = {
      // Packed: the library's linear layouts.
      {PELCAST_FORMAT_NV12, 5, 3, {}, true, {2, {0, 15}, {5, 6}, {3, 2}, 27}},
      {PELCAST_FORMAT_RGBA8888, 5, 3, {}, true, {1, {0, 0}, {20, 0}, {3, 0}, 60}},
      {PELCAST_FORMAT_RGB565, 5, 3, {}, true, {1, {0, 0}, {10, 0}, {3, 0}, 30}},
      // A camera buffer: 2048-byte rows, 1088 scanlines, chroma right after.
      {PELCAST_FORMAT_NV12, 1920, 1080, {2048, 1088, {}}, true,
       {2, {0, 2048 * 1088}, {2048, 2048}, {1088, 544}, 2048 * 1632}},
      // The chroma plane further on.
      {PELCAST_FORMAT_NV12, 64, 32, {64, {}, 4096}, true, {2, {0, 4096}, {64, 64}, {32, 16}, 5120}},
      {PELCAST_FORMAT_RGBA8888, 5, 3, {32, 4, {}}, true, {1, {0, 0}, {32, 0}, {4, 0}, 128}},
      {PELCAST_FORMAT_NV12, 5, 3, {5, {}, {}}, false, {}},  // chroma rows take 6 bytes
      {PELCAST_FORMAT_RGBA8888, 5, 3, {19, {}, {}}, false, {}},
      {PELCAST_FORMAT_RGB565, 5, 3, {{}, 2, {}}, false, {}},
      {PELCAST_FORMAT_RGB565, 5, 3, {{}, {}, 40}, false, {}},
      {PELCAST_FORMAT_NV12, 64, 32, {64, 32, 2047}, false, {}},
  };
  for (const Case& c : cases) {
    RawLayout layout;
    std::string error;
    const std::string label = std::string(FormatName(c.format)) + " " + std::to_string(c.width);
    ASSERT_EQ(MakeRawLayout(c.format, c.width, c.height, c.options, &layout, &error), c.valid)
        << label << " " << error;
    if (!c.valid) {
      EXPECT_FALSE(error.empty());
      continue;
    }
    EXPECT_EQ(layout.planes, c.layout.planes) << label;
    EXPECT_EQ(layout.frameBytes, c.layout.frameBytes) << label;
    for (uint32_t p = 0; p < layout.planes; ++p) {
      EXPECT_EQ(layout.offsets[p], c.layout.offsets[p]) << label << " plane " << p;
      EXPECT_EQ(layout.strides[p], c.layout.strides[p]) << label << " plane " << p;
      EXPECT_EQ(layout.rows[p], c.layout.rows[p]) << label << " plane " << p;
    }
    if (c.options.stride || c.options.scanlines || c.options.uvOffset) continue;
    EXPECT_EQ(layout.frameBytes, pelcast_linear_frame_size(c.format, c.width, c.height)) << label;
  }
}

TEST(Support, JsonText) {
  JsonWriter json;
  json.BeginObject().Key("name").String("a\"b\\c\n").Key("list").BeginArray(true);
  json.BeginObject().Key("n").Number(uint64_t{7}).Key("x").Number(0.125, 2).EndObject();
  json.Number(1.0 / 0.0, 2).Bool(false).Null().EndArray().Key("empty").BeginArray().EndArray();
  json.EndObject();
  EXPECT_EQ(json.Text(),
            "{\"name\": \"a\\\"b\\\\c\\u000a\", \"list\": [\n  {\"n\": 7, \"x\": 0.12},\n  null,\n"
            "  false,\n  null\n], \"empty\": []}\n");
  EXPECT_EQ(JsonQuote("\x01"), "\"\\u0001\"");
}

}  // namespace
}  // namespace pelcast::zpak
