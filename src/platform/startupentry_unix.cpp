#include "platform/startupentry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <cstring>

namespace
{
QString autostartFolder()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart");
}

// Exec: the path as one quoted argument (inside the quotes a backslash goes
// before " ` $ and backslash, % is doubled), then the string escape of the
// value itself doubles every backslash again.
QString execValue(const QString& program)
{
    QString quoted;
    for (QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        if (c == u'%')
            quoted += u'%';
        quoted += c;
    }
    quoted = u'"' + quoted + u'"';
    QString value;
    for (QChar c : quoted) {
        if (c == u'\\')
            value += QStringLiteral("\\\\");
        else if (c == u'\n')
            value += QStringLiteral("\\n");
        else if (c == u'\t')
            value += QStringLiteral("\\t");
        else
            value += c;
    }
    return value;
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}
} // namespace

std::wstring RunEntryLocation(const std::wstring& exeName)
{
    return (autostartFolder() + u'/' + QString::fromStdWString(exeName) +
            QStringLiteral(".desktop"))
        .toStdWString();
}

bool RunEntryExists(const std::wstring& exeName)
{
    QFile file(QString::fromStdWString(RunEntryLocation(exeName)));
    return file.open(QIODevice::ReadOnly);
}

std::wstring RunEntrySet(const std::wstring& exe, const std::wstring& folder, bool enable)
{
    const QString path = QString::fromStdWString(RunEntryLocation(exe));
    const QString exeName = QString::fromStdWString(exe),
                  programFolder = QString::fromStdWString(folder);
    if (!enable) {
        QFile::remove(path);
        return std::wstring();
    }
    errno = 0;
    if (!QDir().mkpath(autostartFolder())) {
        const int error = errno;
        return (QStringLiteral("Error ") + QString::number(error) + QStringLiteral(" opening key") +
                u'\n' + errorText(error))
            .toStdWString();
    }
    const QString program = QDir(programFolder).filePath(exeName);
    const QByteArray text = QStringLiteral("[Desktop Entry]\n"
                                           "Type=Application\n"
                                           "Name=%1\n"
                                           "Exec=%2\n"
                                           "Terminal=false\n"
                                           "X-GNOME-Autostart-enabled=true\n")
                                .arg(exeName, execValue(program))
                                .toUtf8();
    QSaveFile file(path);
    errno = 0;
    bool ok = file.open(QIODevice::WriteOnly);
    ok = ok && file.write(text) == text.size();
    ok = ok && file.commit();
    if (ok)
        return std::wstring();
    const int error = errno ? errno : EIO;
    return (QStringLiteral("Error ") + QString::number(error) + QStringLiteral(" setting key") +
            u'\n' + file.errorString())
        .toStdWString();
}

void SetRunOnStart(const std::wstring& exe, const std::wstring& folder)
{
    const QString exeName = QString::fromStdWString(exe),
                  programFolder = QString::fromStdWString(folder);
    // The system-wide autostart folder, as the machine-wide Run key.
    QFile file(QStringLiteral("/etc/xdg/autostart/") + exeName + QStringLiteral(".desktop"));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n")
                   .arg(exeName, execValue(QDir(programFolder).filePath(exeName)))
                   .toUtf8());
}
