// zpak: the workstation command for ZPAK dumps. `zpak SUBCOMMAND ...`;
// `zpak --help` lists the subcommands.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tools/zpak/commands.h"

namespace pelcast::zpak {
namespace {

const Command* const kCommands[] = {&kIdentifyCommand, &kVerifyCommand, &kCompareCommand,
                                    &kDecodeCommand,   &kEncodeCommand, &kInfoCommand};

std::string Overview() {
  std::string text =
      "Usage: zpak SUBCOMMAND [OPTIONS] ...\n\n"
      "Says what a ZPAK dump is, whether it is valid, where two differ, and turns\n"
      "ZPAK frames into pictures and back.\n\nSubcommands:\n";
  for (const Command* c : kCommands) {
    char line[160];
    std::snprintf(line, sizeof line, "  %-10s %s\n", c->name, c->summary);
    text += line;
  }
  return text +
         "\n'zpak SUBCOMMAND --help' describes one. Formats are nv12, rgba8888 and\n"
         "rgb565; '-' names standard input or output. Exit status: 0 success, 1 a\n"
         "negative finding (invalid, different, unrecognised), 2 a usage or I/O error.\n";
}

const Command* Find(const char* name) {
  for (const Command* c : kCommands) {
    if (std::strcmp(c->name, name) == 0) return c;
  }
  return nullptr;
}

int RunCommand(const Command& command, int argc, char** argv) {
  ParsedArgs parsed;
  const std::string error = ParseArgs(std::vector<std::string>(argv, argv + argc), command.options,
                                      &parsed);
  if (!error.empty()) return UsageError(command, error);
  if (parsed.Has("help")) {
    std::fputs(HelpText(command).c_str(), stdout);
    return kExitOk;
  }
  return command.run(command, parsed);
}

int Main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(Overview().c_str(), stderr);
    return kExitError;
  }
  const char* first = argv[1];
  if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0 ||
      (std::strcmp(first, "help") == 0 && argc == 2)) {
    std::fputs(Overview().c_str(), stdout);
    return kExitOk;
  }
  if (std::strcmp(first, "--version") == 0) {
    std::printf("zpak (pelcast %s)\n", pelcast_version());
    return kExitOk;
  }
  if (std::strcmp(first, "help") == 0) {
    const Command* command = Find(argv[2]);
    if (command == nullptr) {
      std::fprintf(stderr, "zpak: unknown subcommand '%s'\n", argv[2]);
      return kExitError;
    }
    std::fputs(HelpText(*command).c_str(), stdout);
    return kExitOk;
  }
  const Command* command = Find(first);
  if (command == nullptr) {
    std::fprintf(stderr, "zpak: unknown subcommand '%s'; 'zpak --help' lists them\n", first);
    return kExitError;
  }
  return RunCommand(*command, argc - 2, argv + 2);
}

}  // namespace
}  // namespace pelcast::zpak

int main(int argc, char** argv) { return pelcast::zpak::Main(argc, argv); }
