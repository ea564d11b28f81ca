#include "server/runoptions.h"

#include "common/log.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "history/jobhistory.h"
#include "prefs/preferences.h"
#include "server/frmmain.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QListWidget>
#include <QRadioButton>
#include <QUrl>
#include <algorithm>
#include <cstdio>
#include <cstring>

RunOptions RunOptions::fromArguments(int argc, char* argv[])
{
    RunOptions o;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--headless") == 0 || std::strcmp(argv[i], "--cloud-test") == 0)
            o.headless = true;
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    // Without a display (and no platform chosen) there is nothing to show a window on.
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        o.headless = true;
#endif
    return o;
}

namespace
{
// The values of an option, else those of its settings key (a comma list).
struct Given {
    QStringList values;
    QString source;
    bool fromCommandLine;
};
Given given(const QCommandLineParser& parser, const QCommandLineOption& option, const char* key)
{
    if (parser.isSet(option))
        return {parser.values(option), QStringLiteral("--") + option.names().constFirst(), true};
    return {SettingsStore::get(QLatin1String(key)).split(u',', Qt::SkipEmptyParts),
            QStringLiteral("Setting ") + QLatin1String(key), false};
}
// A bad value on the command line ends the program; a bad setting is logged.
bool rejected(const Given& g, const QString& value, const char* expected, const char* instead)
{
    const QString text = QStringLiteral("%1: %2, not \"%3\"").arg(g.source, expected, value);
    if (g.fromCommandLine)
        std::fprintf(stderr, "%s\n", qPrintable(text));
    else
        Log::line(text + QStringLiteral("; ") + QLatin1String(instead), true);
    return g.fromCommandLine;
}
} // namespace

bool RunOptions::parseListen(const QCommandLineParser& parser, const QCommandLineOption& address,
                             const QCommandLineOption& allow, const QCommandLineOption& cap)
{
    const Given a = given(parser, address, "ListenAddress");
    for (const QString& v : a.values)
        if (!listen.address.setAddress(v.trimmed()) &&
            rejected(a, v, "an address of this computer", "all addresses are used"))
            return false;
    if (listen.address.isNull())
        listen.address = QHostAddress::Any;
    const Given n = given(parser, allow, "AllowNetworks");
    for (const QString& v : n.values) {
        const auto network = QHostAddress::parseSubnet(v.trimmed());
        // A bad entry still restricts: it matches no one.
        listen.allowed << network;
        if (network.first.isNull() &&
            rejected(n, v, "a network as NETWORK/BITS", "this entry lets no one in"))
            return false;
    }
    const Given c = given(parser, cap, "MaxConnections");
    for (const QString& v : c.values) {
        bool ok = false;
        const int most = v.trimmed().toInt(&ok);
        if (ok && most >= 1 && most <= 32767)
            listen.maxConnections = most;
        else if (rejected(c, v, "a number from 1 to 32767", "the most stays 256"))
            return false;
    }
    return true;
}

bool RunOptions::parse(const QApplication& app)
{
    return parse(app.arguments());
}

