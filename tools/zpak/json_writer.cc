#include "tools/zpak/json_writer.h"

#include <cmath>
#include <cstdio>

namespace pelcast::zpak {

std::string JsonQuote(std::string_view text) {
  std::string out = "\"";
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += ch;
    }
  }
  out += '"';
  return out;
}

size_t JsonWriter::Indent() const {
  constexpr size_t kIndentStep = 2;
  size_t indent = 0;
  for (const Level& level : levels_) indent += level.onLines ? kIndentStep : 0;
  return indent;
}

void JsonWriter::BeforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (levels_.empty()) return;
  Level& level = levels_.back();
  if (!level.empty) out_ += ",";
  if (level.onLines) {
    out_ += '\n';
    out_.append(Indent(), ' ');
  } else if (!level.empty) {
    out_ += " ";
  }
  level.empty = false;
}

JsonWriter& JsonWriter::BeginObject() {
  BeforeValue();
  out_ += "{";
  levels_.push_back({false, false, true});
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  levels_.pop_back();
  out_ += "}";
  return *this;
}

JsonWriter& JsonWriter::BeginArray(bool onLines) {
  BeforeValue();
  out_ += "[";
  levels_.push_back({true, onLines, true});
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  const Level level = levels_.back();
  levels_.pop_back();
  if (level.onLines && !level.empty) {
    out_ += '\n';
    out_.append(Indent(), ' ');
  }
  out_ += "]";
  return *this;
}

JsonWriter& JsonWriter::Key(std::string_view name) {
  BeforeValue();
  out_ += JsonQuote(name);
  out_ += ": ";
  afterKey_ = true;
  return *this;
}

JsonWriter& JsonWriter::String(std::string_view value) {
  BeforeValue();
  out_ += JsonQuote(value);
  return *this;
}

JsonWriter& JsonWriter::Number(uint64_t value) {
  BeforeValue();
  out_ += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::Number(int64_t value) {
  BeforeValue();
  out_ += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::Number(double value, int decimals) {
  if (!std::isfinite(value)) return Null();
  BeforeValue();
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  out_ += text;
  return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
  BeforeValue();
  out_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null() {
  BeforeValue();
  out_ += "null";
  return *this;
}

std::string JsonWriter::Text() const { return levels_.empty() ? out_ + "\n" : out_; }

}  // namespace pelcast::zpak
