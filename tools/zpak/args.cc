#include "tools/zpak/args.h"

#include <algorithm>

namespace pelcast::zpak {
namespace {

const Option kHelp = {"help", 'h', nullptr, "show this text"};

const Option* FindLong(const std::vector<Option>& options, std::string_view name) {
  if (name == kHelp.name) return &kHelp;
  for (const Option& s : options) {
    if (name == s.name) return &s;
  }
  return nullptr;
}

const Option* FindLetter(const std::vector<Option>& options, char letter) {
  if (letter == kHelp.letter) return &kHelp;
  for (const Option& s : options) {
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

std::string ParseArgs(const std::vector<std::string>& args, const std::vector<Option>& options,
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
    const Option* option = isLong ? FindLong(options, name)
                                  : (name.size() == 1 ? FindLetter(options, name[0]) : nullptr);
    if (option == nullptr) return "unknown option '" + std::string(arg) + "'";
    if (option == &kHelp) {
      parsed->values["help"] = "";
      return "";
    }
    std::string value;
    if (option->valueName == nullptr) {
      if (equals != std::string_view::npos) return "--" + std::string(name) + " takes no value";
    } else if (equals != std::string_view::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    } else {
      return "--" + std::string(option->name) + " needs a value (" + option->valueName + ")";
    }
    parsed->values[option->name] = value;
  }
  return "";
}

std::string OptionsHelp(const std::vector<Option>& options) {
  constexpr size_t kHelpColumn = 24;
  std::string text = "Options:\n";
  std::vector<Option> all = options;
  all.push_back(kHelp);
  for (const Option& s : all) {
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
