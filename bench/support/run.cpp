#include "support/run.h"

#include <sys/resource.h>

#include <ctime>
#include <filesystem>

namespace tvx::bench {

int RunCases(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  std::filesystem::remove_all(NOTIFYPI_BENCH_WORK);
  std::filesystem::create_directories(NOTIFYPI_BENCH_WORK);
  std::filesystem::current_path(NOTIFYPI_BENCH_WORK);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

double ProcessorSeconds() {
  timespec own{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
  rusage children{};
  getrusage(RUSAGE_CHILDREN, &children);
  const auto seconds = own.tv_sec + children.ru_utime.tv_sec + children.ru_stime.tv_sec;
  const auto microseconds = children.ru_utime.tv_usec + children.ru_stime.tv_usec;
  return static_cast<double>(seconds) + static_cast<double>(own.tv_nsec) * 1e-9 +
         static_cast<double>(microseconds) * 1e-6;
}

}  // namespace tvx::bench
