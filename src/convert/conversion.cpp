#include "convert/conversion.h"

#include "common/doevents.h"
#include "common/runtimeerror.h"
#include "platform/filelock.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <memory>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#endif

QString GhostscriptCommandLine(GsOutput output, const QString& gsPath, const QString& outputPath,
                               const QString& psPath)
{
    const QString Q = QStringLiteral("\"");
    QString cmd = Q + gsPath + Q;
    switch (output) {
    case GsOutput::PrintTiff:
        cmd += QStringLiteral(" -dNOPAUSE -dBATCH -r600 -sDEVICE=tifflzw -sPAPERSIZE=letter "
                              "-dCOLORSCREEN=0 -dDITHERPPI=204 -dQUIET");
        cmd += QStringLiteral(" -sOutputFile=") + Q + outputPath + Q + QStringLiteral(" ");
        break;
    case GsOutput::ImageGray:
    case GsOutput::ImageColour:
        cmd += QStringLiteral(" -dNOPAUSE -dBATCH -r600");
        cmd += output == GsOutput::ImageColour ? QStringLiteral(" -sDEVICE=tiff12nc")
                                               : QStringLiteral(" -sDEVICE=tifflzw");
        cmd += QStringLiteral(" -sPAPERSIZE=letter -dCOLORSCREEN=4");
        cmd += QStringLiteral(" -dDITHERPPI=204 -dQUIET");
        cmd += QStringLiteral(" -sOutputFile=") + Q + outputPath + Q + QStringLiteral(" ");
        break;
    case GsOutput::Pdf:
        cmd += QStringLiteral(" -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -dQUIET");
        cmd += QStringLiteral(" -sOutputFile=") + Q + outputPath + Q + QStringLiteral("  ");
        break;
    }
    return cmd + Q + psPath + Q;
}

namespace
{
// What Ghostscript prints is kept for the log up to this size: its error
// report comes first, and a job can print without end.
constexpr qsizetype kKeptOutput = 32 * 1024;
constexpr int kLoggedLines = 60;

void logFailure(const std::function<void(const QString&)>& log, const QString& target, int exitCode,
                QProcess::ExitStatus status, const QByteArray& printed)
{
    log(status == QProcess::NormalExit
            ? QStringLiteral("Ghostscript ended with exit code %1 for %2")
                  .arg(exitCode)
                  .arg(QDir::toNativeSeparators(target))
            : QStringLiteral("Ghostscript crashed while making %1")
                  .arg(QDir::toNativeSeparators(target)));
    int shown = 0;
    for (const QByteArray& raw : printed.split('\n')) {
        const QString line = QString::fromLocal8Bit(raw).trimmed();
        if (line.isEmpty())
            continue;
        if (++shown > kLoggedLines) {
            log(QStringLiteral("(...)"));
            break;
        }
        log(line);
    }
}
} // namespace

void StartGhostscript(const QString& commandLine, const QString& outputPath,
                      const std::function<void(const QString&)>& log, QObject* owner)
{
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

    auto* gs = new QProcess(owner);
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
    QObject::connect(gs, &QProcess::readyReadStandardOutput, gs, [gs, printed] {
        const QByteArray chunk = gs->readAllStandardOutput();
        if (printed->size() < kKeptOutput)
            printed->append(chunk.left(kKeptOutput - printed->size()));
    });
    // In the owner's context: a run ended with its owner logs nothing.
    QObject::connect(
        gs, &QProcess::finished, owner,
        [log, gs, printed, tmp, outputPath](int exitCode, QProcess::ExitStatus status) {
            printed->append(gs->readAllStandardOutput().left(kKeptOutput - printed->size()));
            if (status != QProcess::NormalExit || exitCode != 0)
                logFailure(log, outputPath, exitCode, status, *printed);
            gs->deleteLater();
            tmp->remove();
            // The output is complete now: two quick events let a
            // waiting dispatch's two yields return and look again at once.
            QTimer::singleShot(0, qApp, [] { QTimer::singleShot(0, qApp, [] {}); });
        });

    gs->start(program, args);
    if (!gs->waitForStarted()) {
        const QString why = gs->errorString();
        gs->deleteLater();
        RaiseError(rt::FileNotFound, QStringLiteral("File not found: %1 (%2)").arg(program, why));
    }
}

void WaitForFileCreated(const QString& fileName)
{
    waitUntil([&] {
        const QFileInfo fi(fileName);
        return fi.exists() && fi.isFile() && !fi.isHidden();
    });
    DoEvents();
    DoEvents();
    QThread::msleep(1000);
}

bool IsFileLocked(const QString& fileName)
{
    // Checked first: a big file is not read while Ghostscript still writes it.
    if (heldOpenByAnotherProcess(fileName.toStdWString()))
        return true;
    QFile f(fileName);
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
