#pragma once

#include "cloud/davlisting.h"

#include <QList>
#include <QSet>
#include <QString>

// The waiting files of the share that this installation has fetched, kept in a small file
// beside the settings, so that neither a later poll nor a restart prints one again. A file is
// the same file while its path, size and last-modified date are (the listing asks for no ETag).
class CloudFetchRecord
{
public:
    // An empty path: the record beside the settings.
    explicit CloudFetchRecord(const QString& path = {});

    bool contains(const DirEntry& file) const;
    // Kept on disk at once; false (and logged) when it could not be.
    bool add(const DirEntry& file);
    // Forgets the files of this listing's folder that it no longer shows, so the record stays
    // as small as the share.
    void keepListed(const QList<DirEntry>& listed);
    qsizetype size() const { return m_keys.size(); }
    const QString& path() const { return m_path; }

private:
    static QString key(const DirEntry& file);
    bool save() const;

    QString m_path;
    QSet<QString> m_keys;
};
