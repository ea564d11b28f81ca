#include "history/jobhistory.h"

#include "common/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

namespace
{
const QString kConnection = QStringLiteral("quorvel-history");
constexpr int kDefaultDays = 90;
constexpr int kDefaultMax = 10000;

int setting(const char* key, int fallback)
{
    bool ok = false;
    const int value = SettingsStore::get(QLatin1String(key)).trimmed().toInt(&ok);
    return ok && value > 0 ? value : fallback;
}

// The connection, opened once per database file, with its table made.
QSqlDatabase database(QString* why)
{
    QSqlDatabase db = QSqlDatabase::contains(kConnection)
                          ? QSqlDatabase::database(kConnection, false)
                          : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kConnection);
    const QString file = JobHistory::path();
    if (db.isOpen() && db.databaseName() == file)
        return db;
    db.close();
    db.setDatabaseName(file);
    QDir().mkpath(QFileInfo(file).absolutePath());
    // WAL without a sync at every commit: a row costs no disk flush of its own.
    const QStringList setUp{
        QStringLiteral("PRAGMA journal_mode=WAL"), QStringLiteral("PRAGMA synchronous=NORMAL"),
        QStringLiteral(
            "CREATE TABLE IF NOT EXISTS jobs (id INTEGER PRIMARY KEY, name TEXT, received TEXT, "
            "finished TEXT, client_address TEXT, client_name TEXT, language TEXT, title TEXT, "
            "user TEXT, pages INTEGER, bytes INTEGER, outputs TEXT, status TEXT, reason TEXT)"),
        QStringLiteral("CREATE INDEX IF NOT EXISTS jobs_finished ON jobs (finished)")};
    bool ok = db.open();
    for (const QString& statement : setUp) {
        QSqlQuery q(db);
        ok = ok && q.exec(statement);
        if (!ok && why && why->isEmpty())
            *why = (q.lastError().isValid() ? q.lastError() : db.lastError()).text();
    }
    if (!ok)
        db.close();
    return db;
}

QString client(const QString& address, const QString& name)
{
    if (address.isEmpty())
        return QString();
    return name.isEmpty() || name == address ? address : name + QStringLiteral(", ") + address;
}
} // namespace

QString JobRecord::logLine() const
{
    QString line =
        QStringLiteral("Job ") + (title.isEmpty() ? name : QStringLiteral("\"%1\"").arg(title));
    const QString from = client(clientAddress, clientName);
    if (!user.isEmpty())
        line += QStringLiteral(" from ") + user +
                (from.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(from));
    else if (!from.isEmpty())
        line += QStringLiteral(" from ") + from;
    line += QStringLiteral(": ") + language;
    if (pages >= 0)
        line += pages == 1 ? QStringLiteral(", 1 page") : QStringLiteral(", %1 pages").arg(pages);
    if (status != QLatin1String("done"))
        line += QStringLiteral(", ") + status;
    if (!reason.isEmpty())
        line += QStringLiteral(" (%1)").arg(reason);
    if (!outputs.isEmpty())
        line += QStringLiteral(" -> ") + (outputs.size() <= 3
                                              ? outputs.join(QStringLiteral(", "))
                                              : QStringLiteral("%1 ... %2 (%3 files)")
                                                    .arg(outputs.first(), outputs.last())
                                                    .arg(outputs.size()));
    return line;
}

QString JobRecord::clientText() const
{
    return clientAddress.isEmpty() ? clientName : client(clientAddress, clientName);
}

QString JobHistory::path()
{
    return SettingsStore::besideFile(QStringLiteral("history.sqlite"));
}

bool JobHistory::add(const JobRecord& r, QString* why)
{
    QSqlDatabase db = database(why);
    if (!db.isOpen() || !db.transaction()) {
        if (why && db.isOpen())
            *why = db.lastError().text();
        return false;
    }
    QSqlQuery q(db);
    q.prepare(QStringLiteral(
        "INSERT INTO jobs (name, received, finished, client_address, client_name, language, "
        "title, user, pages, bytes, outputs, status, reason) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"));
    for (const QVariant& v :
         {QVariant(r.name), QVariant(r.received.toUTC().toString(Qt::ISODate)),
          QVariant(r.finished.toUTC().toString(Qt::ISODate)), QVariant(r.clientAddress),
          QVariant(r.clientName), QVariant(r.language), QVariant(r.title), QVariant(r.user),
          r.pages >= 0 ? QVariant(r.pages) : QVariant(), QVariant(r.bytes),
          QVariant(r.outputs.join(u'\n')), QVariant(r.status), QVariant(r.reason)})
        q.addBindValue(v);
    QSqlQuery prune(db), cap(db);
    prune.prepare(QStringLiteral("DELETE FROM jobs WHERE finished < ?"));
    prune.addBindValue(QDateTime::currentDateTimeUtc()
                           .addDays(-setting("HistoryDays", kDefaultDays))
                           .toString(Qt::ISODate));
    cap.prepare(QStringLiteral("DELETE FROM jobs WHERE id <= (SELECT MAX(id) FROM jobs) - ?"));
    cap.addBindValue(setting("HistoryMax", kDefaultMax));
    if (q.exec() && prune.exec() && cap.exec() && db.commit())
        return true;
    if (why)
        *why = (q.lastError().isValid() ? q.lastError() : db.lastError()).text();
    db.rollback();
    return false;
}

