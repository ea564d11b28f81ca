#include "convert/conversion.h"

#include "common/doevents.h"
#include "common/runtimeerror.h"
#include "platform/filelock.h"
#include "platform/ghostscript.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QtEndian>
#include <cctype>
#include <memory>
#include <utility>

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
// What Ghostscript prints is kept up to this size: its error report comes
// first, and a job can print without end.
constexpr qsizetype kKeptOutput = 32 * 1024;
constexpr qsizetype kErrorLineMax = 200;

QString withoutControls(const QString& text)
{
    QString clean;
    for (const QChar c : text)
        if (c.category() != QChar::Other_Control && c.category() != QChar::Other_Format)
            clean += c;
    return clean.trimmed();
}
} // namespace

QString GhostscriptErrorLine(const QByteArray& printed)
{
    const QList<QByteArray> lines = printed.split('\n');
    for (const char* mark : {"Error:", "Unrecoverable error", ""})
        for (const QByteArray& raw : lines) {
            const qsizetype at = raw.indexOf(mark);
            const QString line =
                at < 0 ? QString() : withoutControls(QString::fromUtf8(raw.mid(at)));
            if (!line.isEmpty())
                return line.left(kErrorLineMax);
        }
    return QString();
}

namespace
{
// "/Type /Page" entries, not "/Pages": a byte scan, a PDF can be large.
int countPages(const QByteArray& pdf)
{
    int pages = 0;
    for (qsizetype at = 0; (at = pdf.indexOf("/Type", at)) >= 0;) {
        at += 5;
        while (at < pdf.size() && (pdf[at] == ' ' || pdf[at] == '\r' || pdf[at] == '\n'))
            ++at;
        if (pdf.mid(at, 5) == "/Page" &&
            (at + 5 >= pdf.size() || !std::isalpha(uchar(pdf[at + 5]))))
            ++pages;
    }
    return pages;
}
} // namespace

int PdfPageCount(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? countPages(f.readAll()) : 0;
}

int PdfPagesMade(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray pdf = f.readAll();
    const int pages = countPages(pdf);
    if (pages != 1)
        return pages;
    // The stub's one content stream draws nothing: "q 0.1 0 0 0.1 0 0 cm Q".
    const qsizetype flate = pdf.indexOf("/FlateDecode");
    const qsizetype stream = flate < 0 ? -1 : pdf.indexOf("stream\n", flate);
    if (stream < 0)
        return pages;
    const qsizetype from = stream + 7, to = pdf.indexOf("endstream", from);
    QByteArray sized(4, '\0');
    qToBigEndian<quint32>(1 << 16, sized.data()); // qUncompress's size hint
    const QByteArray content = qUncompress(sized + pdf.mid(from, to - from));
    static const QRegularExpression drawsNothing(QStringLiteral("^[\\sqQ0-9.cm-]*$"));
    return drawsNothing.match(QString::fromLatin1(content)).hasMatch() ? 0 : pages;
}

namespace
{
// Why a run that has ended gave no usable output; empty when it did.
QString failureOf(const GsRun& run, const GsLimits& limits, bool timedOut, int exitCode,
                  QProcess::ExitStatus status, const QByteArray& printed)
{
    if (timedOut)
        return QStringLiteral("it ran past its time limit of %1 s and was stopped")
            .arg(limits.wallSeconds);
    if (status != QProcess::NormalExit && limits.cpuSeconds > 0 &&
        (exitCode == cpuLimitSignal() || exitCode == 9))
        return QStringLiteral("it ran past its CPU time limit of %1 s and was stopped")
            .arg(limits.cpuSeconds);
    if (printed.contains("VMerror"))
        return limits.memoryMB > 0 ? QStringLiteral("it needed more than its memory limit of %1 MB")
                                         .arg(limits.memoryMB)
                                   : QStringLiteral("it ran out of memory");
    if (status != QProcess::NormalExit)
        return QStringLiteral("Ghostscript crashed");
    if (exitCode != 0) {
        const QString line = GhostscriptErrorLine(printed);
        return line.isEmpty() ? QStringLiteral("Ghostscript ended with exit code %1").arg(exitCode)
                              : QStringLiteral("Ghostscript ended with exit code %1: \"%2\"")
                                    .arg(exitCode)
                                    .arg(line);
    }
    if (QFileInfo(run.outputPath).size() <= 0)
        return QStringLiteral("Ghostscript ended without making %1")
            .arg(QDir::toNativeSeparators(run.outputPath));
    return QString();
}
} // namespace

