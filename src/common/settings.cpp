#include "common/settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <memory>

namespace
{
const QString kApp = QStringLiteral("Quorvel");
const QString kSection = QStringLiteral("Quorvel");

QString& overrideFolder()
{
    static QString folder = qEnvironmentVariable("QUORVEL_SETTINGS_DIR");
    return folder;
}

std::unique_ptr<QSettings> open()
{
    const QString folder = overrideFolder();
    std::unique_ptr<QSettings> s;
    if (!folder.isEmpty())
        s = std::make_unique<QSettings>(QDir(folder).filePath(kApp + QStringLiteral(".ini")),
                                        QSettings::IniFormat);
    else
#ifdef Q_OS_WIN
        s = std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, kApp, kApp);
#else
        s = std::make_unique<QSettings>(QSettings::IniFormat, QSettings::UserScope, kApp, kApp);
#endif
    s->beginGroup(kSection);
    return s;
}
} // namespace

QString SettingsStore::get(const QString& key)
{
    return open()->value(key, QString()).toString();
}

void SettingsStore::put(const QString& key, const QString& value)
{
    auto s = open();
    s->setValue(key, value);
    s->sync();
}

void SettingsStore::remove(const QString& key)
{
    auto s = open();
    s->remove(key);
    s->sync();
}

bool SettingsStore::makePrivate()
{
    auto s = open();
    if (s->format() != QSettings::IniFormat)
        return true;
    const QString name = s->fileName();
    constexpr QFile::Permissions owner = QFile::ReadOwner | QFile::WriteOwner;
    if (!QFileInfo::exists(name)) {
        QDir().mkpath(QFileInfo(name).path());
        QFile f(name);
        // Private from its first byte.
        if (!f.open(QIODevice::WriteOnly | QIODevice::NewOnly, owner) && !QFileInfo::exists(name))
            return false;
    }
    // QSettings keeps a file's permissions when it rewrites it.
    return QFile::setPermissions(name, owner);
}

void SettingsStore::setFolder(const QString& folder)
{
    overrideFolder() = folder;
}

QString SettingsStore::fileName()
{
    return open()->fileName();
}

QString SettingsStore::besideFile(const QString& name)
{
    QString folder = QFileInfo(fileName()).absolutePath();
#ifdef Q_OS_WIN
    if (!fileName().endsWith(QLatin1String(".ini"))) // the registry
        folder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
#endif
    return QDir(folder).filePath(name);
}
