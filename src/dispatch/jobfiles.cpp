#include "dispatch/jobfiles.h"

#include "common/doevents.h"
#include "common/log.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "platform/filelock.h"
#include "platform/safefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

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

bool EnsureFolder(const QString& folder)
{
    if (QFileInfo(folder).isDir())
        return true;
    const bool made = QDir().mkpath(folder);
    Log::line(made ? QStringLiteral("The folder %1 was missing; it is made again")
                         .arg(QDir::toNativeSeparators(folder))
                   : QStringLiteral("The folder %1 is missing and cannot be made")
                         .arg(QDir::toNativeSeparators(folder)));
    return made;
}

void SaveJobFile(const QString& path, QByteArrayView bytes, bool lineEnd)
{
    EnsureFolder(QFileInfo(path).absolutePath());
    if (safefile::isLink(path.toStdWString()))
        Log::line(QStringLiteral("%1 was a symbolic link; it is removed and the job is written "
                                 "in its place")
                      .arg(QDir::toNativeSeparators(path)));
    QString why;
    switch (WriteNoFollow(path, {bytes, QByteArrayView(lineEnd ? kLineEnd : "")},
                          safefile::Mode::Replace, &why)) {
    case safefile::Result::Written:
        return;
    case safefile::Result::Taken:
    case safefile::Result::Failed:
        if (!QFileInfo::exists(path))
            RaiseError(
                rt::PathNotFound,
                QStringLiteral("Path not found: %1 (%2)").arg(QDir::toNativeSeparators(path), why));
        RaiseError(rt::PermissionDenied, QStringLiteral("Cannot write %1 (%2)").arg(path, why));
    }
}

QString FreeJobName(const QString& folder, const QString& baseName)
{
    // Every name a job's files can take, JPEG pages included.
    static const QStringList kEndings{
        QStringLiteral(".ps"),          QStringLiteral(".pdf"),     QStringLiteral(".tif"),
        QStringLiteral(".jpg"),         QStringLiteral("_001.jpg"), QStringLiteral("_partial.pdf"),
        QStringLiteral("_partial.tif"), QStringLiteral(".pcl"),     QStringLiteral(".pxl"),
        QStringLiteral(".bin"),         QStringLiteral(".xps"),     QStringLiteral(".jpeg"),
        QStringLiteral(".png"),         QStringLiteral(".tiff"),    QStringLiteral(".pwg"),
        QStringLiteral(".urf")};
    for (int n = 1;; ++n) {
        const QString name = n == 1 ? baseName : baseName + u'_' + QString::number(n);
        if (std::none_of(kEndings.begin(), kEndings.end(), [&](const QString& e) {
                return safefile::taken(Paths::join(folder, name + e).toStdWString());
            }))
            return name;
    }
}

QString MoveJobFile(const QString& from, const QString& folder, const QString& baseName,
                    const QString& extension)
{
    // A rename never replaces here: a name taken meanwhile (a link too) makes the next one.
    for (int tries = 0; tries < 100; ++tries) {
        const QString to = Paths::join(folder, FreeJobName(folder, baseName) + extension);
        if (QFile::rename(from, to))
            return to;
        if (!QFileInfo::exists(from) || !EnsureFolder(folder))
            break;
    }
    return QString();
}

safefile::Result WriteNoFollow(const QString& path, std::initializer_list<QByteArrayView> pieces,
                               safefile::Mode mode, QString* why)
{
    std::vector<std::string_view> views;
    for (const QByteArrayView piece : pieces)
        views.emplace_back(piece.data(), std::size_t(piece.size()));
    std::string reason;
    const safefile::Result result = safefile::write(path.toStdWString(), views, mode, &reason);
    if (why)
        *why = QString::fromLocal8Bit(reason.c_str());
    return result;
}
