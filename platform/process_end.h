// Functions that run when the process exits.
#pragma once

namespace zeph::platform {

// Whether the other threads of a process still run while it exits.
bool threadsRunAtProcessEnd();

// Has exit() call the function before everything that was registered earlier. A function that is
// registered again is called once more, and thus first again. False if the process is so far in its
// exit that nothing registered now is called.
bool callAtProcessEnd(void (*work)());

// Takes back every registration of the function.
void forgetAtProcessEnd(void (*work)());

// If the calling thread is the process's first, calls a function when that thread ends, and so
// before anything that is registered for the end of the process. Later calls do nothing.
void atEndOfFirstThread(void (*work)());

}  // namespace zeph::platform
