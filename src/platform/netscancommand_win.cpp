#include "platform/netscancommand.h"

#include <QProcess>

// Windows Sockets before the rest of the Windows headers.
#include <winsock2.h>

#include <windows.h>

namespace
{
inline int lowByte(WORD value)
{
    return value & 0xFF;
}
inline int highByte(WORD value)
{
    return (value >> 8) & 0xFF;
}
} // namespace

QString NetViewOutput()
{
    // The shell's Exec + ReadAll: the whole standard output once the command ends.
    QProcess process;
    process.start(QStringLiteral("net"), {QStringLiteral("view")});
    process.waitForFinished(-1);
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

QStringList SocketsInitialize()
{
    QStringList messages;
    WSADATA data{};
    if (WSAStartup(257, &data) != 0) {
        messages << QStringLiteral("Winsock.dll is not responding.");
        return messages;
    }
    const int low = lowByte(data.wVersion), high = highByte(data.wVersion);
    if (low < 1 || (low == 1 && high < 1))
        messages << QStringLiteral("Windows Sockets version ") + QString::number(low) +
                        QStringLiteral(".") + QString::number(high) +
                        QStringLiteral(" is not supported by winsock.dll ");
    if (data.iMaxSockets < 1)
        messages << QStringLiteral("This application requires a minimum of ") + QString::number(1) +
                        QStringLiteral(" supported sockets.");
    return messages;
}

QString SocketsCleanup()
{
    if (WSACleanup() != 0)
        return QStringLiteral("Socket error ") + QString::number(GetLastError()) +
               QStringLiteral(" occurred in Cleanup ");
    return QString();
}

QString LookupFirstIPv4(const QString& name)
{
    const QByteArray ansi = name.toLocal8Bit();
    const hostent* host = gethostbyname(ansi.constData());
    if (!host || !host->h_addr_list || !host->h_addr_list[0])
        return QString();
    const auto* bytes = reinterpret_cast<const unsigned char*>(host->h_addr_list[0]);
    QString address;
    for (int i = 0; i < 4; ++i)
        address += QString::number(bytes[i]) + u'.';
    address.chop(1);
    return address;
}
