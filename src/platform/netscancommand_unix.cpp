#include "platform/netscancommand.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QProcess>
#include <QRegularExpression>

namespace
{
QString netView()
{
    // smbtree lists "\t\\NAME<padding>\t\tremark" under each workgroup;
    // -S stops at the hosts, -N asks no password.
    QProcess process;
    process.start(QStringLiteral("smbtree"), {QStringLiteral("-N"), QStringLiteral("-S")});
    if (!process.waitForFinished(-1) && process.error() == QProcess::FailedToStart)
        return QString();
    const QString text = QString::fromLocal8Bit(process.readAllStandardOutput());
    static const QRegularExpression host(QStringLiteral("^\\s*\\\\\\\\(\\S+)\\s*(.*)$"));
    QString out = QStringLiteral("Server Name            Remark\r\n\r\n") + QString(79, u'-') +
                  QStringLiteral("\r\n");
    int hosts = 0;
    for (const QString& line : text.split(u'\n')) {
        const QRegularExpressionMatch m = host.match(line.trimmed());
        if (!m.hasMatch() || m.captured(1).contains(u'\\'))
            continue;
        const QString name = QStringLiteral("\\\\") + m.captured(1);
        const QString remark = m.captured(2).simplified();
        out += remark.isEmpty() ? name : name.leftJustified(22) + u' ' + remark;
        out += QStringLiteral("\r\n");
        ++hosts;
    }
    if (hosts == 0)
        return QStringLiteral("There are no entries in the list.\r\n\r\n");
    return out + QStringLiteral("The command completed successfully.\r\n\r\n");
}

} // namespace

std::wstring NetViewOutput()
{
    return netView().toStdWString();
}

std::vector<std::string> SocketsInitialize()
{
    return {};
}

std::string SocketsCleanup()
{
    return std::string();
}

std::string LookupFirstIPv4(const std::wstring& name)
{
    const QHostInfo info = QHostInfo::fromName(QString::fromStdWString(name));
    if (info.error() != QHostInfo::NoError)
        return std::string();
    for (const QHostAddress& address : info.addresses())
        if (address.protocol() == QAbstractSocket::IPv4Protocol)
            return address.toString().toStdString();
    return std::string();
}
