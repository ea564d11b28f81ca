#pragma once

#include "tray/systrayshell.h"

#include <memory>

class QWidget;

// The desktop's own notification area, talked to directly (Windows:
// Shell_NotifyIconW on the control's window). Null where Qt's tray icon
// serves instead.
std::unique_ptr<SysTrayShell> createNativeSysTrayShell(QWidget* control);
