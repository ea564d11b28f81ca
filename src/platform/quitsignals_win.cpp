#include "platform/quitsignals.h"

// A Windows program ends through its window or tray menu.
void quitOnTerminationSignals() {}
