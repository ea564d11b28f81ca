#include "dispatch/jobqueue.h"

#include "common/paths.h"
#include "common/runtimeerror.h"
#include "convert/pageimages.h"
#include "dispatch/jobfiles.h"
#include "dispatch/jobnaming.h"
#include "platform/safefile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTimer>

namespace
{
constexpr int kRetryMs = 1000; // while the job folder cannot be written

// Language, title and user of a spooled job.
void readSpooled(Job& job, const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() == 0)
        return job.readFrom({});
    // Mapped, not read: a job can be as large as memory.
    if (const uchar* data = f.map(0, f.size()))
        job.readFrom(QByteArrayView(data, f.size()));
    else
        job.readFrom(f.read(1 << 20));
    job.bytes = f.size();
}
} // namespace

JobQueue::JobQueue(const QString& jobFolder, Host host, int workers, QObject* parent)
    : QObject(parent), m_folder(jobFolder), m_host(std::move(host)), m_workers(qMax(1, workers))
{
}

JobQueue::Incoming::~Incoming()
{
    drop();
}

void JobQueue::Incoming::drop()
{
    if (m_path.isEmpty())
        return;
    m_file.close();
    QFile::remove(std::exchange(m_path, QString()));
}

bool JobQueue::Incoming::write(QByteArrayView bytes)
{
    if (m_path.isEmpty())
        return false;
    std::string why;
    if (m_file.write({bytes.data(), std::size_t(bytes.size())}, &why)) {
        m_size += bytes.size();
        return true;
    }
    m_why = QString::fromLocal8Bit(why);
    drop();
    return false;
}

std::unique_ptr<JobQueue::Incoming> JobQueue::receive()
{
    if (!EnsureFolder(spoolFolder())) {
        stall(QStringLiteral("the folder cannot be made"));
        return nullptr;
    }
    std::unique_ptr<Incoming> job(new Incoming);
    for (;;) {
        const QString path = spoolName(QStringLiteral(".part"));
        std::string why;
        const auto result = job->m_file.open(path.toStdWString(), safefile::Mode::Exclusive, &why);
        if (result == safefile::Result::Written) {
            job->m_path = path;
            return job;
        }
        if (result == safefile::Result::Failed) {
            stall(QString::fromLocal8Bit(why));
            return nullptr;
        }
    }
}

bool JobQueue::finish(std::unique_ptr<Incoming> job, const QString& from)
{
    std::string why;
    if (job->m_path.isEmpty() || !job->m_file.sync(&why) || !job->m_file.close(&why)) {
        const QString reason = job->m_why.isEmpty() ? QString::fromLocal8Bit(why) : job->m_why;
        m_host.log(QStringLiteral("The job from %1 is refused: its spool file could not be "
                                  "written (%2); its %3 bytes are dropped")
                       .arg(from, reason)
                       .arg(job->m_size));
        return false;
    }
    const QString path = enqueueName(job->m_path, from);
    job->m_path.clear();
    if (path.isEmpty())
        return false;
    m_jobs.push_back({path, QByteArray(), from, QDateTime::currentDateTime()});
    schedule();
    return true;
}

QString JobQueue::enqueueName(const QString& partPath, const QString& from)
{
    // The job exists from here: under its name in the spool, in order of close.
    for (int tries = 0; tries < 100; ++tries) {
        const QString name = spoolName(QStringLiteral(".ps"));
        if (QFile::rename(partPath, name))
            return name;
        if (!QFileInfo::exists(partPath)) {
            m_host.log(QStringLiteral("The job from %1 is lost: its spool file %2 was removed "
                                      "before it closed")
                           .arg(from, QDir::toNativeSeparators(partPath)));
            return QString();
        }
    }
    m_host.log(QStringLiteral("The job from %1 keeps its partial name %2, as the spool "
                              "refuses to rename it: it is queued, but a restart before it "
                              "is converted would take it for a partial job and remove it")
                   .arg(from, QDir::toNativeSeparators(partPath)));
    return partPath;
}

