// Saving a job as PostScript and having Ghostscript convert it.
#include "server/frmmain.h"

#include "common/doevents.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "platform/filelock.h"
#include "server/gscommandline.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <memory>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#endif

namespace
{
// What Ghostscript prints is kept for the log up to this size: its error
// report comes first, and a job can print without end.
constexpr qsizetype kKeptOutput = 32 * 1024;
constexpr int kLoggedLines = 60;

#ifdef Q_OS_WIN
const char kLineEnd[] = "\r\n";
#else
const char kLineEnd[] = "\n";
#endif

QString jobPath(const QString& fileName)
{
    return Paths::join(Paths::jobFolder(), fileName);
}
} // namespace

void frmMain::SavePSFile(const QByteArray& PSString)
{
    const QString Path = jobPath(m_FileName + QStringLiteral(".ps"));
    Text1->setText(Path);
    QFile f(Path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        RaiseError(rt::PathNotFound, QStringLiteral("Path not found: %1 (%2)")
                                         .arg(QDir::toNativeSeparators(Path), f.errorString()));
    // The job's bytes as received, then the line end of one print statement.
    if (f.write(PSString) != PSString.size() || f.write(kLineEnd) != qint64(sizeof kLineEnd - 1) ||
        !f.flush())
        RaiseError(rt::PermissionDenied,
                   QStringLiteral("Cannot write %1 (%2)").arg(Path, f.errorString()));
}

void frmMain::DoChangeOption()
{
    // A file type always brings the main choice back to "Save As Image".
    if (Option4->isChecked() || Option5->isChecked())
        Option2->setChecked(true);
    else
        Option8->setChecked(true);

    if (Option1->isChecked())
        TxtPath->setText(jobPath(m_FileName + QStringLiteral(".pdf")));
    else if (Option2->isChecked())
        TxtPath->setText(jobPath(m_FileName + QStringLiteral(".tif")));
    else if (Option3->isChecked())
        TxtPath->setText(jobPath(m_FileName + QStringLiteral(".tif")));
}

void frmMain::DoConvertPs2PdfImage()
{
    // Print wins over image, image over PDF.
    GsOutput output;
    if (Option3->isChecked())
        output = GsOutput::PrintTiff;
    else if (Option2->isChecked())
        output = Option7->isChecked() ? GsOutput::ImageColour : GsOutput::ImageGray;
    else if (Option1->isChecked())
        output = GsOutput::Pdf;
    else
        return;

    const QString commandLine =
        GhostscriptCommandLine(output, m_GsPath, TxtPath->text(), Text1->text());
    Text3->setText(commandLine);

    // The line shown is the line that runs.
    QStringList args = QProcess::splitCommand(commandLine);
    const QString program = args.takeFirst();

    // With -dSAFER PostScript may still use the temporary folder: each run
    // gets its own, removed when Ghostscript ends.
    auto tmp =
        std::make_shared<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/quorvel-gs-XXXXXX"));
    if (!tmp->isValid())
        RaiseError(
            rt::PathNotFound,
            QStringLiteral("No temporary folder for Ghostscript: %1").arg(tmp->errorString()));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QString tmpPath = QDir::toNativeSeparators(tmp->path());
    env.insert(QStringLiteral("TMPDIR"), tmpPath);
    env.insert(QStringLiteral("TEMP"), tmpPath);
    env.insert(QStringLiteral("TMP"), tmpPath);

    // Owned by the window: a run still going when the window closes is ended with it.
    auto* gs = new QProcess(this);
    gs->setProcessEnvironment(env);
    gs->setWorkingDirectory(tmp->path());
    gs->setProcessChannelMode(QProcess::MergedChannels); // errors come on stdout
    gs->setStandardInputFile(QProcess::nullDevice());
#ifdef Q_OS_WIN
    gs->setCreateProcessArgumentsModifier([](QProcess::CreateProcessArguments* a) {
        a->startupInfo->dwFlags |= STARTF_USESHOWWINDOW;
        a->startupInfo->wShowWindow = SW_SHOWMINIMIZED;
    });
#endif
    auto printed = std::make_shared<QByteArray>();
    connect(gs, &QProcess::readyReadStandardOutput, gs, [gs, printed] {
        const QByteArray chunk = gs->readAllStandardOutput();
        if (printed->size() < kKeptOutput)
            printed->append(chunk.left(kKeptOutput - printed->size()));
    });
    const QString target = TxtPath->text();
    // The log may be gone when a run is ended with the closing window.
    QPointer<LogBox> log = txtLog;
    connect(gs, &QProcess::finished, this,
            [log, gs, printed, tmp, target](int exitCode, QProcess::ExitStatus status) {
                printed->append(gs->readAllStandardOutput().left(kKeptOutput - printed->size()));
                if (log && (status != QProcess::NormalExit || exitCode != 0)) {
                    log->append(status == QProcess::NormalExit
                                    ? QStringLiteral("Ghostscript ended with exit code %1 for %2")
                                          .arg(exitCode)
                                          .arg(QDir::toNativeSeparators(target))
                                    : QStringLiteral("Ghostscript crashed while making %1")
                                          .arg(QDir::toNativeSeparators(target)));
                    int shown = 0;
                    for (const QByteArray& raw : printed->split('\n')) {
                        const QString line = QString::fromLocal8Bit(raw).trimmed();
                        if (line.isEmpty())
                            continue;
                        if (++shown > kLoggedLines) {
                            log->append(QStringLiteral("(...)"));
                            break;
                        }
                        log->append(line);
                    }
                }
                gs->deleteLater();
                tmp->remove();
                // The output is complete now: two quick events let a waiting
                // dispatch's two yields return and look again at once.
                QTimer::singleShot(0, qApp, [] { QTimer::singleShot(0, qApp, [] {}); });
            });

    gs->start(program, args);
    // Only the start is awaited; the conversion is watched through its output file.
    if (!gs->waitForStarted()) {
        const QString why = gs->errorString();
        gs->deleteLater();
        RaiseError(rt::FileNotFound, QStringLiteral("File not found: %1 (%2)").arg(program, why));
    }
}

void frmMain::DoWait4FilePS2PDFCreated(const QString& FileName)
{
    for (;;) {
        const QFileInfo fi(FileName);
        if (fi.exists() && fi.isFile() && !fi.isHidden())
            break;
        DoEvents();
        DoEvents();
    }
    DoEvents();
    DoEvents();
    // Ghostscript has only just created the file; give it time to keep writing.
    QThread::msleep(1000);
}

bool frmMain::IsFileTiffPDFLocked(const QString& FileName)
{
    // Checked first: a big file is not read while Ghostscript still writes it.
    if (heldOpenByAnotherProcess(FileName))
        return true;
    QFile f(FileName);
    const qint64 length = f.size();
    if (length <= 0)
        return true; // missing or empty
    if (!f.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
        return true;
    // The whole file must read; a bounded buffer spares memory on big TIFFs.
    QByteArray buffer(qMin<qint64>(length, 1 << 20), Qt::Uninitialized);
    qint64 total = 0;
    while (total < length) {
        const qint64 n = f.read(buffer.data(), qMin<qint64>(buffer.size(), length - total));
        if (n <= 0)
            return true;
        total += n;
    }
    return false;
}
