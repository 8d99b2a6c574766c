// GNU-style command lines of the zpak subcommands: long options anywhere
// among the operands (--name VALUE or --name=VALUE), a few one-letter
// flags, "--" ending the options and "-" an operand (standard input or
// output). Each subcommand declares its options in a table, which also
// writes the options part of its --help text.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pelcast::zpak {

struct Option {
  const char* name;       // without the dashes: "json"
  char letter;            // one-letter form, 0 for none
  const char* valueName;  // null for a flag
  const char* help;
};

struct ParsedArgs {
  std::vector<std::string> operands;
  std::map<std::string, std::string> values;  // flags map to ""; the last one given wins

  bool Has(std::string_view name) const { return values.count(std::string(name)) != 0; }
  std::optional<std::string> Value(std::string_view name) const;
};

// Parses `args` against `options`. Returns an empty string, or what is wrong
// in one line. --help (and -h) is always known and stops the parse.
std::string ParseArgs(const std::vector<std::string>& args, const std::vector<Option>& options,
                      ParsedArgs* parsed);

// The "Options:" lines of a --help text.
std::string OptionsHelp(const std::vector<Option>& options);

}  // namespace pelcast::zpak
