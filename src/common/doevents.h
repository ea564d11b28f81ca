#pragma once

// Lets every pending event run. When none is pending it waits for the next
// one for at most a few milliseconds, so wait loops do not spin a core.
void DoEvents();
