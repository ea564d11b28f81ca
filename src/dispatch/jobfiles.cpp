#include "dispatch/jobfiles.h"

#include "common/doevents.h"
#include "common/runtimeerror.h"
#include "platform/filelock.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

QString jobBaseName(const QDateTime& when)
{
    return QStringLiteral("File_") + when.toString(u"yyMMdd_hhmmss");
}

bool WipeFile(const QString& path)
{
    if (!QFileInfo::exists(path))
        return true;
    if (heldOpenByAnotherProcess(path.toStdWString()))
        return false;
    {
        QFile f(path);
        if (!f.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
            return false;
        qint64 left = f.size();
        const QByteArray xs(qMin<qint64>(left, 1 << 20), 'X');
        while (left > 0) {
            const qint64 n = qMin<qint64>(left, xs.size());
            if (f.write(xs.constData(), n) != n)
                return false;
            left -= n;
        }
        if (!f.flush())
            return false;
    }
    return QFile::remove(path);
}

void WipeUntilDone(const QString& path)
{
    waitUntil([&] { return WipeFile(path); });
}

namespace
{
#ifdef Q_OS_WIN
const char kLineEnd[] = "\r\n";
#else
const char kLineEnd[] = "\n";
#endif
} // namespace

void SaveJobFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        RaiseError(rt::PathNotFound, QStringLiteral("Path not found: %1 (%2)")
                                         .arg(QDir::toNativeSeparators(path), f.errorString()));
    if (f.write(bytes) != bytes.size() || f.write(kLineEnd) != qint64(sizeof kLineEnd - 1) ||
        !f.flush())
        RaiseError(rt::PermissionDenied,
                   QStringLiteral("Cannot write %1 (%2)").arg(path, f.errorString()));
}
