// What is counted rather than timed, each as a table for docs/performance.md on standard output.
#pragma once

namespace bench {

void PrintCalls();
void PrintFunctions();
void PrintMemory();
void PrintSleep(unsigned seconds);

}  // namespace bench
