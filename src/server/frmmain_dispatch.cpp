// The window's side of a dispatch: it names the job, reads the Output box
// once, shows the job's paths, and hands the job to JobDispatcher.
#include "server/frmmain.h"

#include "common/paths.h"
#include "convert/conversion.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "convert/pageimages.h"
#include "convert/tiffprint.h"
#include "dispatch/aftersave.h"
#include "dispatch/jobdispatcher.h"
#include "dispatch/jobfiles.h"
#include "dispatch/jobnaming.h"
#include "dispatch/jobqueue.h"
#include "history/jobhistory.h"
#include "jobs/frmjobs.h"
#include "language/joblanguage.h"

#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QHostInfo>
#include <QLineEdit>
#include <QPointer>
#include <QRadioButton>

void frmMain::Command1_Click()
{
    if (m_QueueAll) {
        // The queue names, saves and converts the job in its turn.
        if (m_JobBuffer.holdsMoreThanBlanks())
            m_JobQueue->add(m_JobBuffer.view(), QStringLiteral("Save And Print"));
        m_JobBuffer.clear();
        return;
    }
    const QString previous = m_FileName;
    m_FileName = jobBaseName();
    // Kept as designed; the second job's files take the first one's place.
    if (m_Dispatched && m_FileName == previous)
        txtLog->append(QStringLiteral("two jobs in the same second share the name %1; start "
                                      "with --job-queue to keep both")
                           .arg(m_FileName));
    m_Dispatched = true;
    DoChangeOption();
    Job job = Job::named(m_FileName, outputChoice(), Paths::jobFolder());
    job.client = std::exchange(m_ClosingClient, QString());
    if (job.client.isEmpty())
        job.client = QStringLiteral("Save And Print");
    job.clientName = m_ClientNames.value(job.client);
    job.received = QDateTime::currentDateTime();
    job.readFrom(m_JobBuffer.view());
    const JobNaming naming = JobNaming::fromSettings();
    if (job.choice.action == OutputChoice::Action::Cloud) {
        sendToCloud(job);
        jobEnded(job,
                 {JobOutcome::Status::Done, QString(), {QStringLiteral("the cloud printer")}, -1});
        return;
    }
    // Images, raster and XPS go on as the PDF made of them.
    QString unreadable;
    const QByteArray pdf = NeedsPdfFirst(job.language)
                               ? PagesAsPdf(m_JobBuffer.view(), job.language, &unreadable)
                               : QByteArray();
    if (!IsConverted(job.language) || !unreadable.isEmpty()) {
        // Never a fake document: the bytes are kept as they came.
        const QString kept = naming.keptPath(job, KeptExtension(job.language));
        const JobDispatcher road = dispatcher();
        SaveJobFile(kept, m_JobBuffer.view(), false);
        m_JobBuffer.clear();
        jobEnded(job, road.keepUnconverted(job, kept, unreadable));
        return;
    }
    QString why;
    if (!naming.name(job, &why))
        txtLog->append(QStringLiteral("No file can be made under the name template \"%1\" (%2): "
                                      "the job is kept as %3")
                           .arg(naming.pattern(), why, QDir::toNativeSeparators(job.outputPath)));
    if (naming.applies(job))
        TxtPath->setText(job.outputPath);
    SavePSFile(job, pdf.isEmpty() ? QByteArray(m_JobBuffer.view()) : pdf);
    const auto run = DoConvertPs2PdfImage(job);
    m_JobBuffer.clear();
    // Data that arrive from here on make the next job.
    jobEnded(job, dispatcher().complete(job, run));
}

void frmMain::lookUpClient(const QString& address)
{
    if (address.isEmpty() || m_ClientNames.contains(address))
        return;
    m_ClientNames.insert(address, QString()); // asked once
    QHostInfo::lookupHost(address, this, [this, address](const QHostInfo& host) {
        if (host.error() == QHostInfo::NoError && host.hostName() != address)
            m_ClientNames.insert(address, host.hostName());
    });
}

