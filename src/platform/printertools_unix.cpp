// Printer tools and printer state over CUPS: the web interface of the
// scheduler shows a printer, its jobs and the printer list.
#include "platform/printertools.h"

#include "common/log.h"

#include <QDesktopServices>
#include <QUrl>
#include <cstdlib>
#include <cstring>
#include <cups/cups.h>

namespace
{
// The scheduler's web interface; a local socket means the local scheduler.
QString webBase()
{
    const QString server = QString::fromLocal8Bit(cupsServer());
    const QString host =
        server.isEmpty() || server.startsWith(u'/') ? QStringLiteral("localhost") : server;
    if (host.contains(u':') && !host.startsWith(u'['))
        return QStringLiteral("http://") + host; // already host:port
    return QStringLiteral("http://%1:%2").arg(host).arg(ippPort());
}

QString printerPage(const QString& printerName)
{
    return webBase() + QStringLiteral("/printers/") +
           QString::fromLatin1(QUrl::toPercentEncoding(printerName));
}

void open(const QString& target)
{
    const QUrl url = QUrl::fromUserInput(target);
    if (!QDesktopServices::openUrl(url))
        Log::line(QStringLiteral("Cannot open %1").arg(url.toDisplayString()));
}

bool isFalse(const char* value)
{
    return value && std::strcmp(value, "false") == 0;
}
} // namespace

namespace PrinterTools
{
QString propertiesTarget(const QString& printerName)
{
    return printerPage(printerName);
}

QString queueTarget(const QString& printerName)
{
    return printerPage(printerName) + QStringLiteral("?which_jobs=all");
}

QString printerListTarget()
{
    return webBase() + QStringLiteral("/printers/");
}

void showProperties(const QString& printerName)
{
    open(propertiesTarget(printerName));
}

void showQueue(const QString& printerName)
{
    open(queueTarget(printerName));
}

void showPrinterList()
{
    open(printerListTarget());
}

void openFolder(const QString& folder)
{
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder)))
        Log::line(QStringLiteral("Cannot open the folder %1").arg(folder));
}

QMap<QString, bool> offlineStates()
{
    QMap<QString, bool> states;
    cups_dest_t* dests = nullptr;
    const int count = cupsGetDests2(CUPS_HTTP_DEFAULT, &dests);
    for (int i = 0; i < count; ++i) {
        const cups_dest_t& d = dests[i];
        if (d.instance)
            continue;
        const char* state = cupsGetOption("printer-state", d.num_options, d.options);
        const char* accepting =
            cupsGetOption("printer-is-accepting-jobs", d.num_options, d.options);
        const bool stopped = state && std::atoi(state) == IPP_PSTATE_STOPPED;
        states.insert(QString::fromUtf8(d.name), stopped || isFalse(accepting));
    }
    cupsFreeDests(count, dests);
    return states;
}

bool acceptsJobs(const QString& printerName)
{
    cups_dest_t* dest =
        cupsGetNamedDest(CUPS_HTTP_DEFAULT, printerName.toUtf8().constData(), nullptr);
    if (!dest)
        return true; // unknown here: not known to refuse
    const bool refuses =
        isFalse(cupsGetOption("printer-is-accepting-jobs", dest->num_options, dest->options));
    cupsFreeDests(1, dest);
    return !refuses;
}
} // namespace PrinterTools
