#pragma once

#include <QString>
#include <functional>

class QObject;

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

// Starts the command line without waiting for it; the conversion is watched
// through its output file. A run that fails puts its exit code and what
// Ghostscript printed into log. The run is ended with owner. Raises run-time
// error 53 when Ghostscript cannot start.
void StartGhostscript(const QString& commandLine, const QString& outputPath,
                      const std::function<void(const QString&)>& log, QObject* owner);

// Waits until the file is there, then one second more: Ghostscript has only
// just created it and goes on writing.
void WaitForFileCreated(const QString& fileName);

// True while the file cannot be had whole: missing, empty, held open by
// another process, or unreadable.
bool IsFileLocked(const QString& fileName);
