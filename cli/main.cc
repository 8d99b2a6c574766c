#include "cli/dispatcher.h"

int main(int argc, char** argv) { return pelcast::RunPelcast(argc, argv); }
