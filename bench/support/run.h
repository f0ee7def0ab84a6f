// What every benchmark program does around its cases.
#pragma once

#include <benchmark/benchmark.h>

namespace tvx::bench {

// Makes an empty work folder the working directory and runs the registered cases. The result is
// the program's exit status.
int RunCases(int argc, char** argv);

// Seconds of processor time that this process and its ended children have used, the kernel's work
// for them included. Reading it takes about a microsecond.
double ProcessorSeconds();

// Times one piece of work as one iteration of a case with manual time, so that what prepares the
// next iteration is not counted. Processor time, as the machine has other things to do.
template <typename Work>
void TimeOnce(benchmark::State& state, const Work& work) {
  const double begin = ProcessorSeconds();
  work();
  state.SetIterationTime(ProcessorSeconds() - begin);
}

}  // namespace tvx::bench
