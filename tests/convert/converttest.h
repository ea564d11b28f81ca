#pragma once

// Shared by the convert tests: real Ghostscript pages and small checks.

#include "common/runtimeerror.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRgb>
#include <QString>

// Pages as the program has Ghostscript make them: a PostScript job of N
// Letter pages rendered by the real gs at 600 dpi, with the options of the
// print (tifflzw) and colour image (tiff12nc) command lines. Returns the TIFF
// path, or "" (with the reason in *error) when gs failed.
inline QString renderPages(const QString& folder, int pages, const QString& device, QString* error)
{
    const QString ps = folder + QStringLiteral("/job%1.ps").arg(pages);
    QFile f(ps);
    if (!f.open(QIODevice::WriteOnly) || f.write(makePsJob(pages)) <= 0)
        return {};
    f.close();
    const QString out = folder + QStringLiteral("/job%1-%2.tif").arg(pages).arg(device);
    // A private temporary folder per run, as the program gives it.
    QDir(folder).mkpath(QStringLiteral("gstmp"));
    QProcess gs;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), folder + QStringLiteral("/gstmp"));
    gs.setProcessEnvironment(env);
    const QString screen = device == QLatin1String("tiff12nc") ? "4" : "0";
    gs.start(QStringLiteral("gs"), QStringLiteral("-dNOPAUSE -dBATCH -r600 -sDEVICE=%1 "
                                                  "-sPAPERSIZE=letter -dCOLORSCREEN=%2 "
                                                  "-dDITHERPPI=204 -dQUIET")
                                           .arg(device, screen)
                                           .split(u' ') +
                                       QStringList{QStringLiteral("-sOutputFile=") + out, ps});
    if (!gs.waitForFinished(120000) || gs.exitCode() != 0 || !QFile::exists(out)) {
        *error = QString::fromLocal8Bit(gs.readAllStandardOutput() + gs.readAllStandardError());
        return {};
    }
    return out;
}

// The run-time error number that body raises, or 0.
inline int raisedErrorOf(auto&& body)
{
    try {
        body();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

inline bool near(QRgb a, QRgb b, int tolerance)
{
    return qAbs(qRed(a) - qRed(b)) <= tolerance && qAbs(qGreen(a) - qGreen(b)) <= tolerance &&
           qAbs(qBlue(a) - qBlue(b)) <= tolerance;
}
