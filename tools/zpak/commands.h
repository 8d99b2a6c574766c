// The zpak subcommands.
#pragma once

#include "tools/zpak/command_support.h"

namespace pelcast::zpak {

extern const Command kIdentifyCommand;
extern const Command kVerifyCommand;
extern const Command kCompareCommand;
extern const Command kDecodeCommand;
extern const Command kEncodeCommand;
extern const Command kInfoCommand;

}  // namespace pelcast::zpak
