// File handling shared by every command: binary stdio streams, read in whole
// items, and an output open that refuses to clobber the command's input.
#pragma once

#include <cstdio>

namespace pelcast {

// Opens `path` for binary reading; null on failure, and for a directory.
FILE* OpenInput(const char* path);

// Opens `path` for binary writing (created or truncated); null on failure.
// When `inputPath` is given and names the same file as `path` (same device and
// inode, however spelled) nothing is opened or truncated and null is returned,
// so a mistyped command line can never destroy its own input.
FILE* OpenOutput(const char* path, const char* inputPath);

// Creates `path` as an empty file when nothing is there; an existing file is
// left as it is (never truncated). For commands whose input could not be
// opened: they leave an output behind as before, without destroying one.
void CreateIfMissing(const char* path);

// Closes `file` when it is open.
void CloseFile(FILE* file);

// True when the open stream has met the end of its file on a read.
bool AtEndOfFile(FILE* file);

}  // namespace pelcast
