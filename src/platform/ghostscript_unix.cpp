#include "platform/ghostscript.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>
#include <sys/resource.h>

std::wstring ghostscriptProgram(const std::wstring& programFolder)
{
    const QString bundled = QString::fromStdWString(programFolder) + QStringLiteral("/bin/gs");
    if (QFileInfo(bundled).isExecutable())
        return bundled.toStdWString();
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("gs"));
    return onPath.isEmpty() ? L"gs" : onPath.toStdWString();
}

// Runs between fork and exec: setrlimit only.
void limitGhostscriptChild(int cpuSeconds, int memoryMB)
{
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
}

int cpuLimitSignal()
{
    return SIGXCPU;
}
