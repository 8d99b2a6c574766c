// Entry of pelcast_bench: notes in the report header which corpus and which
// reference libraries this build measures, runs the corpus-dependent
// registrations, then the benchmarks selected on the command line.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench/bench_support.h"

namespace {

void NoteReference(const char* name, bool linked, const char* package) {
  const std::string value =
      linked ? "linked" : std::string("absent (install ") + package + "); its rows are skipped";
  benchmark::AddCustomContext(name, value);
  if (!linked) std::fprintf(stderr, "pelcast_bench: %s %s\n", name, value.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const std::string corpus = pelcast::bench::CorpusDirectory();
  std::error_code error;
  const bool haveCorpus = std::filesystem::is_directory(corpus, error);
  benchmark::AddCustomContext("corpus",
                              haveCorpus ? corpus : corpus + " (missing: corpus rows skipped)");
  if (!haveCorpus) std::fprintf(stderr, "pelcast_bench: no corpus at %s\n", corpus.c_str());
#ifdef PELCAST_HAVE_LIBYUV
  NoteReference("libyuv", true, "libyuv-dev");
#else
  NoteReference("libyuv", false, "libyuv-dev");
#endif
#ifdef PELCAST_HAVE_QOI
  NoteReference("qoi", true, "libqoi-dev");
#else
  NoteReference("qoi", false, "libqoi-dev");
#endif
  pelcast::bench::RunRegistrations();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