bool JobQueue::adopt(const QString& partPath, Sender sender)
{
    const QString path = enqueueName(partPath, sender.from);
    if (path.isEmpty()) {
        if (sender.verdict)
            sender.verdict(
                {JobOutcome::Status::Failed, QStringLiteral("its spool file was removed"), {}, -1});
        return false;
    }
    Entry entry{path, QByteArray(), sender.from, QDateTime::currentDateTime()};
    entry.title = sender.title;
    entry.user = sender.user;
    if (sender.verdict) {
        entry.ticket = ++m_tickets;
        m_verdicts.emplace(entry.ticket, std::move(sender.verdict));
    }
    m_jobs.push_back(std::move(entry));
    schedule();
    return true;
}

QString JobQueue::spoolName(const QString& suffix)
{
    const QString stamp =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmsszzz-"));
    return Paths::join(spoolFolder(),
                       stamp + QString::number(++m_sequence).rightJustified(8, u'0') + suffix);
}

QString JobQueue::spoolFolder() const
{
    return Paths::join(m_folder, QStringLiteral("spool"));
}

QString JobQueue::failedFolder() const
{
    return Paths::join(m_folder, QStringLiteral("failed"));
}

bool JobQueue::spool(Entry& entry, QByteArrayView bytes)
{
    QString why = QStringLiteral("the folder cannot be made");
    if (EnsureFolder(spoolFolder())) {
        for (;;) {
            const QString path = spoolName(QStringLiteral(".ps"));
            const auto result = WriteNoFollow(path, {bytes}, safefile::Mode::Exclusive, &why);
            if (result == safefile::Result::Written) {
                entry.spoolPath = path;
                entry.bytes.clear();
                return true;
            }
            if (result == safefile::Result::Failed) {
                QFile::remove(path); // no partial job stays behind
                break;
            }
        }
    }
    stall(why);
    return false;
}

void JobQueue::stall(const QString& why)
{
    if (m_stalled)
        return;
    m_stalled = true;
    m_host.log(QStringLiteral("The job folder %1 cannot be written (%2): jobs wait in memory "
                              "until it can")
                   .arg(QDir::toNativeSeparators(m_folder), why));
}

bool JobQueue::add(QByteArrayView bytes, const QString& from)
{
    Entry entry{QString(), QByteArray(), from, QDateTime::currentDateTime()};
    const bool spooled = spool(entry, bytes);
    if (!spooled)
        entry.bytes = bytes.toByteArray();
    m_jobs.push_back(std::move(entry));
    schedule();
    return spooled;
}

int JobQueue::resume()
{
    QDir().mkpath(spoolFolder());
    const QDir spoolDir(spoolFolder());
    for (const QString& name : spoolDir.entryList({QStringLiteral("*.part")}, QDir::Files)) {
        const QString path = spoolDir.filePath(name);
        m_host.log(QStringLiteral("%1 is removed: an earlier run ended while receiving it, so "
                                  "its %2 bytes are not a whole job")
                       .arg(QDir::toNativeSeparators(path))
                       .arg(QFileInfo(path).size()));
        QFile::remove(path);
    }
    const QStringList names = spoolDir.entryList({QStringLiteral("*.ps")}, QDir::Files, QDir::Name);
    for (const QString& name : names) {
        const QString path = spoolDir.filePath(name);
        m_host.log(QStringLiteral("%1, spooled whole by an earlier run, is queued")
                       .arg(QDir::toNativeSeparators(path)));
        m_jobs.push_back(
            {path, QByteArray(), QStringLiteral("spool"), QFileInfo(path).lastModified()});
    }
    if (!names.isEmpty())
        m_host.log(
            QStringLiteral("%1 spooled jobs from an earlier run are queued").arg(names.size()));
    schedule();
    return int(names.size());
}

void JobQueue::schedule(int ms)
{
    if (m_scheduled)
        return;
    m_scheduled = true;
    QTimer::singleShot(ms, this, [this] {
        m_scheduled = false;
        RunGuarded([this] { next(); });
    });
}

