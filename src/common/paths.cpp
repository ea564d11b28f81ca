#include "common/paths.h"

#include "common/log.h"
#include "common/settings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace
{
QString g_programFolder;
QString g_jobFolder;
bool g_programFolderSet = false;
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
    g_programFolderSet = true;
    g_jobFolder.clear();
}

QString Paths::jobFolder()
{
    if (g_jobFolder.isEmpty()) {
        const QString chosen = SettingsStore::get(QStringLiteral("JobFolder")).trimmed();
        if (!chosen.isEmpty() && QDir().mkpath(chosen))
            return g_jobFolder = QDir::toNativeSeparators(QDir::cleanPath(chosen));
        if (!chosen.isEmpty())
            Log::line(QStringLiteral("Setting JobFolder: %1 cannot be made; the usual folder is "
                                     "used")
                          .arg(chosen));
    }
    if (g_jobFolder.isEmpty()) {
        const QString beside = join(programFolder(), kJobFolderName);
#ifdef Q_OS_WIN
        const bool installed = false;
#else
        // An installed program (prefix/bin) keeps no data beside itself, even
        // where root could write there.
        const bool installed = !g_programFolderSet
                               && QFileInfo(programFolder()).fileName() == QLatin1String("bin");
#endif
        if (!installed)
            QDir(programFolder()).mkpath(kJobFolderName);
        if (!installed && QFileInfo(beside).isDir() && QFileInfo(beside).isWritable()) {
            g_jobFolder = beside;
        } else {
            const QString data = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
            g_jobFolder = QDir::toNativeSeparators(join(data, kJobFolderName));
            Log::line(QStringLiteral("%1; jobs are kept in %2")
                          .arg(installed ? QStringLiteral("The program is installed")
                                         : QStringLiteral("The program folder is not writable"),
                               g_jobFolder));
        }
    }
    return g_jobFolder;
}

void Paths::resetJobFolder()
{
    g_jobFolder.clear();
}

QString Paths::ensureJobFolder()
{
    const QString folder = jobFolder();
    QDir().mkpath(folder);
    return folder;
}
