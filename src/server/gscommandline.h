#pragma once

#include <QString>

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
