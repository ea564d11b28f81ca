#include "platform/nativesystrayshell.h"

std::unique_ptr<SysTrayShell> createNativeSysTrayShell(QWidget*)
{
    return nullptr; // QSystemTrayIcon speaks the X11 tray protocol
}