bool RunOptions::parse(const QStringList& arguments)
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
    QCommandLineOption outputOpt(
        QStringLiteral("output"),
        QStringLiteral("What becomes of a job: pdf (default), tiff, jpeg, print or cloud."),
        QStringLiteral("KIND"));
    QCommandLineOption colourOpt(
        QStringList{QStringLiteral("colour"), QStringLiteral("color")},
        QStringLiteral("Colour images instead of grayscale (tiff, jpeg)."));
    QCommandLineOption printerOpt(QStringLiteral("printer"),
                                  QStringLiteral("The printer that print jobs go to."),
                                  QStringLiteral("NAME"));
    QCommandLineOption registerOpt(
        QStringLiteral("register"),
        QStringLiteral("Check this user id on the cloud share for this installation and keep it."),
        QStringLiteral("ID"));
    QCommandLineOption getOpt(
        QStringLiteral("get-cloud-data"),
        QStringLiteral("Fetch a job waiting on the cloud share at start-up."));
    QCommandLineOption pollOpt(QStringLiteral("cloud-poll"),
                               QStringLiteral("Fetch waiting cloud jobs every N seconds."),
                               QStringLiteral("N"));
    QCommandLineOption afterFetchOpt(
        QStringLiteral("cloud-after-fetch"),
        QStringLiteral("What becomes of a fetched cloud file on the share: keep (default) or "
                       "delete, once its job is safe here."),
        QStringLiteral("keep|delete"));
    QCommandLineOption listenOpt(
        QStringLiteral("listen"),
        QStringLiteral("Listen on this address of the computer only (default: all)."),
        QStringLiteral("ADDRESS"));
    QCommandLineOption allowOpt(
        QStringLiteral("allow"),
        QStringLiteral("Take connections from this network only (repeatable), e.g. 10.0.0.0/8."),
        QStringLiteral("NETWORK/BITS"));
    QCommandLineOption maxOpt(QStringLiteral("max-connections"),
                              QStringLiteral("Connections open at once; more are refused "
                                             "(default 256)."),
                              QStringLiteral("N"));
    QCommandLineOption queueOpt(
        QStringLiteral("job-queue"),
        QStringLiteral("Each connection is a job of its own, spooled as it arrives and "
                       "converted in order of close."));
    QCommandLineOption workersOpt(
        QStringLiteral("workers"),
        QStringLiteral("Jobs the queue converts at once (default: the number of cores)."),
        QStringLiteral("N"));
    QCommandLineOption ippOpt(
        QStringLiteral("ipp"),
        QStringLiteral("Also be an IPP Everywhere printer, at ipp://HOST:8631/ipp/print."));
    QCommandLineOption ippPortOpt(
        QStringLiteral("ipp-port"),
        QStringLiteral("Be an IPP Everywhere printer on this port (0: not at all)."),
        QStringLiteral("N"));
    QCommandLineOption historyOpt(
        QStringLiteral("history"),
        QStringLiteral("Print the last jobs of the job history as a table, then end."));
    const QCommandLineOption limitOpts[] = {
        {QStringLiteral("gs-cpu-seconds"),
         QStringLiteral("CPU time a Ghostscript run may use (0: no limit)."), QStringLiteral("N")},
        {QStringLiteral("gs-memory-mb"),
         QStringLiteral("Memory a Ghostscript run may use (0: no limit)."), QStringLiteral("N")},
        {QStringLiteral("gs-wall-seconds"),
         QStringLiteral("Time a Ghostscript run may take (0: no limit)."), QStringLiteral("N")}};
    const QCommandLineOption cloudOpts[] = {
        {QStringLiteral("cloud-url"), QStringLiteral("Keep this as the cloud share's URL."),
         QStringLiteral("URL")},
        {QStringLiteral("cloud-user"), QStringLiteral("Keep this as the cloud share's user."),
         QStringLiteral("NAME")},
        {QStringLiteral("cloud-password-stdin"),
         QStringLiteral("Read the cloud share's password from standard input (one line) and "
                        "keep it in the credential store.")},
        {QStringLiteral("cloud-test"),
         QStringLiteral("Check the cloud share step by step, print a line per step and exit "
                        "(0: all passed).")}};
    const QCommandLineOption windowOpts[] = {
        {QStringLiteral("preferences"),
         QStringLiteral("Show the preferences, in the running instance or a new one.")},
        {QStringLiteral("jobs"),
         QStringLiteral("Show the jobs window, in the running instance or a new one.")}};
    parser.addOptions({windowOpts[0], windowOpts[1]});
    parser.addOptions({headlessOpt, portOpt,     folderOpt,    outputOpt,    colourOpt,
                       printerOpt,  registerOpt, getOpt,       pollOpt,      afterFetchOpt,
                       listenOpt,   allowOpt,    maxOpt,       queueOpt,     workersOpt,
                       ippOpt,      ippPortOpt,  limitOpts[0], limitOpts[1], limitOpts[2],
                       historyOpt});
    for (const QCommandLineOption& o : cloudOpts)
        parser.addOption(o);
    if (!parser.parse(arguments)) {
        std::fprintf(stderr, "%s\n", qPrintable(parser.errorText()));
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::fprintf(stdout, "%s", qPrintable(parser.helpText()));
        exitCode = 0;
        return false;
    }
    if (parser.isSet(historyOpt)) {
        std::fprintf(stdout, "%s", qPrintable(JobHistory::table()));
        exitCode = 0;
        return false;
    }
    bool ok = false;
    const uint p = parser.value(portOpt).toUInt(&ok);
    if (!ok || p == 0 || p > 65535) {
        std::fprintf(stderr, "--port: not a port number: %s\n", qPrintable(parser.value(portOpt)));
        return false;
    }
    listen.port = quint16(p);
    // The preferences' port, where the command line names none.
    if (const QString kept = SettingsStore::get(QStringLiteral("Port")).trimmed();
        !parser.isSet(portOpt) && !kept.isEmpty()) {
        const uint n = kept.toUInt(&ok);
        if (ok && n >= 1 && n <= 65535)
            listen.port = quint16(n);
        else
            Log::line(
                QStringLiteral("Setting Port: a port number, not \"%1\"; 9100 is used").arg(kept),
                true);
    }
    if (!parseListen(parser, listenOpt, allowOpt, maxOpt))
        return false;
    headless = headless || parser.isSet(headlessOpt);
    programFolder = parser.value(folderOpt);
    output = parser.value(outputOpt).trimmed().toLower();
    const bool known = std::any_of(outputWords().begin(), outputWords().end(),
                                   [&](const OutputWord& w) { return w.word == output; });
    if (parser.isSet(outputOpt) && (!known || output == QLatin1String("colour"))) {
        std::fprintf(stderr, "--output: one of pdf, tiff, jpeg, print, cloud; not %s\n",
                     qPrintable(parser.value(outputOpt)));
        return false;
    }
    colour = parser.isSet(colourOpt);
    // A headless run has no Output box to click: the preferences' choice stands in for it.
    if (headless && !parser.isSet(outputOpt)) {
        const QString kept = SettingsStore::get(QStringLiteral("Output")).trimmed().toLower();
        if (std::any_of(outputWords().begin(), outputWords().end(),
                        [&](const OutputWord& w) { return w.word == kept; }) &&
            kept != QLatin1String("colour"))
            output = kept;
        colour = colour || SettingsStore::get(QStringLiteral("Colour")).trimmed() == "true";
    }
    registerId = parser.value(registerOpt).trimmed();
    if (parser.isSet(registerOpt) && registerId.isEmpty()) {
        std::fprintf(stderr, "--register: a user id is needed\n");
        return false;
    }
    getCloudData = parser.isSet(getOpt);
    if (const int kept = SettingsStore::get(QStringLiteral("CloudPoll")).toInt();
        !parser.isSet(pollOpt) && kept >= 1 && kept <= 86400)
        cloudPoll = kept;
    if (parser.isSet(pollOpt)) {
        cloudPoll = parser.value(pollOpt).toInt(&ok);
        if (!ok || cloudPoll < 1 || cloudPoll > 86400) {
            std::fprintf(stderr, "--cloud-poll: seconds from 1 to 86400, not %s\n",
                         qPrintable(parser.value(pollOpt)));
            return false;
        }
    }
    cloudAfterFetch = parser.value(afterFetchOpt).trimmed().toLower();
    if (parser.isSet(afterFetchOpt) && cloudAfterFetch != QLatin1String("keep") &&
        cloudAfterFetch != QLatin1String("delete")) {
        std::fprintf(stderr, "--cloud-after-fetch: keep or delete, not %s\n",
                     qPrintable(parser.value(afterFetchOpt)));
        return false;
    }
    printer = parser.value(printerOpt);
    cloudUrl = parser.value(cloudOpts[0]).trimmed();
    const QUrl share(cloudUrl);
    if (parser.isSet(cloudOpts[0]) &&
        (share.host().isEmpty() ||
         (share.scheme() != QLatin1String("http") && share.scheme() != QLatin1String("https")))) {
        std::fprintf(stderr, "--cloud-url: an http:// or https:// URL, not %s\n",
                     qPrintable(cloudUrl));
        return false;
    }
    cloudUser = parser.value(cloudOpts[1]).trimmed();
    if (parser.isSet(cloudOpts[1]) && cloudUser.isEmpty()) {
        std::fprintf(stderr, "--cloud-user: a user name is needed\n");
        return false;
    }
    cloudPasswordStdin = parser.isSet(cloudOpts[2]);
    cloudTest = parser.isSet(cloudOpts[3]);
    for (const QCommandLineOption& o : windowOpts)
        if (parser.isSet(o))
            openWindow = o.names().constFirst();
    if (parser.isSet(queueOpt))
        jobs.jobQueue = true;
    if (parser.isSet(workersOpt)) {
        const int v = parser.value(workersOpt).toInt(&ok);
        if (!ok || v < 1 || v > 256) {
            std::fprintf(stderr, "--workers: a number from 1 to 256, not %s\n",
                         qPrintable(parser.value(workersOpt)));
            return false;
        }
        jobs.workers = v;
    }
    if (parser.isSet(ippOpt))
        jobs.ippPort = Prefs::kIppDefaultPort;
    if (parser.isSet(ippPortOpt)) {
        const int v = parser.value(ippPortOpt).toInt(&ok);
        if (!ok || v < 0 || v > 65535) {
            std::fprintf(stderr, "--ipp-port: a port from 1 to 65535, or 0 for none, not %s\n",
                         qPrintable(parser.value(ippPortOpt)));
            return false;
        }
        jobs.ippPort = v;
    }
    std::optional<int>* limits[] = {&jobs.cpuSeconds, &jobs.memoryMB, &jobs.wallSeconds};
    for (int i = 0; i < 3; ++i) {
        if (!parser.isSet(limitOpts[i]))
            continue;
        const int v = parser.value(limitOpts[i]).toInt(&ok);
        if (!ok || v < 0) {
            std::fprintf(stderr, "--%s: a number from 0, not %s\n",
                         qPrintable(limitOpts[i].names().first()),
                         qPrintable(parser.value(limitOpts[i])));
            return false;
        }
        *limits[i] = v;
    }
    return true;
}

