#include "dispatch/jobdispatcher.h"

#include "common/doevents.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "convert/cdibsection.h"
#include "convert/conversion.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "convert/jpegpages.h"
#include "convert/jpegwriter.h"
#include "convert/tiffprint.h"
#include "dispatch/jobfiles.h"
#include "platform/printertools.h"
#include "platform/safefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

JobDispatcher::JobDispatcher(Host host) : m_host(std::move(host)) {}

void JobDispatcher::save(const Job& job, const QByteArray& bytes) const
{
    SaveJobFile(job.psPath, bytes);
}

QString JobDispatcher::commandLine(const Job& job) const
{
    const auto output = job.choice.gsOutput();
    if (!output)
        return QString();
    const QString line = GhostscriptCommandLine(*output, m_host.gsPath, job.outputPath, job.psPath);
    return m_host.safer ? WithSafer(line) : line;
}

std::shared_ptr<const GsRun> JobDispatcher::convert(const Job& job,
                                                    std::function<void(const GsRun&)> done) const
{
    const QString line = commandLine(job);
    if (line.isEmpty())
        return {};
    // Ghostscript writes where it is told: a link planted under the output's name goes first.
    if (safefile::isLink(job.outputPath.toStdWString())) {
        m_host.log(QStringLiteral("%1 was a symbolic link; it is removed before Ghostscript "
                                  "writes there")
                       .arg(QDir::toNativeSeparators(job.outputPath)));
        QFile::remove(job.outputPath);
    }
    progress(job, 0, 0);
    return StartGhostscript(line, {job.baseName, job.outputPath, false, {}}, m_host.limits,
                            m_host.log, m_host.owner, std::move(done));
}

JobOutcome JobDispatcher::complete(const Job& job, const std::shared_ptr<const GsRun>& run) const
{
    JobOutcome outcome;
    ImageFile image;
    using Action = OutputChoice::Action;
    // True once the run has ended with a failure: its output is not the job.
    const auto failed = [&] { return run && run->ended && !run->failure.isEmpty(); };
    // A file Ghostscript closed before an error is not the job yet: the exit decides.
    const auto ended = [&] { return !run || run->ended; };
    // A good run's output gone since (its folder removed): no wait can end then.
    bool lost = false;
    const auto stop = [&] {
        lost = run && run->ended && run->failure.isEmpty() && !QFileInfo::exists(job.outputPath);
        return failed() || lost;
    };
    Steps step;
    switch (job.choice.action) {
    case Action::Print:
        outcome.pages = print(job, ended, stop);
        outcome.outputs << QStringLiteral("printer \"%1\"").arg(m_host.printer);
        break;
    case Action::Pdf:
        // A missing file counts as locked too: this waits for the whole PDF.
        waitUntil([&] { return (ended() && !IsFileLocked(job.outputPath)) || stop(); });
        if (stop())
            break;
        outcome.pages = PdfPageCount(job.outputPath);
        outcome.outputs << job.relative(job.outputPath);
        break;
    case Action::Image:
        waitUntil([&] { return (ended() && TiffLoad(image, job.outputPath)) || stop(); });
        if (stop())
            break;
        outcome.pages = image.FrameCount();
        if (job.choice.image == OutputChoice::ImageKind::Jpeg) {
            exportJpegPages(image, job, step);
            step([&] { WipeUntilDone(job.outputPath); });
            outcome.outputs = jpegPages(job, outcome.pages);
        } else {
            outcome.outputs << job.relative(job.outputPath);
        }
        break;
    default:
        break;
    }
    if (lost && !failed()) {
        // Its PostScript stays: the job can be sent again, or is queued again at the next start.
        m_host.log(QStringLiteral("Job %1 is lost: its output %2 was removed; its PostScript is "
                                  "kept as %3")
                       .arg(job.baseName, QDir::toNativeSeparators(job.outputPath),
                            QDir::toNativeSeparators(job.psPath)));
        return {JobOutcome::Status::Failed, QStringLiteral("its output was removed"), {}, -1};
    }
    if (failed()) {
        outcome.reason = run->failure;
        m_host.log(QStringLiteral("Job %1 failed: %2; %3; its PostScript is kept as %4")
                       .arg(job.baseName, run->failure, keepPartial(job, outcome),
                            QDir::toNativeSeparators(job.psPath)));
        return outcome;
    }
    step([&] { WipeUntilDone(job.psPath); });
    return outcome;
}

