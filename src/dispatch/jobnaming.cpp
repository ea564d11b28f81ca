#include "dispatch/jobnaming.h"

#include "common/paths.h"
#include "common/settings.h"
#include "dispatch/jobfiles.h"
#include "platform/safefile.h"

#include <QDir>
#include <QFileInfo>
#include <QHostInfo>
#include <QRegularExpression>

namespace
{
constexpr int kMaxPartBytes = 200;

bool reservedOnWindows(const QString& part)
{
    static const QRegularExpression device(QStringLiteral("^(CON|PRN|AUX|NUL|COM[1-9]|LPT[1-9])$"),
                                           QRegularExpression::CaseInsensitiveOption);
    // "nul.txt" is the device too: only the name before the first dot counts.
    return device.match(part.section(u'.', 0, 0).trimmed()).hasMatch();
}

QString orUnknown(const QString& value, const char* fallback)
{
    return value.trimmed().isEmpty() ? QLatin1String(fallback) : value;
}
} // namespace

JobNaming JobNaming::fromSettings()
{
    return JobNaming(SettingsStore::get(kTemplateKey));
}

QString JobNaming::safePart(const QString& text)
{
    QString part;
    for (const QChar c : text.normalized(QString::NormalizationForm_C)) {
        const char16_t u = c.unicode();
        if (u < 0x20 || (u >= 0x7f && u <= 0x9f) || QStringView(u"<>:\"/\\|?*").contains(c))
            part += u'_';
        else
            part += c;
    }
    // No "..": runs of dots become one, and a name never starts with one (hidden, or a parent).
    static const QRegularExpression dots(QStringLiteral("\\.{2,}"));
    part.replace(dots, QStringLiteral("."));
    while (part.startsWith(u'.') || part.startsWith(u' '))
        part.remove(0, 1);
    // Within the bytes allowed, never cutting a character in two.
    while (part.toUtf8().size() > kMaxPartBytes)
        part.chop(part.size() > 1 && part.back().isLowSurrogate() ? 2 : 1);
    // Windows drops trailing dots and spaces: two names would be one there.
    while (part.endsWith(u'.') || part.endsWith(u' '))
        part.chop(1);
    if (part.isEmpty())
        return QStringLiteral("_");
    if (reservedOnWindows(part))
        part.prepend(u'_');
    return part;
}

QString JobNaming::problem(const QString& pattern)
{
    const QString p = pattern.trimmed();
    if (p.isEmpty())
        return {};
    if (p.startsWith(u'/') || p.startsWith(u'\\') || (p.size() > 1 && p[1] == u':'))
        return QStringLiteral("a name inside the job folder, not an absolute path");
    if (p.contains(QLatin1String("..")))
        return QStringLiteral("no \"..\" in a name");
    static const QRegularExpression token(QStringLiteral("\\{([^}]*)\\}"));
    static const QStringList known{"title", "user", "client",  "host",
                                   "date",  "time", "counter", "language"};
    for (auto m = token.globalMatch(p); m.hasNext();) {
        const QString name = m.next().captured(1);
        if (!known.contains(name))
            return QStringLiteral("no token {%1}; the tokens are {%2}")
                .arg(name, known.join("}, {"));
    }
    for (const QString& part : p.split(u'/'))
        if (part.trimmed().isEmpty())
            return QStringLiteral("an empty folder name");
    return {};
}

QString JobNaming::expand(const Job& job, qint64 counter) const
{
    const QDateTime when = job.received.isValid() ? job.received : QDateTime::currentDateTime();
    const QList<std::pair<QString, QString>> values{
        {QStringLiteral("{title}"), orUnknown(job.title, "untitled")},
        {QStringLiteral("{user}"), orUnknown(job.user, "unknown")},
        {QStringLiteral("{client}"),
         orUnknown(job.clientName.isEmpty() ? job.client : job.clientName, "unknown")},
        {QStringLiteral("{host}"), QHostInfo::localHostName()},
        {QStringLiteral("{date}"), when.toString(u"yyyy-MM-dd")},
        {QStringLiteral("{time}"), when.toString(u"hhmmss")},
        {QStringLiteral("{counter}"), QString::number(counter).rightJustified(4, u'0')},
        {QStringLiteral("{language}"), LanguageName(job.language)}};
    QStringList parts;
    // Only the template's own '/' makes a folder: a value's slashes are parts of a name.
    for (QString part : m_pattern.split(u'/', Qt::SkipEmptyParts)) {
        QString filled;
        for (qsizetype i = 0; i < part.size();) {
            const auto hit = std::find_if(values.begin(), values.end(), [&](const auto& v) {
                return QStringView(part).mid(i).startsWith(v.first);
            });
            if (hit == values.end()) {
                filled += part[i++];
                continue;
            }
            QString value = hit->second;
            filled += value.replace(u'/', u'_').replace(u'\\', u'_');
            i += hit->first.size();
        }
        parts << safePart(filled);
    }
    return parts.isEmpty() ? QStringLiteral("_") : parts.join(u'/');
}

qint64 JobNaming::nextCounter()
{
    const qint64 next = SettingsStore::get(kCounterKey).toLongLong() + 1;
    SettingsStore::put(kCounterKey, QString::number(next));
    return next;
}

QString JobNaming::keptName(const Job& job) const
{
    if (!templated())
        return job.baseName;
    const QString name = expand(job, nextCounter());
    QDir().mkpath(QFileInfo(QDir(job.folder).filePath(name)).path());
    return name;
}

namespace
{
// The first free name from wanted, made here as a new empty file; empty when it cannot be.
QString claim(const QString& folder, const QString& wanted, const QString& extension, QString* why)
{
    for (int tries = 0; tries < 100; ++tries) {
        const QString path = Paths::join(folder, FreeJobName(folder, wanted) + extension);
        QString reason;
        switch (WriteNoFollow(path, {}, safefile::Mode::Exclusive, &reason)) {
        case safefile::Result::Written:
            return path;
        case safefile::Result::Taken:
            continue; // taken meanwhile: the next one
        case safefile::Result::Failed:
            if (why)
                *why = reason;
            return {};
        }
    }
    if (why)
        *why = QStringLiteral("every name is taken");
    return {};
}
} // namespace

bool JobNaming::applies(const Job& job) const
{
    using Action = OutputChoice::Action;
    // A printed job's TIFF is gone once printed: only kept files are named.
    return templated() && !job.outputPath.isEmpty() &&
           (job.choice.action == Action::Pdf || job.choice.action == Action::Image);
}

bool JobNaming::name(Job& job, QString* why) const
{
    if (!applies(job))
        return true;
    const QString path = claim(job.folder, keptName(job), job.choice.extension(), why);
    if (path.isEmpty())
        return false;
    job.outputPath = path;
    job.exclusive = true;
    return true;
}

QString JobNaming::keptPath(const Job& job, const QString& extension) const
{
    const QString plain = Paths::join(job.folder, job.baseName + extension);
    if (!templated())
        return plain;
    const QString path = claim(job.folder, keptName(job), extension, nullptr);
    return path.isEmpty() ? plain : path;
}
