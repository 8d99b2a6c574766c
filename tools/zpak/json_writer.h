// A small JSON writer: values are appended in order and commas placed by
// the writer. Arrays opened with BeginArray(true) put each element on a line
// of its own, indented two spaces for every such array around it;
// everything else stays on one line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pelcast::zpak {

class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray(bool onLines = false);
  JsonWriter& EndArray();
  // The name of the next member of the open object.
  JsonWriter& Key(std::string_view name);
  JsonWriter& String(std::string_view value);
  JsonWriter& Number(uint64_t value);
  JsonWriter& Number(int64_t value);
  JsonWriter& Number(uint32_t value) { return Number(uint64_t{value}); }
  JsonWriter& Number(int value) { return Number(int64_t{value}); }
  // A fraction with `decimals` digits after the point; null when not finite.
  JsonWriter& Number(double value, int decimals);
  JsonWriter& Bool(bool value);
  JsonWriter& Null();

  // The document so far, with a final newline once everything is closed.
  std::string Text() const;

 private:
  struct Level {
    bool array;
    bool onLines;
    bool empty;
  };
  void BeforeValue();
  size_t Indent() const;
  std::string out_;
  std::vector<Level> levels_;
  bool afterKey_ = false;
};

// `text` as a JSON string literal, quotes included.
std::string JsonQuote(std::string_view text);

}  // namespace pelcast::zpak
