#include "prefs/preferences.h"

#include "cloud/cloudshare.h"
#include "common/settings.h"
#include "dispatch/jobnaming.h"

#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QThread>
#include <QUrl>

namespace Prefs
{
namespace
{
QString number(const QString& value, long long low, long long high, const QString& what)
{
    bool ok = false;
    const long long n = value.trimmed().toLongLong(&ok);
    if (ok && n >= low && n <= high)
        return {};
    return QStringLiteral("%1 from %2 to %3, not \"%4\"").arg(what).arg(low).arg(high).arg(value);
}

// The folder exists and can be written, or can be made where its nearest existing parent is.
QString writableFolder(const QString& path)
{
    if (path.trimmed().isEmpty())
        return {};
    const QFileInfo info(path);
    if (info.isRelative())
        return QStringLiteral("a full path, not \"%1\"").arg(path);
    QFileInfo at = info;
    while (!at.exists() && !at.isRoot())
        at = QFileInfo(at.absolutePath());
    if (at.exists() && !at.isDir())
        return QStringLiteral("%1 is not a folder").arg(QDir::toNativeSeparators(at.filePath()));
    // Tried, not read from the permissions: root passes them all, a read-only mount none.
    QTemporaryFile probe(QDir(at.filePath()).filePath(QStringLiteral(".quorvel-XXXXXX")));
    if (!probe.open())
        return QStringLiteral("%1 cannot be written").arg(QDir::toNativeSeparators(at.filePath()));
    return {};
}
} // namespace

bool isTrue(const QString& value)
{
    const QString w = value.trimmed().toLower();
    return w == QLatin1String("1") || w == QLatin1String("true") || w == QLatin1String("yes");
}

QString pageTitle(Page page)
{
    switch (page) {
    case Page::Receiving:
        return QStringLiteral("Receiving");
    case Page::Conversion:
        return QStringLiteral("Conversion");
    case Page::Names:
        return QStringLiteral("File names and folder");
    case Page::AfterSaving:
        return QStringLiteral("After saving");
    case Page::Cloud:
        return QStringLiteral("Cloud share");
    }
    return {};
}

const QList<Field>& fields()
{
    using K = Kind;
    using P = Page;
    static const QList<Field> all{
        {kPort, QStringLiteral("Port"), P::Receiving, K::Text, {}, QStringLiteral("9100")},
        {QStringLiteral("ListenAddress"),
         QStringLiteral("Listen address"),
         P::Receiving,
         K::Text,
         {},
         QStringLiteral("all addresses")},
        {QStringLiteral("AllowNetworks"),
         QStringLiteral("Allowed networks"),
         P::Receiving,
         K::Lines,
         {},
         QStringLiteral("one NETWORK/BITS a line; none lets everyone in")},
        {QStringLiteral("MaxConnections"),
         QStringLiteral("Maximum connections"),
         P::Receiving,
         K::Text,
         {},
         QStringLiteral("256")},
        {QStringLiteral("JobQueue"),
         QStringLiteral("Job queue: each connection a job of its own "
                        "(from the next start)"),
         P::Receiving, K::Check},
        {kWorkers, QStringLiteral("Workers"), P::Receiving, K::Text},
        {kIpp,
         QStringLiteral("Receive from phones and computers (IPP)"),
         P::Receiving,
         K::Check,
         {},
         QStringLiteral("an IPP Everywhere printer, found on the LAN (from the next start)")},
        {kIppPort,
         QStringLiteral("IPP port"),
         P::Receiving,
         K::Text,
         {},
         QString::number(kIppDefaultPort)},
        {QStringLiteral("GsCpuSeconds"), QStringLiteral("Ghostscript CPU seconds (0: no limit)"),
         P::Conversion, K::Text},
        {QStringLiteral("GsMemoryMB"), QStringLiteral("Ghostscript memory MB (0: no limit)"),
         P::Conversion, K::Text},
        {QStringLiteral("GsWallSeconds"), QStringLiteral("Ghostscript seconds (0: no limit)"),
         P::Conversion, K::Text},
        {kOutput,
         QStringLiteral("Output of headless runs"),
         P::Conversion,
         K::Choice,
         {QStringLiteral("pdf"), QStringLiteral("tiff"), QStringLiteral("jpeg"),
          QStringLiteral("print"), QStringLiteral("cloud")}},
        {kColour, QStringLiteral("Colour images in headless runs"), P::Conversion, K::Check},
        {kJobFolder,
         QStringLiteral("Job folder"),
         P::Names,
         K::Folder,
         {},
         QStringLiteral("ImagesPdfExport beside the program")},
        {JobNaming::kTemplateKey,
         QStringLiteral("Name template"),
         P::Names,
         K::Text,
         {},
         QStringLiteral("File_yyMMdd_hhmmss; e.g. {user}/{date}/{title}")},
        {kAfterSave,
         QStringLiteral("After saving"),
         P::AfterSaving,
         K::Choice,
         {QStringLiteral("nothing"), QStringLiteral("open"), QStringLiteral("run")}},
        {kAfterSaveProgram, QStringLiteral("Program (gets the file's path)"), P::AfterSaving,
         K::File},
        {kAfterSaveTimeout, QStringLiteral("Program timeout, seconds"), P::AfterSaving, K::Text},
        {QStringLiteral("HistoryDays"), QStringLiteral("Job history: days kept"), P::AfterSaving,
         K::Text},
        {QStringLiteral("HistoryMax"), QStringLiteral("Job history: most jobs kept"),
         P::AfterSaving, K::Text},
        {CloudShare::kBaseUrlKey,
         QStringLiteral("URL"),
         P::Cloud,
         K::Text,
         {},
         QStringLiteral("the built-in share")},
        {CloudShare::kUserKey, QStringLiteral("User"), P::Cloud, K::Text},
        {kPassword,
         QStringLiteral("Password"),
         P::Cloud,
         K::Password,
         {},
         QStringLiteral("unchanged")},
        {CloudShare::kCaFileKey, QStringLiteral("CA file (PEM)"), P::Cloud, K::File},
        {QStringLiteral("CloudAfterFetch"),
         QStringLiteral("After a fetch"),
         P::Cloud,
         K::Choice,
         {QStringLiteral("keep"), QStringLiteral("delete")}},
        {kCloudPoll, QStringLiteral("Poll every (seconds; 0: never)"), P::Cloud, K::Text},
    };
    return all;
}

const Field* field(const QString& key)
{
    for (const Field& f : fields())
        if (f.key == key)
            return &f;
    return nullptr;
}

QString current(const QString& key)
{
    // One setting behind two fields: IppPort 0 or absent is the switch off.
    const int ippPort = SettingsStore::get(kIppPort).trimmed().toInt();
    if (key == kIpp)
        return ippPort > 0 ? QStringLiteral("true") : QStringLiteral("false");
    if (key == kIppPort)
        return QString::number(ippPort > 0 ? ippPort : kIppDefaultPort);
    const QString value = key == kPassword ? QString() : SettingsStore::get(key);
    if (!value.isEmpty())
        return value;
    static const QMap<QString, QString> defaults{
        {kPort, QStringLiteral("9100")},
        {QStringLiteral("MaxConnections"), QStringLiteral("256")},
        {kWorkers, QString::number(qMax(1, QThread::idealThreadCount()))},
        {QStringLiteral("GsCpuSeconds"), QStringLiteral("600")},
        {QStringLiteral("GsMemoryMB"), QStringLiteral("2048")},
        {QStringLiteral("GsWallSeconds"), QStringLiteral("1200")},
        {kOutput, QStringLiteral("pdf")},
        {kAfterSave, QStringLiteral("nothing")},
        {kAfterSaveTimeout, QStringLiteral("60")},
        {QStringLiteral("HistoryDays"), QStringLiteral("90")},
        {QStringLiteral("HistoryMax"), QStringLiteral("10000")},
        {QStringLiteral("CloudAfterFetch"), QStringLiteral("keep")},
        {kCloudPoll, QStringLiteral("0")},
    };
    return defaults.value(key);
}

QString problem(const QString& key, const QString& value, const QMap<QString, QString>& values)
{
    const QString v = value.trimmed();
    if (key == kPort)
        return number(v, 1, 65535, QStringLiteral("A port"));
    if (key == QLatin1String("ListenAddress"))
        return v.isEmpty() || !QHostAddress(v).isNull()
                   ? QString()
                   : QStringLiteral("an address of this computer, not \"%1\"").arg(v);
    if (key == QLatin1String("AllowNetworks")) {
        for (const QString& net :
             v.split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts))
            if (QHostAddress::parseSubnet(net).first.isNull())
                return QStringLiteral("a network as NETWORK/BITS, not \"%1\"").arg(net);
        return {};
    }
    if (key == QLatin1String("MaxConnections"))
        return number(v, 1, 32767, QStringLiteral("A number"));
    if (key == kWorkers)
        return number(v, 1, 256, QStringLiteral("A number"));
    if (key == kIppPort)
        return isTrue(values.value(kIpp)) ? number(v, 1, 65535, QStringLiteral("A port"))
                                          : QString();
    if (key.startsWith(QLatin1String("Gs")))
        return number(v, 0, 1000000, QStringLiteral("A number"));
    if (key == kJobFolder)
        return writableFolder(v);
    if (key == JobNaming::kTemplateKey)
        return JobNaming::problem(v);
    if (key == kAfterSaveProgram) {
        if (values.value(kAfterSave) != QLatin1String("run") && v.isEmpty())
            return {};
        const QString found = QStandardPaths::findExecutable(v);
        return !v.isEmpty() && ((QFileInfo(v).isAbsolute() && QFileInfo(v).isExecutable() &&
                                 QFileInfo(v).isFile()) ||
                                (!QFileInfo(v).isAbsolute() && !found.isEmpty()))
                   ? QString()
                   : QStringLiteral("a program that can be run, not \"%1\"").arg(v);
    }
    if (key == kAfterSaveTimeout)
        return number(v, 1, 86400, QStringLiteral("Seconds"));
    if (key == QLatin1String("HistoryDays") || key == QLatin1String("HistoryMax"))
        return number(v, 1, 100000000, QStringLiteral("A number"));
    if (key == CloudShare::kBaseUrlKey) {
        const QUrl url(v);
        return v.isEmpty() || (!url.host().isEmpty() && (url.scheme() == QLatin1String("http") ||
                                                         url.scheme() == QLatin1String("https")))
                   ? QString()
                   : QStringLiteral("an http:// or https:// URL, not \"%1\"").arg(v);
    }
    if (key == CloudShare::kCaFileKey)
        return v.isEmpty() || !QSslCertificate::fromPath(v, QSsl::Pem).isEmpty()
                   ? QString()
                   : QStringLiteral("a PEM file of certificates, not \"%1\"").arg(v);
    if (key == kCloudPoll)
        return number(v, 0, 86400, QStringLiteral("Seconds"));
    if (const Field* f = field(key); f && f->kind == Kind::Choice && !f->choices.contains(v))
        return QStringLiteral("one of %1").arg(f->choices.join(QStringLiteral(", ")));
    return {};
}

void save(const QMap<QString, QString>& values)
{
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (it.key() == kPassword || it.key() == kIpp)
            continue;
        QString v = it.value().trimmed();
        if (it.key() == kIppPort && values.contains(kIpp) && !isTrue(values.value(kIpp)))
            v = QStringLiteral("0");
        if (it.key() == QLatin1String("AllowNetworks"))
            v = v.split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts)
                    .join(u',');
        if (v.isEmpty())
            SettingsStore::remove(it.key());
        else if (SettingsStore::get(it.key()) != v)
            SettingsStore::put(it.key(), v);
    }
    // Stored under the account now in the settings: the URL and user are written first.
    if (!values.value(kPassword).isEmpty())
        CloudShare::StorePassword(values.value(kPassword));
}
} // namespace Prefs
