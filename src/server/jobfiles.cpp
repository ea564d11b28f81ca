#include "server/jobfiles.h"

#include "platform/filelock.h"

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
    if (heldOpenByAnotherProcess(path))
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