QStringList JobDispatcher::jpegPages(const Job& job, int frames) const
{
    const QString prefix = job.outputPath.left(job.outputPath.size() - 4);
    QStringList names;
    for (int page = 1; page <= qMax(frames, 1); ++page) {
        const QString name = frames <= 1 ? prefix + QStringLiteral(".jpg")
                                         : prefix + QStringLiteral("_00%1.jpg").arg(page);
        if (QFileInfo::exists(name))
            names << job.relative(name);
    }
    return names;
}

QString JobDispatcher::keepPartial(const Job& job, JobOutcome& outcome) const
{
    const QString out = job.outputPath;
    outcome.status = JobOutcome::Status::Failed;
    outcome.outputs.clear();
    const auto keptAs = [&](const QString& extension, int pages) {
        // Under a name that says what it is; a file or link in its place goes first.
        const QString to = out.left(out.size() - 4) + QStringLiteral("_partial") + extension;
        QFile::remove(to);
        outcome.pages = pages;
        if (!QFile::rename(out, to))
            return QStringLiteral("the %1 pages made before the error cannot be kept (%2)")
                .arg(pages)
                .arg(QDir::toNativeSeparators(to));
        outcome.status = JobOutcome::Status::Partial;
        outcome.outputs << job.relative(to);
        return QStringLiteral("the %1 pages made before the error are kept as %2")
            .arg(pages)
            .arg(QDir::toNativeSeparators(to));
    };
    ImageFile image;
    const int pages = job.choice.action == OutputChoice::Action::Pdf ? PdfPagesMade(out)
                      : image.LoadFile(out)                          ? image.FrameCount()
                                                                     : 0;
    const QString page = QString::number(pages + 1);
    if (job.choice.action == OutputChoice::Action::Print) {
        if (pages > 0) {
            const QString previous = CurrentPrinter::DeviceName();
            CurrentPrinter::SelectByName(m_host.printer);
            PrintTiffPages(out, m_host.log);
            CurrentPrinter::SelectByName(previous);
            outcome.status = JobOutcome::Status::Partial;
            outcome.pages = pages;
            outcome.outputs << QStringLiteral("printer \"%1\"").arg(m_host.printer);
        }
        WipeUntilDone(out);
        return QStringLiteral("it failed at page %1 (the pages before it were printed)").arg(page);
    }
    if (pages == 0) {
        QFile::remove(out); // nothing made: no stub stands for the job
        return QStringLiteral("no page was made");
    }
    if (job.choice.action == OutputChoice::Action::Pdf)
        return keptAs(QStringLiteral(".pdf"), pages);
    if (job.choice.image == OutputChoice::ImageKind::Jpeg) {
        Steps step;
        exportJpegPages(image, job, step);
        WipeUntilDone(out);
        outcome.status = JobOutcome::Status::Partial;
        outcome.pages = pages;
        outcome.outputs = jpegPages(job, pages);
        return QStringLiteral("it failed at page %1; the pages before it are kept as JPEG files")
            .arg(page);
    }
    return keptAs(QStringLiteral(".tif"), pages);
}