void JobQueue::next()
{
    // Only ever one pass: a job's wait below runs events, and this may be called from them.
    if (m_inNext)
        return;
    m_inNext = true;
    const auto passEnds = qScopeGuard([this] { m_inNext = false; });
    startFree(); // a free worker waits for no other job's end
    while (!m_converted.empty()) {
        auto [job, run] = std::move(m_converted.front());
        m_converted.pop_front();
        ended(job, run);
    }
    startFree();
    if (!m_converted.empty())
        schedule(); // ended while the pass waited
}

void JobQueue::startFree()
{
    if (m_starting)
        return;
    m_starting = true;
    const auto startsEnd = qScopeGuard([this] { m_starting = false; });
    while (m_converting < m_workers && !m_jobs.empty() && startNext()) {
    }
}

bool JobQueue::startNext()
{
    Entry& entry = m_jobs.front();
    if (entry.spoolPath.isEmpty() && !spool(entry, entry.bytes)) {
        schedule(kRetryMs);
        return false;
    }
    const JobDispatcher road = m_host.dispatcher();
    const OutputChoice choice = m_host.choice();
    Job about = Job::named(jobBaseName(), choice, m_folder);
    about.client = entry.from;
    if (m_host.clientName)
        about.clientName = m_host.clientName(entry.from);
    about.exclusive = true;
    about.received = entry.received;
    readSpooled(about, entry.spoolPath);
    if (!entry.title.isEmpty())
        about.title = entry.title;
    if (!entry.user.isEmpty())
        about.user = entry.user;
    about.ticket = entry.ticket;
    QString unreadable;
    if (choice.action != OutputChoice::Action::Cloud && NeedsPdfFirst(about.language))
        unreadable = spoolAsPdf(entry, about.language);
    if (choice.action != OutputChoice::Action::Cloud &&
        (!IsConverted(about.language) || !unreadable.isEmpty())) {
        if (keepUnconverted(entry, about, unreadable))
            return true;
        schedule(kRetryMs);
        return false;
    }
    Job job = about;
    const JobNaming naming = JobNaming::fromSettings();
    for (;;) {
        const Job named = Job::named(FreeJobName(m_folder, jobBaseName()), choice, m_folder);
        job.baseName = named.baseName;
        job.outputPath = named.outputPath;
        job.psPath = entry.spoolPath;
        if (job.outputPath.isEmpty())
            break;
        // The output's name is taken now, as a new file: never through a link, never twice.
        QString why;
        const auto result =
            naming.applies(job)
                ? (naming.name(job, &why) ? safefile::Result::Written : safefile::Result::Failed)
                : WriteNoFollow(job.outputPath, {}, safefile::Mode::Exclusive, &why);
        if (result == safefile::Result::Written)
            break;
        if (result == safefile::Result::Failed) {
            EnsureFolder(m_folder);
            stall(why);
            schedule(kRetryMs);
            return false;
        }
    }
    if (m_stalled) {
        m_stalled = false;
        m_host.log(QStringLiteral("The job folder can be written again; %1 waiting jobs go on")
                       .arg(m_jobs.size()));
    }
    m_jobs.pop_front();
    if (choice.action == OutputChoice::Action::Cloud) {
        QFile f(job.psPath);
        if (!f.open(QIODevice::ReadOnly)) {
            fail(job, f.errorString());
            return true;
        }
        m_host.upload(job, f.readAll());
        WipeFile(job.psPath);
        done(job, {JobOutcome::Status::Done, QString(), {QStringLiteral("the cloud printer")}, -1});
        return true;
    }
    const QString line = road.commandLine(job);
    m_host.shown(job, line);
    if (line.isEmpty()) {
        WipeFile(job.psPath);
        done(job, {});
        return true;
    }
    try {
        ++m_converting;
        road.convert(job, [this, job](const GsRun& run) {
            // The worker is free now and the next job starts at once, so no core waits for
            // a pass of the event loop; this job ends from that pass, not from inside
            // Ghostscript's finished signal.
            --m_converting;
            m_converted.emplace_back(job, run);
            if (!m_inNext) // never inside another job's completion
                RunGuarded([this] { startFree(); });
            schedule();
        });
    } catch (const RuntimeError& e) {
        --m_converting;
        fail(job, e.description());
    }
    return true;
}

