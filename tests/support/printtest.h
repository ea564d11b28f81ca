#pragma once

// Shared by the convert and dispatch tests: real tools, a process that holds
// a file open, and the private CUPS scheduler of the "cups" fixture.

#include "testsupport.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

// What a program prints (stdout, then stderr), or "" when it cannot be run.
inline QString runTool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(60000))
        return QString();
    return QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError());
}

inline int pdfPages(const QString& path)
{
    for (const QString& line : runTool(QStringLiteral("pdfinfo"), {path}).split(u'\n'))
        if (line.startsWith(QLatin1String("Pages:")))
            return line.mid(6).trimmed().toInt();
    return -1;
}

// Another process that keeps the file open (bash redirection ">>" or "<")
// until this goes away.
struct FileHolder {
    QProcess p;
    explicit FileHolder(const QString& path, const char* redirect = ">>")
    {
        p.start(QStringLiteral("bash"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec 3%1\"$1\"; echo ready; exec sleep 60").arg(redirect),
                 QStringLiteral("holder"), path});
        p.waitForReadyRead(10000);
    }
    ~FileHolder()
    {
        p.kill();
        p.waitForFinished(10000);
    }
};

// The queues of the cups fixture: cups-pdf (printed pages land as PDF files
// in CUPS_PDF_OUT), a file queue and one that rejects jobs.
struct Cups {
    QMap<QString, QString> env = serviceEnv(QStringLiteral("cups"));
    QString value(const char* key) const { return env.value(QLatin1String(key)); }
    QString pdfQueue() const { return value("CUPS_PDF_QUEUE"); }
    QString fileQueue() const { return value("CUPS_FILE_QUEUE"); }
    QString rejectQueue() const { return value("CUPS_REJECT_QUEUE"); }
    QStringList printed() const
    {
        return QDir(value("CUPS_PDF_OUT")).entryList({QStringLiteral("*.pdf")}, QDir::Files);
    }
    // cups-pdf keeps a PDF private (0600) until it is complete.
    QString newCompletePdf(const QStringList& before) const
    {
        for (const QString& name : printed()) {
            const QFileInfo info(value("CUPS_PDF_OUT") + QStringLiteral("/") + name);
            if (!before.contains(name) && (info.permissions() & QFile::ReadOther))
                return info.filePath();
        }
        return QString();
    }
};

// A test main on the private scheduler, set before anything asks CUPS.
#define QUORVEL_CUPS_TEST_MAIN(TestClass)                                                          \
    int main(int argc, char* argv[])                                                               \
    {                                                                                              \
        const Cups cups;                                                                           \
        if (!cups.env.isEmpty()) {                                                                 \
            qputenv("CUPS_SERVER", cups.value("CUPS_SERVER").toLocal8Bit());                       \
            qputenv("IPP_PORT", cups.value("CUPS_PORT").toLocal8Bit());                            \
        }                                                                                          \
        QApplication app(argc, argv);                                                              \
        QApplication::setQuitOnLastWindowClosed(false);                                            \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
