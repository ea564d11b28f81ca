#include "platform/ghostscript.h"

#include "common/paths.h"

QString ghostscriptProgram()
{
    return Paths::programFolder() + QStringLiteral("\\bin\\gswin32c.exe");
}

// A Job Object with JOB_OBJECT_LIMIT_PROCESS_TIME and _PROCESS_MEMORY would
// do it here; until then only the caller's wall-time limit applies.
void limitGhostscript(QProcess&, int, int) {}

int cpuLimitSignal()
{
    return 0;
}