const std::vector<OutputWord>& outputWords()
{
    static const std::vector<OutputWord> words{
        {QStringLiteral("pdf"), {&frmMain::Option1}},
        {QStringLiteral("tiff"), {&frmMain::Option2, &frmMain::Option4}},
        {QStringLiteral("jpeg"), {&frmMain::Option2, &frmMain::Option5}},
        {QStringLiteral("print"), {&frmMain::Option3}},
        {QStringLiteral("cloud"), {&frmMain::Option9}},
        {QStringLiteral("colour"), {&frmMain::Option7}},
    };
    return words;
}

bool clickOutputWord(frmMain& window, const QString& word)
{
    for (const OutputWord& w : outputWords())
        if (w.word == word) {
            for (QRadioButton* frmMain::*button : w.clicks)
                (window.*button)->click();
            return true;
        }
    return false;
}

namespace
{
// The row a click in the printer list would hit: the exact name first, then
// the name trimmed and without regard to case.
QListWidgetItem* printerItem(QListWidget* list, const QString& name)
{
    for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->text() == name)
            return list->item(i);
    for (int i = 0; i < list->count(); ++i)
        if (list->item(i)->text().trimmed().compare(name.trimmed(), Qt::CaseInsensitive) == 0)
            return list->item(i);
    return nullptr;
}
} // namespace