QString JobQueue::spoolAsPdf(Entry& entry, JobLanguage language)
{
    QFile f(entry.spoolPath);
    if (!f.open(QIODevice::ReadOnly))
        return f.errorString();
    QString why;
    const QByteArray pdf = PagesAsPdf(f.readAll(), language, &why);
    if (pdf.isEmpty())
        return why;
    // The PDF takes the job's place in the spool, in its turn.
    const QString path = entry.spoolPath.chopped(3) + QStringLiteral("-pdf.ps");
    if (WriteNoFollow(path, {pdf}, safefile::Mode::Exclusive, &why) != safefile::Result::Written)
        return QStringLiteral("its PDF cannot be spooled (%1)").arg(why);
    WipeFile(entry.spoolPath);
    entry.spoolPath = path;
    return QString();
}

bool JobQueue::keepUnconverted(const Entry& entry, Job job, const QString& unreadable)
{
    // The spooled bytes are the job as it came: moved, never rewritten.
    const QString kept =
        MoveJobFile(entry.spoolPath, m_folder, JobNaming::fromSettings().keptName(job),
                    KeptExtension(job.language));
    if (kept.isEmpty()) {
        stall(QStringLiteral("%1 cannot be moved there")
                  .arg(QDir::toNativeSeparators(entry.spoolPath)));
        return false;
    }
    m_stalled = false;
    job.baseName = QFileInfo(kept).completeBaseName();
    job.psPath.clear();
    job.outputPath.clear();
    m_jobs.pop_front();
    m_host.shown(job, QString());
    JobOutcome outcome{JobOutcome::Status::KeptUnconverted, QString(), {job.relative(kept)}, -1};
    RunGuarded([&] { outcome = m_host.dispatcher().keepUnconverted(job, kept, unreadable); });
    done(job, outcome);
    return true;
}

void JobQueue::ended(const Job& job, const GsRun& run)
{
    JobOutcome outcome;
    if (!run.failure.isEmpty()) {
        QString left;
        RunGuarded([&] { left = m_host.dispatcher().keepPartial(job, outcome); });
        return fail(job, run.failure + QStringLiteral("; ") + left, outcome);
    }
    // The run goes along: an output removed since it ended must not be waited for.
    RunGuarded(
        [&] { outcome = m_host.dispatcher().complete(job, std::make_shared<const GsRun>(run)); });
    done(job, outcome);
}

void JobQueue::fail(const Job& job, const QString& why, JobOutcome outcome)
{
    if (!job.outputPath.isEmpty() && QFileInfo(job.outputPath).size() == 0)
        QFile::remove(job.outputPath); // the name taken for this job, never written
    QString kept = QStringLiteral("(it could not be kept: the folder cannot be made)");
    if (EnsureFolder(failedFolder())) {
        const QString target = Paths::join(
            failedFolder(), FreeJobName(failedFolder(), job.baseName) + QStringLiteral(".ps"));
        kept = QFile::rename(job.psPath, target)
                   ? QStringLiteral("its PostScript is kept as %1")
                         .arg(QDir::toNativeSeparators(target))
                   : QStringLiteral("its PostScript stays in the spool as %1")
                         .arg(QDir::toNativeSeparators(job.psPath));
    }
    m_host.log(QStringLiteral("Job %1 failed: %2; %3").arg(job.baseName, why, kept));
    if (outcome.reason.isEmpty())
        outcome.reason = why.section(QStringLiteral("; "), 0, 0);
    done(job, outcome);
}

void JobQueue::done(const Job& job, const JobOutcome& outcome)
{
    if (m_host.ended)
        m_host.ended(job, outcome);
    if (const auto waiting = m_verdicts.find(job.ticket); waiting != m_verdicts.end()) {
        const auto verdict = std::move(waiting->second);
        m_verdicts.erase(waiting);
        verdict(outcome);
    }
    schedule();
}
