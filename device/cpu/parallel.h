// The pool as code that is compiled once per instruction set may use it: nothing of the standard
// library, so that nothing of it is compiled along.
#pragma once

namespace zeph::cpu {

// How many threads may take part in a run.
int participants();

// Runs task(context, index, participant) for each index below `count` on the shared pool.
void runTasks(int count, void (*task)(void* context, int index, int participant), void* context);

}  // namespace zeph::cpu
