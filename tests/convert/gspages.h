#pragma once

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// Pages as the program has Ghostscript make them: a generated PostScript job
// of N Letter pages rendered by the real gs at 600 dpi, with the options of
// the print (tifflzw) and colour image (tiff12nc) command lines.
namespace gspages
{
inline QString supportDir()
{
    return qEnvironmentVariable("QUORVEL_TEST_SUPPORT");
}

inline QByteArray psJob(int pages)
{
    QProcess p;
    p.start(QStringLiteral("bash"),
            {supportDir() + QStringLiteral("/genps.sh"), QString::number(pages)});
    p.waitForFinished(30000);
    return p.readAllStandardOutput();
}

// Returns the TIFF path, or "" (with the reason in *error) when gs failed.
inline QString render(const QString& folder, int pages, const QString& device,
                      QString* error = nullptr)
{
    const QString ps = folder + QStringLiteral("/job%1.ps").arg(pages);
    QFile f(ps);
    if (!f.open(QIODevice::WriteOnly) || f.write(psJob(pages)) <= 0)
        return {};
    f.close();
    const QString out = folder + QStringLiteral("/job%1-%2.tif").arg(pages).arg(device);
    // A private temporary folder per run, as the program gives it.
    QDir(folder).mkpath(QStringLiteral("gstmp"));
    QProcess gs;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), folder + QStringLiteral("/gstmp"));
    gs.setProcessEnvironment(env);
    const QString screen =
        device == QLatin1String("tiff12nc") ? QStringLiteral("4") : QStringLiteral("0");
    gs.start(QStringLiteral("gs"),
             {QStringLiteral("-dNOPAUSE"), QStringLiteral("-dBATCH"), QStringLiteral("-r600"),
              QStringLiteral("-sDEVICE=") + device, QStringLiteral("-sPAPERSIZE=letter"),
              QStringLiteral("-dCOLORSCREEN=") + screen, QStringLiteral("-dDITHERPPI=204"),
              QStringLiteral("-dQUIET"), QStringLiteral("-sOutputFile=") + out, ps});
    if (!gs.waitForFinished(120000) || gs.exitCode() != 0 || !QFile::exists(out)) {
        if (error)
            *error = QString::fromLocal8Bit(gs.readAllStandardOutput() + gs.readAllStandardError());
        return {};
    }
    return out;
}
} // namespace gspages
