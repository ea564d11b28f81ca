#include "common/paths.h"

#include "common/log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace
{
QString g_programFolder;
QString g_jobFolder;
const QString kJobFolderName = QStringLiteral("ImagesPdfExport");
} // namespace

QString Paths::separator()
{
    return QString(QDir::separator());
}

QString Paths::join(const QString& folder, const QString& name)
{
    return folder + separator() + name;
}

QString Paths::programFolder()
{
    if (g_programFolder.isEmpty())
        g_programFolder = QDir::toNativeSeparators(QCoreApplication::applicationDirPath());
    return g_programFolder;
}

void Paths::setProgramFolder(const QString& folder)
{
    QString f = QDir::toNativeSeparators(QDir::cleanPath(QDir(folder).absolutePath()));
    g_programFolder = f;
    g_jobFolder.clear();
}

QString Paths::jobFolder()
{
    if (g_jobFolder.isEmpty()) {
        const QString beside = join(programFolder(), kJobFolderName);
        QDir(programFolder()).mkpath(kJobFolderName);
        if (QFileInfo(beside).isDir() && QFileInfo(beside).isWritable()) {
            g_jobFolder = beside;
        } else {
            const QString data = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
            g_jobFolder = QDir::toNativeSeparators(join(data, kJobFolderName));
            Log::line(QStringLiteral("The program folder is not writable; jobs are kept in %1")
                          .arg(g_jobFolder));
        }
    }
    return g_jobFolder;
}

QString Paths::ensureJobFolder()
{
    const QString folder = jobFolder();
    QDir().mkpath(folder);
    return folder;
}
