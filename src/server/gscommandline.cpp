#include "server/gscommandline.h"

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