void RunOptions::apply(frmMain& window) const
{
    // The same clicks a user would make, so the window's own handlers decide.
    if (output == QLatin1String("cloud") && !window.Option9->isEnabled())
        Log::line(QStringLiteral("--output cloud: no cloud server is chosen "
                                 "(CloudClientUserId, CloudClientServerId); the output stays "
                                 "as it was"),
                  true);
    if (!output.isEmpty())
        clickOutputWord(window, output);
    if (colour)
        clickOutputWord(window, QStringLiteral("colour"));
    if (!printer.isNull()) {
        if (QListWidgetItem* item = printerItem(window.List2, printer)) {
            window.List2->setCurrentItem(item);
            RunGuarded([&] { window.List2_MouseUp(); });
        } else {
            Log::line(QStringLiteral("--printer: no printer named \"%1\"; the printer stays %2")
                          .arg(printer, window.List2->currentItem()
                                            ? window.List2->currentItem()->text()
                                            : QStringLiteral("unchosen")),
                      true);
        }
    }
    if (!cloudAfterFetch.isEmpty())
        window.setCloudDeleteAfterFetch(cloudAfterFetch == QLatin1String("delete"));
    if (!registerId.isEmpty())
        window.registerUser(registerId);
    if (getCloudData)
        window.fetchCloudJobs();
    if (cloudPoll > 0)
        window.startCloudPoll(cloudPoll);
    if (!openWindow.isEmpty())
        window.openWindow(openWindow);
}
