#include "platform/ghostscript.h"

#include "common/paths.h"

#include <QFileInfo>
#include <QStandardPaths>

QString ghostscriptProgram()
{
    const QString bundled = Paths::programFolder() + QStringLiteral("/bin/gs");
    if (QFileInfo(bundled).isExecutable())
        return bundled;
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("gs"));
    return onPath.isEmpty() ? QStringLiteral("gs") : onPath;
}