JobOutcome JobDispatcher::keepUnconverted(const Job& job, const QString& keptPath,
                                          const QString& unreadable) const
{
    JobOutcome outcome{
        JobOutcome::Status::KeptUnconverted, unreadable, {job.relative(keptPath)}, -1};
    const QString kept = QDir::toNativeSeparators(keptPath);
    const QString what =
        job.language == JobLanguage::Unknown
            ? QStringLiteral("Job %1 is in no language Quorvel knows").arg(job.baseName)
            : QStringLiteral("Job %1 is %2").arg(job.baseName, LanguageName(job.language));
    if (!unreadable.isEmpty()) {
        m_host.log(QStringLiteral("%1, which cannot be read (%2): kept unconverted as %3")
                       .arg(what, unreadable, kept));
        return outcome;
    }
    if (job.choice.action != OutputChoice::Action::Print) {
        m_host.log((job.language == JobLanguage::Unknown
                        ? QStringLiteral("%1: kept unconverted as %2")
                        : QStringLiteral("%1, which is not converted here: kept unconverted as %2"))
                       .arg(what, kept));
        return outcome;
    }
    if (!IsPrinterLanguage(job.language)) {
        // A printer would print its bytes as garbage.
        m_host.log(
            QStringLiteral("%1: not sent to the printer, kept unconverted as %2").arg(what, kept));
        return outcome;
    }
    std::wstring why;
    if (!PrinterTools::printRaw(m_host.printer.toStdWString(), keptPath.toStdWString(),
                                (job.title.isEmpty() ? job.baseName : job.title).toStdWString(),
                                &why)) {
        outcome.reason = QStringLiteral("the printer refused it: ") + QString::fromStdWString(why);
        m_host.log(QStringLiteral("%1: the printer \"%2\" refused it (%3); kept unconverted as %4")
                       .arg(what, m_host.printer, QString::fromStdWString(why), kept));
        return outcome;
    }
    m_host.log(
        QStringLiteral("%1: sent to the printer \"%2\" as a raw job").arg(what, m_host.printer));
    WipeUntilDone(keptPath);
    outcome.status = JobOutcome::Status::Done;
    outcome.outputs = QStringList{QStringLiteral("printer \"%1\" (raw)").arg(m_host.printer)};
    return outcome;
}

int JobDispatcher::print(const Job& job, const std::function<bool()>& ended,
                         const std::function<bool()>& failed) const
{
    const QString previous = CurrentPrinter::DeviceName();
    CurrentPrinter::SelectByName(m_host.printer);
    WaitForFileCreated(job.outputPath, failed);
    waitUntil([&] { return ended() || failed(); });
    const bool made = !failed(); // a failed run's pages are the failure's to print
    int pages = -1;
    if (made) {
        PrintTiffPages(job.outputPath, m_host.log);
        ImageFile image;
        if (image.LoadFile(job.outputPath))
            pages = image.FrameCount();
    }
    CurrentPrinter::SelectByName(previous);
    if (made)
        WipeUntilDone(job.outputPath);
    return pages;
}

void JobDispatcher::exportJpegPages(ImageFile& image, const Job& job, Steps& step) const
{
    const QString prefix = job.outputPath.left(job.outputPath.size() - 4); // without ".tif"
    const auto failed = [](const QString& file) {
        MsgBox(QStringLiteral("Failed to save the picture to the file: '") + file +
                   QStringLiteral("'"),
               MsgIcon::Exclamation);
    };
    int frames = 0;
    step([&] { frames = image.FrameCount(); });
    if (frames <= 1) {
        cDIBSection dib;
        dib.CreateFromPicture(image.Picture());
        if (!SaveJPG(dib, prefix + QStringLiteral(".jpg"), 95, job.exclusive))
            failed(prefix + QStringLiteral(".jpg"));
        progress(job, 1, 1);
        return;
    }
    // From the first page on, a failing step is passed over to the end of the dispatch.
    step.skipErrors = true;
    SaveJpegPages(image, frames, prefix, failed, job.exclusive,
                  [&](int page) { progress(job, page, frames); });
}

void JobDispatcher::progress(const Job& job, int done, int total) const
{
    if (m_host.progress)
        m_host.progress(job.baseName, done, total);
}