void frmMain::jobEnded(const Job& job, const JobOutcome& outcome)
{
    using Status = JobOutcome::Status;
    JobRecord r;
    r.name = job.baseName;
    if (!QHostAddress(job.client).isNull()) {
        r.clientAddress = job.client;
        r.clientName = m_ClientNames.value(job.client);
    } else {
        r.clientName = job.client; // "Save And Print", the cloud share, the spool
    }
    r.language = LanguageName(job.language);
    r.title = job.title;
    r.user = job.user;
    r.pages = outcome.pages;
    r.bytes = job.bytes;
    r.received = job.received;
    r.finished = QDateTime::currentDateTime();
    r.outputs = outcome.outputs;
    r.status = outcome.status == Status::Done              ? QStringLiteral("done")
               : outcome.status == Status::Partial         ? QStringLiteral("partial")
               : outcome.status == Status::KeptUnconverted ? QStringLiteral("kept unconverted")
                                                           : QStringLiteral("failed");
    r.reason = outcome.reason;
    txtLog->append(r.logLine());
    if (outcome.status != Status::Failed) {
        QStringList files;
        for (const QString& output : outcome.outputs)
            if (const QString path = QDir(job.folder).filePath(output);
                !job.folder.isEmpty() && QFileInfo(path).isFile())
                files << path;
        m_AfterSave->saved(files);
    }
    QString why;
    if (!JobHistory::add(r, &why))
        txtLog->append(QStringLiteral("The job history %1 cannot be written: %2")
                           .arg(QDir::toNativeSeparators(JobHistory::path()), why));
    if (m_FrmJobs) // its rows live
        m_FrmJobs->reload();
    showProgress(job.baseName, 0, -1);
}

OutputChoice frmMain::outputChoice() const
{
    using Action = OutputChoice::Action;
    OutputChoice choice;
    // Print wins over image, image over PDF.
    choice.action = Option9->isChecked()   ? Action::Cloud
                    : Option3->isChecked() ? Action::Print
                    : Option2->isChecked() ? Action::Image
                    : Option1->isChecked() ? Action::Pdf
                                           : Action::None;
    choice.image = Option4->isChecked()   ? OutputChoice::ImageKind::Tiff
                   : Option5->isChecked() ? OutputChoice::ImageKind::Jpeg
                                          : OutputChoice::ImageKind::Other;
    choice.colour = Option7->isChecked();
    return choice;
}

JobDispatcher frmMain::dispatcher()
{
    // The log box may be gone when a Ghostscript run ends with the closing window.
    QPointer<LogBox> log = txtLog;
    m_GsVersion.wait();
    return JobDispatcher(
        {m_GsPath, List2Text(),
         [log](const QString& line) {
             if (log)
                 log->append(line);
         },
         this, m_GsLimits, m_GsNeedsSafer,
         [self = QPointer<frmMain>(this)](const QString& job, int done, int total) {
             if (self)
                 self->showProgress(job, done, total);
         }});
}

void frmMain::DoChangeOption()
{
    // A file type always brings the main choice back to "Save As Image".
    if (Option4->isChecked() || Option5->isChecked())
        Option2->setChecked(true);
    else
        Option8->setChecked(true);
    const Job shown = Job::named(m_FileName, outputChoice(), Paths::jobFolder());
    if (!shown.outputPath.isEmpty())
        TxtPath->setText(shown.outputPath);
}

void frmMain::SavePSFile(const Job& job, const QByteArray& PSString)
{
    Text1->setText(job.psPath);
    dispatcher().save(job, PSString);
}

std::shared_ptr<const GsRun> frmMain::DoConvertPs2PdfImage(const Job& job)
{
    const JobDispatcher road = dispatcher();
    const QString commandLine = road.commandLine(job);
    if (commandLine.isEmpty())
        return {};
    Text3->setText(commandLine);
    return road.convert(job);
}

void frmMain::DoWait4FilePS2PDFCreated(const QString& FileName)
{
    WaitForFileCreated(FileName);
}

bool frmMain::IsFileTiffPDFLocked(const QString& FileName)
{
    return IsFileLocked(FileName);
}

void frmMain::PrintTiff(const QString& TiffFilePath)
{
    PrintTiffPages(TiffFilePath, [this](const QString& line) { txtLog->append(line); });
}

bool frmMain::TiffLoadFile(const QString& FileName)
{
    ImageFile image;
    return TiffLoad(image, FileName);
}

void frmMain::SelectPrinterByName(const QString& name)
{
    CurrentPrinter::SelectByName(name);
}
