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

bool open(const std::wstring& target)
{
    const QUrl url = QUrl::fromUserInput(QString::fromStdWString(target));
    if (QDesktopServices::openUrl(url))
        return true;
    Log::line(QStringLiteral("Cannot open %1").arg(url.toDisplayString()));
    return false;
}

bool isFalse(const char* value)
{
    return value && std::strcmp(value, "false") == 0;
}
} // namespace

namespace PrinterTools
{
std::wstring propertiesTarget(const std::wstring& printerName)
{
    return printerPage(QString::fromStdWString(printerName)).toStdWString();
}

std::wstring queueTarget(const std::wstring& printerName)
{
    return propertiesTarget(printerName) + L"?which_jobs=all";
}

std::wstring printerListTarget()
{
    return (webBase() + QStringLiteral("/printers/")).toStdWString();
}

bool showProperties(const std::wstring& printerName)
{
    return open(propertiesTarget(printerName));
}

bool showQueue(const std::wstring& printerName)
{
    return open(queueTarget(printerName));
}

bool showPrinterList()
{
    return open(printerListTarget());
}

bool openFolder(const std::wstring& folder)
{
    const QString path = QString::fromStdWString(folder);
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        return true;
    Log::line(QStringLiteral("Cannot open the folder %1").arg(path));
    return false;
}

std::map<std::wstring, bool> offlineStates()
{
    std::map<std::wstring, bool> states;
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
        states[QString::fromUtf8(d.name).toStdWString()] = stopped || isFalse(accepting);
    }
    cupsFreeDests(count, dests);
    return states;
}

bool acceptsJobs(const std::wstring& printerName)
{
    const QByteArray name = QString::fromStdWString(printerName).toUtf8();
    cups_dest_t* dest = cupsGetNamedDest(CUPS_HTTP_DEFAULT, name.constData(), nullptr);
    if (!dest)
        return true; // unknown here: not known to refuse
    const bool refuses =
        isFalse(cupsGetOption("printer-is-accepting-jobs", dest->num_options, dest->options));
    cupsFreeDests(1, dest);
    return !refuses;
}

bool printRaw(const std::wstring& printerName, const std::wstring& file, const std::wstring& title,
              std::wstring* why)
{
    // Said outright: CUPS's own typing takes only some PCL for raw.
    cups_option_t* options = nullptr;
    const int count = cupsAddOption("raw", "true", 0, &options);
    const int id = cupsPrintFile2(CUPS_HTTP_DEFAULT, QString::fromStdWString(printerName).toUtf8(),
                                  QString::fromStdWString(file).toLocal8Bit(),
                                  QString::fromStdWString(title).toUtf8(), count, options);
    cupsFreeOptions(count, options);
    if (id == 0 && why)
        *why = QString::fromUtf8(cupsLastErrorString()).toStdWString();
    return id != 0;
}
} // namespace PrinterTools
