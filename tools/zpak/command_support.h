// What the subcommands share: exit statuses, messages on standard error,
// their --help texts, and the options and operands most of them take.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pelcast/pelcast.h"
#include "tools/zpak/args.h"
#include "tools/zpak/formats.h"
#include "tools/zpak/image_files.h"
#include "tools/zpak/pictures.h"

namespace pelcast::zpak {

inline constexpr int kExitOk = 0;
inline constexpr int kExitNegative = 1;  // invalid, different, unrecognised
inline constexpr int kExitError = 2;     // usage or I/O error

struct Command {
  const char* name;
  const char* synopsis;     // "FORMAT FILE WIDTH HEIGHT"
  const char* summary;      // one line for the list of subcommands
  const char* description;  // the body of --help
  std::vector<Option> options;
  int (*run)(const Command& command, const ParsedArgs& args);
};

std::string HelpText(const Command& command);

// "zpak NAME: message" on standard error (and a pointer to --help after a
// usage error); returns `status`.
int Fail(const Command& command, int status, const std::string& message);
int UsageError(const Command& command, const std::string& message);

// A message on standard error unless --quiet was given.
void Note(const Command& command, const ParsedArgs& args, const std::string& message);

// Options many subcommands take.
extern const Option kJsonOption;
extern const Option kQuietOption;
extern const Option kThreadsOption;
extern const Option kSizeOption;
extern const Option kFrameOption;
extern const Option kFramesOption;
extern const Option kStrideOption;
extern const Option kScanlinesOption;
extern const Option kUvOffsetOption;
extern const Option kMatrixOption;

// Each Take* reads its part of the command line; false with `error` set
// when it is wrong.
bool TakeFormat(const std::string& operand, pelcast_format* format, std::string* error);
// The size from --size or from the two operands at `at` (which are consumed);
// `required` says whether a missing size is an error.
bool TakeSize(const ParsedArgs& args, std::vector<std::string>* operands, size_t at,
              bool required, uint32_t* width, uint32_t* height, std::string* error);
bool TakeThreads(const ParsedArgs& args, uint32_t* threads, std::string* error);
bool TakeFrameRange(const ParsedArgs& args, FrameRange* range, std::string* error);
bool TakeRawOptions(const ParsedArgs& args, RawOptions* raw, std::string* error);
bool TakeMatrix(const ParsedArgs& args, YuvMatrix* matrix, std::string* error);
// The kind of a linear file: the option `option` ("to", "from") if given,
// else by the file's extension.
bool TakeImageKind(const ParsedArgs& args, const char* option, const std::string& path,
                   ImageKind* kind, std::string* error);

// Checks the operand count: exactly `count` (after the size was taken).
bool CheckOperands(const std::vector<std::string>& operands, size_t count, const char* names,
                   std::string* error);

}  // namespace pelcast::zpak
