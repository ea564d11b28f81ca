#pragma once

#include "tray/systrayshell.h"

#include <memory>

class QWidget;

// The desktop's own notification area (platform/nativesystrayshell.h) behind
// the tray control's shell interface. Null where Qt's tray icon serves instead.
std::unique_ptr<SysTrayShell> createNativeSysTrayShell(QWidget* control);
