#include "platform/ghostscript.h"

#include "common/paths.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <csignal>
#include <sys/resource.h>

QString ghostscriptProgram()
{
    const QString bundled = Paths::programFolder() + QStringLiteral("/bin/gs");
    if (QFileInfo(bundled).isExecutable())
        return bundled;
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("gs"));
    return onPath.isEmpty() ? QStringLiteral("gs") : onPath;
}

void limitGhostscript(QProcess& gs, int cpuSeconds, int memoryMB)
{
    if (cpuSeconds <= 0 && memoryMB <= 0)
        return;
    // Runs in the child between fork and exec: setrlimit only.
    gs.setChildProcessModifier([cpuSeconds, memoryMB] {
        if (cpuSeconds > 0) {
            // SIGXCPU at the soft limit; the hard one kills a run that ignores it.
            const rlimit cpu{rlim_t(cpuSeconds), rlim_t(cpuSeconds) + 5};
            setrlimit(RLIMIT_CPU, &cpu);
        }
        if (memoryMB > 0) {
            const rlim_t bytes = rlim_t(memoryMB) * 1024 * 1024;
            const rlimit as{bytes, bytes};
            setrlimit(RLIMIT_AS, &as);
        }
    });
}

int cpuLimitSignal()
{
    return SIGXCPU;
}
