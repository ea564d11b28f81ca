#include "platform/ghostscript.h"

#include <QFileInfo>
#include <QStandardPaths>

std::wstring ghostscriptProgram(const std::wstring& programFolder)
{
    const QString bundled = QString::fromStdWString(programFolder) + QStringLiteral("/bin/gs");
    if (QFileInfo(bundled).isExecutable())
        return bundled.toStdWString();
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("gs"));
    return onPath.isEmpty() ? L"gs" : onPath.toStdWString();
}
