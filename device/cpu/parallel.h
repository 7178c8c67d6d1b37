// The thread pool for code that is compiled once per instruction set. The header includes nothing
// of the standard library, whose inline functions would otherwise be compiled for that set too.
#pragma once

namespace zeph::cpu {

// How many threads may take part in a run.
int participants();

// Runs task(context, index, participant) for each index below `count` on the shared pool.
void runTasks(int count, void (*task)(void* context, int index, int participant), void* context);

}  // namespace zeph::cpu
