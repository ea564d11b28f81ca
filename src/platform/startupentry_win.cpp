#include "platform/startupentry.h"

#include "common/msgbox.h"

#include <windows.h>

namespace
{
const char RunKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Run";

QString errorDescription()
{
    const DWORD error = GetLastError();
    if (error == 0)
        return QString();
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                       FORMAT_MESSAGE_IGNORE_INSERTS,
                   nullptr, error, 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    const QString description = text ? QString::fromWCharArray(text).trimmed() : QString();
    LocalFree(text);
    return description;
}
} // namespace

QString RunEntryLocation(const QString& exeName)
{
    return QStringLiteral("HKEY_CURRENT_USER\\") + QString::fromLatin1(RunKey) + u'\\' + exeName;
}

bool RunEntryExists(const QString& exeName)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, RunKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    const QByteArray name = exeName.toLocal8Bit();
    const bool found = RegQueryValueExA(key, name.constData(), nullptr, nullptr, nullptr,
                                        nullptr) == ERROR_SUCCESS;
    RegCloseKey(key);
    return found;
}

void RunEntrySet(const QString& exeName, const QString& programFolder, bool enable)
{
    HKEY key = nullptr;
    DWORD disposition = 0;
    LONG result = RegCreateKeyExA(HKEY_CURRENT_USER, RunKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  KEY_WRITE, nullptr, &key, &disposition);
    if (result != ERROR_SUCCESS) {
        MsgBox(QStringLiteral("Error ") + QString::number(result) + QStringLiteral(" opening key") +
               QStringLiteral("\r\n") + errorDescription());
        return;
    }
    const QByteArray name = exeName.toLocal8Bit();
    if (enable) {
        // Unquoted, with one NUL written as part of the data.
        QByteArray data = (programFolder + u'\\' + exeName + QStringLiteral(".exe")).toLocal8Bit();
        data.append('\0');
        result =
            RegSetValueExA(key, name.constData(), 0, REG_SZ,
                           reinterpret_cast<const BYTE*>(data.constData()), DWORD(data.size()));
        if (result != ERROR_SUCCESS)
            MsgBox(QStringLiteral("Error ") + QString::number(result) +
                   QStringLiteral(" setting key") + QStringLiteral("\r\n") + errorDescription());
    } else {
        RegDeleteValueA(key, name.constData());
    }
    RegCloseKey(key);
}

void SetRunOnStart(const QString& exeName, const QString& programFolder)
{
    // The same value the scripting shell's RegWrite gives, in the machine's Run key.
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, RunKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &key, nullptr) != ERROR_SUCCESS)
        return;
    const QByteArray name = exeName.toLocal8Bit();
    QByteArray data = (programFolder + u'\\' + exeName + QStringLiteral(".exe")).toLocal8Bit();
    RegSetValueExA(key, name.constData(), 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(data.constData()), DWORD(data.size() + 1));
    RegCloseKey(key);
}
