#pragma once

#include <QString>
#include <functional>
#include <memory>

class QObject;
class QProcess;

// What Ghostscript makes of a job.
enum class GsOutput {
    PrintTiff,   // black and white TIFF for the printer
    ImageGray,   // black and white TIFF kept or exported
    ImageColour, // 12-bit RGB TIFF
    Pdf,
};

// The command line that converts psPath into outputPath: every path quoted,
// one blank before the input for TIFF, two for PDF (kept so).
QString GhostscriptCommandLine(GsOutput output, const QString& gsPath, const QString& outputPath,
                               const QString& psPath);

// The limits a Ghostscript run works under; 0 is no limit. The defaults let
// a 200-page 600 dpi colour job convert on a slow machine.
struct GsLimits {
    int cpuSeconds = 600;
    int memoryMB = 2048;
    int wallSeconds = 1200;
};

// One Ghostscript run, as far as it has gone.
struct GsRun {
    QString job; // the job's name, for the log
    QString outputPath;
    bool ended = false;
    QString failure; // once ended: why the output is missing or cannot count, else empty
};

// Ghostscript's first error line in what it printed, without control bytes:
// the line the log quotes instead of its stack dump.
QString GhostscriptErrorLine(const QByteArray& printed);

// The pages of a PDF that pdfwrite left, 0 for its blank stub of a job that
// made no page (or for a file that is no PDF).
int PdfPagesMade(const QString& path);
// The pages of a PDF that pdfwrite wrote.
int PdfPageCount(const QString& path);

// Starts the command line without waiting for it, under limits. A run that
// fails (a non-zero exit included) logs one line with the job's name and
// why: the limit it hit, or its exit code and first error line. done (optional) is called
// once it has ended. The run is ended with owner. Raises run-time error 53
// when Ghostscript cannot start.
std::shared_ptr<const GsRun> StartGhostscript(const QString& commandLine, const GsRun& run,
                                              const GsLimits& limits,
                                              const std::function<void(const QString&)>& log,
                                              QObject* owner,
                                              std::function<void(const GsRun&)> done = {});

// Asks Ghostscript its version ("10.00.0") without holding up start-up:
// known() is called once with the answer (empty when Ghostscript does not
// answer within 10 s), as soon as it comes or at wait(), whichever is first.
// A conversion calls wait() first, so it always runs with the answer.
class GhostscriptVersionProbe
{
public:
    GhostscriptVersionProbe() = default;
    GhostscriptVersionProbe(const GhostscriptVersionProbe&) = delete;
    GhostscriptVersionProbe& operator=(const GhostscriptVersionProbe&) = delete;
    ~GhostscriptVersionProbe();

    void start(const QString& gsPath, std::function<void(const QString&)> known);
    void wait();

private:
    void answer();

    QProcess* m_process = nullptr;
    std::function<void(const QString&)> m_known;
};
// Older than 9.50 a run is not safe by default: its command line needs -dSAFER.
bool GhostscriptNeedsSafer(const QString& version);
// The command line with -dSAFER after the program.
QString WithSafer(const QString& commandLine);

// Waits until the file is there, then one second more: Ghostscript has only
// just created it and goes on writing.
// givenUp (optional) ends the wait early: the run that makes the file has ended.
void WaitForFileCreated(const QString& fileName, const std::function<bool()>& givenUp = {});

// True while the file cannot be had whole: missing, empty, held open by
// another process, or unreadable.
bool IsFileLocked(const QString& fileName);
