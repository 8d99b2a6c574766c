#include "tools/zpak/args.h"

#include <algorithm>

namespace pelcast::zpak {
namespace {

const OptionSpec kHelp = {"help", 'h', nullptr, "show this text"};

const OptionSpec* FindLong(const std::vector<OptionSpec>& specs, std::string_view name) {
  if (name == kHelp.name) return &kHelp;
  for (const OptionSpec& s : specs) {
    if (name == s.name) return &s;
  }
  return nullptr;
}

const OptionSpec* FindLetter(const std::vector<OptionSpec>& specs, char letter) {
  if (letter == kHelp.letter) return &kHelp;
  for (const OptionSpec& s : specs) {
    if (s.letter != 0 && s.letter == letter) return &s;
  }
  return nullptr;
}

// A negative number is an operand (and a bad one, reported as such).
bool LooksLikeOption(std::string_view arg) {
  return arg.size() >= 2 && arg[0] == '-' && !(arg[1] >= '0' && arg[1] <= '9');
}

}  // namespace

std::optional<std::string> ParsedArgs::Value(std::string_view name) const {
  const auto it = values.find(std::string(name));
  if (it == values.end()) return std::nullopt;
  return it->second;
}

std::string ParseArgs(const std::vector<std::string>& args, const std::vector<OptionSpec>& specs,
                      ParsedArgs* parsed) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string_view arg = args[i];
    if (optionsEnded || !LooksLikeOption(arg)) {
      parsed->operands.emplace_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const bool isLong = arg.substr(0, 2) == "--";
    const size_t equals = isLong ? arg.find('=') : std::string_view::npos;
    const std::string_view name = isLong ? arg.substr(2, equals - 2) : arg.substr(1);
    const OptionSpec* spec = isLong ? FindLong(specs, name)
                                    : (name.size() == 1 ? FindLetter(specs, name[0]) : nullptr);
    if (spec == nullptr) return "unknown option '" + std::string(arg) + "'";
    if (spec == &kHelp) {
      parsed->values["help"] = "";
      return "";
    }
    std::string value;
    if (spec->valueName == nullptr) {
      if (equals != std::string_view::npos) return "--" + std::string(name) + " takes no value";
    } else if (equals != std::string_view::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      return "--" + std::string(spec->name) + " needs a value (" + spec->valueName + ")";
    }
    parsed->values[spec->name] = value;
  }
  return "";
}

std::string OptionsHelp(const std::vector<OptionSpec>& specs) {
  constexpr size_t kHelpColumn = 24;
  std::string text = "Options:\n";
  std::vector<OptionSpec> all = specs;
  all.push_back(kHelp);
  for (const OptionSpec& s : all) {
    std::string left = "  ";
    left += s.letter != 0 ? std::string("-") + s.letter + ", " : "    ";
    left += std::string("--") + s.name;
    if (s.valueName != nullptr) left += std::string(" ") + s.valueName;
    left += left.size() < kHelpColumn ? std::string(kHelpColumn - left.size(), ' ') : "  ";
    std::string help = s.help;
    for (size_t at = help.find('\n'); at != std::string::npos; at = help.find('\n', at + 1)) {
      help.insert(at + 1, std::string(kHelpColumn, ' '));
    }
    text += left + help + "\n";
  }
  return text;
}

}  // namespace pelcast::zpak
