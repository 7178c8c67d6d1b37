// The simulation thread of a view. It alone creates, uses and destroys the solver. One pass of its
// loop copies the control block, rebuilds the flow for a new generation, refreshes the statistics
// and the frame if they are due, publishes, and then runs one batch of steps or sleeps.
#pragma once

#include "controller/wall_clock.h"

namespace zeph {

class Controller;

// The thread's main function. Failures are published as the status's error message.
void simulate(Controller& controller, int device, const Clock& clock);

}  // namespace zeph
