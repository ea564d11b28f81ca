#include "platform/netscancommand.h"

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

std::wstring fromAnsi(const std::string& text)
{
    const int n = MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), nullptr, 0);
    std::wstring out(size_t(n > 0 ? n : 0), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), out.data(), n);
    return out;
}
} // namespace

std::wstring NetViewOutput()
{
    // The shell's Exec + ReadAll: the whole standard output once the command ends.
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0))
        return std::wstring();
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = writeEnd;
    si.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION pi{};
    std::wstring line = L"net view";
    const bool started = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                                        CREATE_NO_WINDOW, nullptr, nullptr, &si, &pi);
    CloseHandle(writeEnd); // the pipe ends with the command
    std::string output;
    char chunk[4096];
    DWORD n = 0;
    while (started && ReadFile(readEnd, chunk, sizeof chunk, &n, nullptr) && n > 0)
        output.append(chunk, n);
    CloseHandle(readEnd);
    if (started) {
        WaitForSingleObject(pi.hProcess, INFINITE);
        CloseHandle(pi.hThread);
        CloseHandle(pi.hProcess);
    }
    return fromAnsi(output);
}

std::vector<std::string> SocketsInitialize()
{
    std::vector<std::string> messages;
    WSADATA data{};
    if (WSAStartup(257, &data) != 0) {
        messages.push_back("Winsock.dll is not responding.");
        return messages;
    }
    const int low = lowByte(data.wVersion), high = highByte(data.wVersion);
    if (low < 1 || (low == 1 && high < 1))
        messages.push_back("Windows Sockets version " + std::to_string(low) + "." +
                           std::to_string(high) + " is not supported by winsock.dll ");
    if (data.iMaxSockets < 1)
        messages.push_back("This application requires a minimum of " + std::to_string(1) +
                           " supported sockets.");
    return messages;
}

std::string SocketsCleanup()
{
    if (WSACleanup() != 0)
        return "Socket error " + std::to_string(GetLastError()) + " occurred in Cleanup ";
    return std::string();
}

std::string LookupFirstIPv4(const std::wstring& name)
{
    const int n = WideCharToMultiByte(CP_ACP, 0, name.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string ansi(size_t(n > 0 ? n : 1), '\0');
    WideCharToMultiByte(CP_ACP, 0, name.c_str(), -1, ansi.data(), n, nullptr, nullptr);
    const hostent* host = gethostbyname(ansi.c_str());
    if (!host || !host->h_addr_list || !host->h_addr_list[0])
        return std::string();
    const auto* bytes = reinterpret_cast<const unsigned char*>(host->h_addr_list[0]);
    std::string address;
    for (int i = 0; i < 4; ++i)
        address += std::to_string(bytes[i]) + (i < 3 ? "." : "");
    return address;
}
