#include "platform/startupentry.h"

#include <windows.h>

namespace
{
const char RunKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Run";

// The registry is written in the local 8-bit code page.
std::string ansi(const std::wstring& text)
{
    const int n =
        WideCharToMultiByte(CP_ACP, 0, text.data(), int(text.size()), nullptr, 0, nullptr, nullptr);
    std::string out(size_t(n > 0 ? n : 0), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), int(text.size()), out.data(), n, nullptr, nullptr);
    return out;
}

std::wstring errorDescription()
{
    const DWORD error = GetLastError();
    if (error == 0)
        return std::wstring();
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                       FORMAT_MESSAGE_IGNORE_INSERTS,
                   nullptr, error, 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    const std::wstring description = text ? text : L"";
    LocalFree(text);
    const wchar_t* blanks = L" \t\r\n";
    const size_t first = description.find_first_not_of(blanks);
    if (first == std::wstring::npos)
        return std::wstring();
    return description.substr(first, description.find_last_not_of(blanks) - first + 1);
}

std::wstring failure(LONG result, const wchar_t* what)
{
    return L"Error " + std::to_wstring(result) + what + L"\r\n" + errorDescription();
}
} // namespace

std::wstring RunEntryLocation(const std::wstring& exeName)
{
    return L"HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Run\\" + exeName;
}

bool RunEntryExists(const std::wstring& exeName)
{
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, RunKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    const bool found = RegQueryValueExA(key, ansi(exeName).c_str(), nullptr, nullptr, nullptr,
                                        nullptr) == ERROR_SUCCESS;
    RegCloseKey(key);
    return found;
}

std::wstring RunEntrySet(const std::wstring& exeName, const std::wstring& programFolder,
                         bool enable)
{
    HKEY key = nullptr;
    DWORD disposition = 0;
    LONG result = RegCreateKeyExA(HKEY_CURRENT_USER, RunKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  KEY_WRITE, nullptr, &key, &disposition);
    if (result != ERROR_SUCCESS)
        return failure(result, L" opening key");
    const std::string name = ansi(exeName);
    std::wstring message;
    if (enable) {
        // Unquoted, with one NUL written as part of the data.
        const std::string data = ansi(programFolder + L'\\' + exeName + L".exe");
        result =
            RegSetValueExA(key, name.c_str(), 0, REG_SZ,
                           reinterpret_cast<const BYTE*>(data.c_str()), DWORD(data.size() + 1));
        if (result != ERROR_SUCCESS)
            message = failure(result, L" setting key");
    } else {
        RegDeleteValueA(key, name.c_str());
    }
    RegCloseKey(key);
    return message;
}

void SetRunOnStart(const std::wstring& exeName, const std::wstring& programFolder)
{
    // The same value the scripting shell's RegWrite gives, in the machine's Run key.
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, RunKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &key, nullptr) != ERROR_SUCCESS)
        return;
    const std::string data = ansi(programFolder + L'\\' + exeName + L".exe");
    RegSetValueExA(key, ansi(exeName).c_str(), 0, REG_SZ,
                   reinterpret_cast<const BYTE*>(data.c_str()), DWORD(data.size() + 1));
    RegCloseKey(key);
}
