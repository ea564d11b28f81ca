#include "cloud/cloudfetchrecord.h"

#include "common/log.h"
#include "common/settings.h"

#include <QFile>
#include <QSaveFile>

namespace
{
QString folderOf(const QString& path)
{
    return path.section(u'/', 0, -2);
}
QString pathOf(const QString& key)
{
    return key.section(u'\t', 0, 0);
}
} // namespace

CloudFetchRecord::CloudFetchRecord(const QString& path)
    : m_path(path.isEmpty() ? SettingsStore::besideFile(QStringLiteral("CloudFetched.txt")) : path)
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    for (const QByteArray& line : file.readAll().split('\n'))
        if (line.count('\t') == 2)
            m_keys.insert(QString::fromUtf8(line));
}

QString CloudFetchRecord::key(const DirEntry& file)
{
    // The instant, not the wall clock: a change of daylight time keeps the key.
    return file.relativePath + u'\t' + QString::number(qint64(file.length)) + u'\t' +
           file.lastModified.toUTC().toString(Qt::ISODate);
}

bool CloudFetchRecord::contains(const DirEntry& file) const
{
    return m_keys.contains(key(file));
}

bool CloudFetchRecord::add(const DirEntry& file)
{
    const QString k = key(file);
    if (m_keys.contains(k))
        return true;
    m_keys.insert(k);
    QFile out(m_path);
    if (out.open(QIODevice::Append) && out.write((k + u'\n').toUtf8()) > 0 && out.flush())
        return true;
    Log::line(QStringLiteral("The record of fetched cloud files (%1) cannot be written: after a "
                             "restart, a poll may print %2 again")
                  .arg(m_path, file.name));
    return false;
}

void CloudFetchRecord::keepListed(const QList<DirEntry>& listed)
{
    if (listed.isEmpty())
        return;
    const QString folder = folderOf(listed.first().relativePath);
    QSet<QString> shown;
    for (const DirEntry& file : listed)
        shown.insert(key(file));
    const qsizetype before = m_keys.size();
    m_keys.removeIf(
        [&](const QString& k) { return folderOf(pathOf(k)) == folder && !shown.contains(k); });
    if (m_keys.size() != before)
        save();
}

bool CloudFetchRecord::save() const
{
    QSaveFile out(m_path);
    if (!out.open(QIODevice::WriteOnly))
        return false;
    for (const QString& k : m_keys)
        out.write((k + u'\n').toUtf8());
    return out.commit();
}
