#pragma once

namespace pelcast {

// Runs one pelcast command line (argv[0] is the program name). Always returns
// 0: the tool reports failures on standard output, never through its status.
int RunPelcast(int argc, const char* const* argv);

}  // namespace pelcast
