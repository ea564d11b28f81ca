// Printer tools and printer state on Windows: the rundll32 printer tools,
// the shell for folders, the spooler for the work-off-line flag.
#include "platform/printertools.h"

#include <cstdio>
#include <vector>

// windows.h first: the others build on it.
#include <windows.h>

#include <shellapi.h>
#include <winspool.h>

namespace
{
// Started minimised with focus, without waiting, as the shell would.
bool run(std::wstring line)
{
    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESHOWWINDOW;
    si.wShowWindow = SW_SHOWMINIMIZED;
    PROCESS_INFORMATION pi{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                        &pi))
        return false;
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return true;
}
} // namespace

namespace PrinterTools
{
std::wstring propertiesTarget(const std::wstring& printerName)
{
    return L"rundll32.exe printui.dll,PrintUIEntry /p /n \"" + printerName + L"\"";
}

std::wstring queueTarget(const std::wstring& printerName)
{
    return L"rundll32.exe printui.dll,PrintUIEntry /o /n \"" + printerName + L"\"";
}

std::wstring printerListTarget()
{
    return L"rundll32.exe shell32.dll,SHHelpShortcuts_RunDLL PrintersFolder";
}

bool showProperties(const std::wstring& printerName)
{
    return run(propertiesTarget(printerName));
}

bool showQueue(const std::wstring& printerName)
{
    return run(queueTarget(printerName));
}

bool showPrinterList()
{
    return run(printerListTarget());
}

bool openFolder(const std::wstring& folder)
{
    // Above 32: started.
    return INT_PTR(ShellExecuteW(nullptr, nullptr, folder.c_str(), nullptr, nullptr,
                                 SW_SHOWNORMAL)) > 32;
}

std::map<std::wstring, bool> offlineStates()
{
    std::map<std::wstring, bool> states;
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
        states[info[i].pPrinterName] = (info[i].Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE) != 0;
    return states;
}

bool acceptsJobs(const std::wstring&)
{
    return true; // the spooler keeps jobs of a paused or off-line printer
}

bool printRaw(const std::wstring& printerName, const std::wstring& file, const std::wstring& title,
              std::wstring* why)
{
    const auto fail = [why](const wchar_t* what) {
        if (why)
            *why = std::wstring(what) + L" (error " + std::to_wstring(GetLastError()) + L")";
        return false;
    };
    FILE* in = _wfopen(file.c_str(), L"rb");
    if (!in)
        return fail(L"the file cannot be read");
    HANDLE printer = nullptr;
    if (!OpenPrinterW(const_cast<wchar_t*>(printerName.c_str()), &printer, nullptr)) {
        std::fclose(in);
        return fail(L"no such printer");
    }
    DOC_INFO_1W doc{const_cast<wchar_t*>(title.c_str()), nullptr, const_cast<wchar_t*>(L"RAW")};
    bool ok = StartDocPrinterW(printer, 1, reinterpret_cast<BYTE*>(&doc)) != 0;
    if (ok) {
        std::vector<char> buffer(1 << 16);
        size_t n = 0;
        while (ok && (n = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) {
            DWORD written = 0;
            ok = WritePrinter(printer, buffer.data(), DWORD(n), &written) && written == n;
        }
        ok = EndDocPrinter(printer) && ok;
    }
    std::fclose(in);
    ClosePrinter(printer);
    return ok || fail(L"the spooler refused the job");
}
} // namespace PrinterTools
