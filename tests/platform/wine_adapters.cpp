// The Windows adapters against the Windows API as Wine gives it; plain C++, no Qt.
#include "platform/filelock.h"
#include "platform/nativesystrayshell.h"
#include "platform/netscancommand.h"
#include "platform/pages.h"
#include "platform/printertools.h"
#include "platform/rawsocket.h"
#include "platform/safefile.h"
#include "platform/sharedcounter.h"
#include "platform/startupentry.h"

#include <algorithm>
#include <cstdio>
#include <windows.h>

static int failed = 0;
#define CHECK(c) ((c) ? void() : void((++failed, std::printf("FAIL line %d: %s\n", __LINE__, #c))))

static DWORD runSelf() // this program again: the count it sees in the section, 0 for none
{
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring line = L"\"" + std::wstring(self) + L"\" read";
    STARTUPINFOW si{sizeof si};
    PROCESS_INFORMATION pi{};
    DWORD code = 999;
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                       &pi))
        WaitForSingleObject(pi.hProcess, 30000), GetExitCodeProcess(pi.hProcess, &code);
    return code;
}

static std::string field(const std::wstring& text) // a record text: its UTF-16 bytes and a zero
{
    return std::string(reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * 2);
}

int main(int argc, char**)
{
    const std::string section = "Quorvel_wine_section";
    std::int32_t count = 0;
    if (argc > 1) { // the second process
        auto seen = SharedSection::openExisting(section);
        return seen && seen->read(count) ? count : 0;
    }
    // The Run key
    const std::wstring exe = L"quorvel_wine", folder = L"C:\\Program Files\\Quorvel";
    CHECK(RunEntrySet(exe, folder, true).empty() && RunEntryExists(exe) &&
          !RunEntryExists(L"other"));
    wchar_t data[MAX_PATH] = {};
    DWORD bytes = sizeof data;
    CHECK(RegGetValueW(HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Run",
                       exe.c_str(), RRF_RT_REG_SZ, nullptr, data, &bytes) == ERROR_SUCCESS);
    CHECK(data == folder + L"\\" + exe + L".exe"); // the full path, unquoted
    CHECK(RunEntrySet(exe, folder, false).empty() && !RunEntryExists(exe));
    // The shared counter's section
    if (auto held = SharedSection::create(section)) // seen by a second process while held
        CHECK(held->write(42) && runSelf() == 42 &&
              !SharedSection::openExisting(section)->write(1));
    CHECK(runSelf() == 0 && !SharedSection::openExisting(section)); // gone with its last holder
    // The printer tools start; the printer list may be empty
    CHECK(PrinterTools::showPrinterList() && PrinterTools::showQueue(L"none") &&
          PrinterTools::acceptsJobs(L"none"));
    for (const auto& [name, offline] : PrinterTools::offlineStates())
        std::printf("printer %ls%s\n", name.c_str(), offline ? " (off-line)" : "");
    // The notification-area icon, its messages reaching the window procedure
    HWND window =
        CreateWindowW(L"STATIC", L"tray", 0, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
    auto tray = createNativeTray([&] { return std::uintptr_t(window); },
                                 [&] { return std::uintptr_t(window); });
    std::vector<std::intptr_t> seen; // the callback's lParam, or the timer's id
    std::uintptr_t previous = 0;
    previous =
        tray->subclass([&](std::uintptr_t h, std::uint32_t m, std::uintptr_t w, std::intptr_t l) {
            if (m == WM_USER + 1 || m == WM_TIMER)
                seen.push_back(m == WM_TIMER ? std::intptr_t(w) : l);
            return tray->callPrevious(previous, h, m, w, l);
        });
    NativeTray::Record r{std::uintptr_t(window), 1000, NIF_MESSAGE | NIF_ICON | NIF_TIP,
                         WM_USER + 1};
    r.hIcon = {
        1, [](int size) { return std::vector<std::uint32_t>(size_t(size * size), 0xff2050a0); }};
    r.szTip = field(L"Quorvel");
    CHECK(previous && tray->notifyIcon(NIM_ADD, r) == 1);
    r.szTip = field(L"Quorvel: 1 job");
    CHECK(tray->notifyIcon(NIM_MODIFY, r) == 1);
    r.uFlags = NIF_INFO, r.szInfo = field(L"Printed"), r.szInfoTitle = field(L"Quorvel"),
    r.uTimeoutOrVersion = 5000;
    CHECK(tray->notifyIcon(NIM_MODIFY, r) == 1);
    PostMessageW(window, WM_USER + 1, 1000, WM_LBUTTONUP);
    CHECK(tray->setTimer(7, 20) == 7);
    MSG msg;
    auto saw = [&](std::intptr_t what) { return std::count(seen.begin(), seen.end(), what) > 0; };
    for (DWORD end = GetTickCount() + 10000;
         !(saw(WM_LBUTTONUP) && saw(7)) && GetTickCount() < end;)
        PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE) ? void(DispatchMessageW(&msg)) : Sleep(5);
    CHECK(saw(WM_LBUTTONUP) && saw(7));
    for (std::intptr_t v : seen)
        std::printf("window procedure got %lld\n", static_cast<long long>(v));
    tray->killTimer(7);
    CHECK(tray->className(std::uintptr_t(window)) == "Static" &&
          tray->windowText(std::uintptr_t(window), 3) == L"tr");
    CHECK(tray->notifyIcon(NIM_DELETE, r) == 1 && tray->notifyIcon(NIM_DELETE, r) == 0);
    tray->unsubclass(previous);
    // A connection on 127.0.0.1 read byte-exact through the raw socket
    CHECK(SocketsInitialize().empty() && LookupFirstIPv4(L"localhost") == "127.0.0.1");
    sockaddr_in at{AF_INET, 0, {}};
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof at;
    SOCKET server = socket(AF_INET, SOCK_STREAM, 0), client = socket(AF_INET, SOCK_STREAM, 0);
    bind(server, reinterpret_cast<sockaddr*>(&at), size), listen(server, 1);
    getsockname(server, reinterpret_cast<sockaddr*>(&at), &size);
    CHECK(connect(client, reinterpret_cast<sockaddr*>(&at), size) == 0);
    const std::intptr_t peer = std::intptr_t(accept(server, nullptr, nullptr));
    std::string sent(256, '\0'), got;
    for (int i = 0; i < 256; ++i)
        sent[size_t(i)] = char(i);
    rawsocket::setNonBlocking(peer);
    char chunk[100]; // several reads, and none waits
    CHECK(rawsocket::receive(peer, chunk, sizeof chunk) == rawsocket::WouldBlock);
    send(client, sent.data(), 256, 0), shutdown(client, SD_SEND);
    for (std::int64_t n = 1, tries = 0; n != 0 && n != rawsocket::Failed && tries < 2000; ++tries)
        (n = rawsocket::receive(peer, chunk, sizeof chunk)) > 0 ? void(got.append(chunk, size_t(n)))
                                                                : Sleep(5);
    sockaddr_storage from{};
    CHECK(got == sent && rawsocket::peerName(peer, from) &&
          reinterpret_cast<sockaddr_in&>(from).sin_addr.s_addr == at.sin_addr.s_addr);
    rawsocket::close(peer), closesocket(client), closesocket(server);
    CHECK(SocketsCleanup().empty() && !NetViewOutput().empty());
    // The file lock and page memory
    const std::wstring file = L"C:\\windows\\temp\\quorvel-lock.txt";
    HANDLE open = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    CHECK(heldOpenByAnotherProcess(file) && CloseHandle(open) && !heldOpenByAnotherProcess(file));
    auto* block = static_cast<char*>(pages::allocate(4096));
    block[4095] = 'q', block = static_cast<char*>(pages::grow(block, 4096, 1 << 20));
    CHECK(block && block[4095] == 'q');
    pages::release(block, 1 << 20);
    // Job files: made once under a name, then replaced
    const std::wstring job = L"C:\\windows\\temp\\quorvel-job.ps";
    DeleteFileW(job.c_str());
    using safefile::Mode, safefile::Result;
    CHECK(safefile::write(job, {"%!PS", "\n"}, Mode::Exclusive) == Result::Written &&
          safefile::write(job, {}, Mode::Exclusive) == Result::Taken && safefile::taken(job) &&
          !safefile::isLink(job) && safefile::write(job, {"x"}, Mode::Replace) == Result::Written);
    std::printf("%s\n", failed ? "FAILED" : "all passed");
    return failed ? 1 : 0;
}
