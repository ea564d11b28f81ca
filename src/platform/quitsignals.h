#pragma once

// Ends the event loop cleanly on SIGINT/SIGTERM (Ctrl+C in a headless run),
// so that what the program holds (a print document) is finished.
void quitOnTerminationSignals();
