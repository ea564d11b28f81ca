#include "server/runoptions.h"

#include "server/frmMain.h"

#include <QApplication>
#include <QCommandLineParser>
#include <cstdio>
#include <cstring>

RunOptions RunOptions::fromArguments(int argc, char* argv[])
{
    RunOptions o;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--headless") == 0)
            o.headless = true;
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    // Without a display (and no platform chosen) there is nothing to show a window on.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        o.headless = true;
#endif
    return o;
}

bool RunOptions::parse(const QApplication& app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Quorvel print server: receives PostScript jobs on TCP port 9100."));
    parser.addHelpOption();
    QCommandLineOption headlessOpt(QStringLiteral("headless"),
                                   QStringLiteral("Run without window or tray; log on stderr."));
    QCommandLineOption portOpt(QStringLiteral("port"), QStringLiteral("TCP port (default 9100)."),
                               QStringLiteral("N"), QStringLiteral("9100"));
    QCommandLineOption folderOpt(QStringLiteral("program-folder"),
                                 QStringLiteral("Folder that holds ImagesPdfExport (default: the "
                                                "program's own folder)."),
                                 QStringLiteral("DIR"));
    parser.addOptions({headlessOpt, portOpt, folderOpt});
    if (!parser.parse(app.arguments())) {
        std::fprintf(stderr, "%s\n", qPrintable(parser.errorText()));
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::fprintf(stdout, "%s", qPrintable(parser.helpText()));
        return false;
    }
    bool ok = false;
    const uint p = parser.value(portOpt).toUInt(&ok);
    if (!ok || p == 0 || p > 65535) {
        std::fprintf(stderr, "--port: not a port number: %s\n", qPrintable(parser.value(portOpt)));
        return false;
    }
    port = quint16(p);
    headless = headless || parser.isSet(headlessOpt);
    programFolder = parser.value(folderOpt);
    return true;
}

void RunOptions::apply(frmMain&) const {}