std::shared_ptr<const GsRun> StartGhostscript(const QString& commandLine, const GsRun& run,
                                              const GsLimits& limits,
                                              const std::function<void(const QString&)>& log,
                                              QObject* owner,
                                              std::function<void(const GsRun&)> done)
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
#else
    if (limits.cpuSeconds > 0 || limits.memoryMB > 0)
        gs->setChildProcessModifier([cpu = limits.cpuSeconds, memory = limits.memoryMB] {
            limitGhostscriptChild(cpu, memory);
        });
#endif
    auto state = std::make_shared<GsRun>(run);
    auto printed = std::make_shared<QByteArray>();
    QObject::connect(gs, &QProcess::readyReadStandardOutput, gs, [gs, printed] {
        const QByteArray chunk = gs->readAllStandardOutput();
        if (printed->size() < kKeptOutput)
            printed->append(chunk.left(kKeptOutput - printed->size()));
    });
    auto timedOut = std::make_shared<bool>(false);
    if (limits.wallSeconds > 0) {
        auto* wall = new QTimer(gs);
        wall->setSingleShot(true);
        QObject::connect(wall, &QTimer::timeout, gs, [gs, timedOut] {
            *timedOut = true;
            gs->kill();
        });
        wall->start(std::chrono::seconds(limits.wallSeconds));
    }
    // In the owner's context: a run ended with its owner logs nothing.
    QObject::connect(
        gs, &QProcess::finished, owner,
        [log, gs, printed, tmp, state, limits, timedOut, done](int exitCode,
                                                               QProcess::ExitStatus status) {
            printed->append(gs->readAllStandardOutput().left(kKeptOutput - printed->size()));
            state->failure = failureOf(*state, limits, *timedOut, exitCode, status, *printed);
            state->ended = true;
            if (!state->failure.isEmpty())
                log(QStringLiteral("Ghostscript failed on job %1: %2")
                        .arg(state->job, state->failure));
            gs->deleteLater();
            if (done)
                done(*state);
            tmp->remove(); // after done: a queue's next run starts first
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
    return state;
}

GhostscriptVersionProbe::~GhostscriptVersionProbe()
{
    if (m_process) {
        m_process->disconnect();
        m_process->kill();
        m_process->waitForFinished(1000);
        delete m_process;
    }
}

void GhostscriptVersionProbe::start(const QString& gsPath,
                                    std::function<void(const QString&)> known)
{
    m_known = std::move(known);
    m_process = new QProcess;
    QObject::connect(m_process, &QProcess::finished, [this] { answer(); });
    QObject::connect(m_process, &QProcess::errorOccurred, [this](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart)
            answer();
    });
    m_process->start(gsPath, {QStringLiteral("--version")});
}

void GhostscriptVersionProbe::wait()
{
    if (m_process && m_process->state() != QProcess::NotRunning)
        m_process->waitForFinished(10000);
    answer();
}

void GhostscriptVersionProbe::answer()
{
    if (!m_process)
        return; // answered already
    QProcess* gs = std::exchange(m_process, nullptr);
    const bool answered = gs->state() == QProcess::NotRunning &&
                          gs->exitStatus() == QProcess::NormalExit &&
                          gs->error() != QProcess::FailedToStart;
    const QString version =
        answered ? QString::fromLatin1(gs->readAllStandardOutput()).trimmed() : QString();
    gs->disconnect();
    if (gs->state() != QProcess::NotRunning) {
        gs->kill();
        gs->waitForFinished(1000);
    }
    gs->deleteLater();
    if (m_known)
        m_known(version);
}

bool GhostscriptNeedsSafer(const QString& version)
{
    const QStringList parts = version.split(u'.');
    bool ok = false;
    const int major = parts.value(0).toInt(&ok);
    if (!ok)
        return false; // unknown: the command line stays as it is
    return major < 9 || (major == 9 && parts.value(1).toInt() < 50);
}

QString WithSafer(const QString& commandLine)
{
    // After the quoted program, which always comes first.
    const qsizetype end = commandLine.indexOf(u'"', 1);
    return commandLine.left(end + 1) + QStringLiteral(" -dSAFER") + commandLine.mid(end + 1);
}

void WaitForFileCreated(const QString& fileName, const std::function<bool()>& givenUp)
{
    waitUntil([&] {
        const QFileInfo fi(fileName);
        return (fi.exists() && fi.isFile() && !fi.isHidden()) || (givenUp && givenUp());
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
