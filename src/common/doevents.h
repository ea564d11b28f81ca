#pragma once

// Lets every pending event run. When none is pending it waits for the next
// one for at most a few milliseconds, so wait loops do not spin a core.
void DoEvents();

// Tries until done() holds, letting events run twice between two tries. No
// time limit: other events, a second job among them, run inside the wait.
template <typename F> void waitUntil(F&& done)
{
    while (!done()) {
        DoEvents();
        DoEvents();
    }
}
