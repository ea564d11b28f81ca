// Printer tools and printer state on Windows: the rundll32 printer tools,
// the shell for folders, the spooler for the work-off-line flag.
#include "platform/printertools.h"

#include "convert/printers.h"

#include <string>
#include <vector>

// windows.h first: the others build on it.
#include <windows.h>

#include <shellapi.h>
#include <winspool.h>

namespace
{
std::wstring wide(const QString& text)
{
    return std::wstring(reinterpret_cast<const wchar_t*>(text.utf16()), size_t(text.size()));
}

// Started minimised with focus, without waiting, as the shell would.
void run(const QString& commandLine)
{
    std::wstring line = wide(commandLine);
    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESHOWWINDOW;
    si.wShowWindow = SW_SHOWMINIMIZED;
    PROCESS_INFORMATION pi{};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                       &pi)) {
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
}
} // namespace

namespace PrinterTools
{
QString propertiesTarget(const QString& printerName)
{
    return PrinterCommands::properties(printerName);
}

QString queueTarget(const QString& printerName)
{
    return PrinterCommands::queue(printerName);
}

QString printerListTarget()
{
    return PrinterCommands::printersFolder();
}

void showProperties(const QString& printerName)
{
    run(propertiesTarget(printerName));
}

void showQueue(const QString& printerName)
{
    run(queueTarget(printerName));
}

void showPrinterList()
{
    run(printerListTarget());
}

void openFolder(const QString& folder)
{
    const std::wstring path = wide(folder);
    ShellExecuteW(nullptr, nullptr, path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

QMap<QString, bool> offlineStates()
{
    QMap<QString, bool> states;
    const DWORD flags = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
    DWORD needed = 0, returned = 0;
    EnumPrintersW(flags, nullptr, 2, nullptr, 0, &needed, &returned);
    if (needed == 0)
        return states;
    std::vector<BYTE> buffer(needed);
    if (!EnumPrintersW(flags, nullptr, 2, buffer.data(), needed, &needed, &returned))
        return states;
    const auto* info = reinterpret_cast<const PRINTER_INFO_2W*>(buffer.data());
    for (DWORD i = 0; i < returned; ++i)
        states.insert(QString::fromWCharArray(info[i].pPrinterName),
                      (info[i].Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE) != 0);
    return states;
}

bool acceptsJobs(const QString&)
{
    return true; // the spooler keeps jobs of a paused or off-line printer
}
} // namespace PrinterTools