QList<JobRecord> JobHistory::rows(int last)
{
    QList<JobRecord> records;
    QSqlDatabase db = database(nullptr);
    if (!db.isOpen())
        return records;
    QSqlQuery q(db);
    q.prepare(QStringLiteral("SELECT id, name, received, finished, client_address, client_name, "
                             "language, title, user, pages, bytes, outputs, status, reason FROM "
                             "jobs ORDER BY id DESC LIMIT ?"));
    q.addBindValue(last);
    q.exec();
    while (q.next()) {
        JobRecord r;
        r.id = q.value(0).toLongLong();
        r.name = q.value(1).toString();
        r.received = QDateTime::fromString(q.value(2).toString(), Qt::ISODate).toLocalTime();
        r.finished = QDateTime::fromString(q.value(3).toString(), Qt::ISODate).toLocalTime();
        r.clientAddress = q.value(4).toString();
        r.clientName = q.value(5).toString();
        r.language = q.value(6).toString();
        r.title = q.value(7).toString();
        r.user = q.value(8).toString();
        r.pages = q.value(9).isNull() ? -1 : q.value(9).toInt();
        r.bytes = q.value(10).toLongLong();
        r.outputs = q.value(11).toString().split(u'\n', Qt::SkipEmptyParts);
        r.status = q.value(12).toString();
        r.reason = q.value(13).toString();
        records << r;
    }
    return records;
}

bool JobHistory::remove(qint64 id, QString* why)
{
    QSqlDatabase db = database(why);
    QSqlQuery q(db);
    q.prepare(QStringLiteral("DELETE FROM jobs WHERE id = ?"));
    q.addBindValue(id);
    if (db.isOpen() && q.exec())
        return true;
    if (why)
        *why = q.lastError().text();
    return false;
}

QString JobHistory::table(int last)
{
    QString why;
    QSqlDatabase db = database(&why);
    if (!db.isOpen())
        return QStringLiteral("The job history %1 cannot be read: %2\n").arg(path(), why);
    QSqlQuery q(db);
    q.prepare(QStringLiteral("SELECT finished, name, status, language, pages, bytes, "
                             "client_address, client_name, user, title, outputs, reason FROM jobs "
                             "ORDER BY id DESC LIMIT ?"));
    q.addBindValue(last);
    q.exec();
    QList<QStringList> rows{{QStringLiteral("Finished"), QStringLiteral("Job"),
                             QStringLiteral("Status"), QStringLiteral("Language"),
                             QStringLiteral("Pages"), QStringLiteral("Bytes"),
                             QStringLiteral("Client"), QStringLiteral("User"),
                             QStringLiteral("Title"), QStringLiteral("Output / reason")}};
    while (q.next()) {
        const QString finished = QDateTime::fromString(q.value(0).toString(), Qt::ISODate)
                                     .toLocalTime()
                                     .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        const QString outputs = q.value(10).toString().replace(u'\n', QStringLiteral(", "));
        rows.append({finished, q.value(1).toString(), q.value(2).toString(), q.value(3).toString(),
                     q.value(4).toString(), q.value(5).toString(),
                     client(q.value(6).toString(), q.value(7).toString()), q.value(8).toString(),
                     q.value(9).toString(),
                     q.value(11).toString().isEmpty()
                         ? outputs
                         : outputs + QStringLiteral(" (") + q.value(11).toString() + u')'});
    }
    QList<qsizetype> widths(rows.first().size(), 0);
    for (const QStringList& row : rows)
        for (qsizetype c = 0; c + 1 < row.size(); ++c) // the last column runs on
            widths[c] = qMax(widths[c], qMin<qsizetype>(row[c].size(), 40));
    QString text;
    for (const QStringList& row : rows) {
        QStringList cells;
        for (qsizetype c = 0; c < row.size(); ++c)
            cells << (c + 1 < row.size() ? row[c].left(40).leftJustified(widths[c]) : row[c]);
        text += cells.join(QStringLiteral("  ")).trimmed() + u'\n';
    }
    if (rows.size() == 1)
        text += QStringLiteral("(no job yet in %1)\n").arg(QDir::toNativeSeparators(path()));
    return text;
}
