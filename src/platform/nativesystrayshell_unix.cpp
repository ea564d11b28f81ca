#include "platform/nativesystrayshell.h"

std::unique_ptr<NativeTray> createNativeTray(std::function<std::uintptr_t()>,
                                             std::function<std::uintptr_t()>)
{
    return nullptr; // QSystemTrayIcon speaks the X11 tray protocol
}
