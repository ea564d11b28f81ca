#pragma once

#include <QByteArray>
#include <QIcon>
#include <QString>
#include <QtGlobal>

// The shell's notification record (wide-character, version 5 layout) and the
// message numbers the tray control speaks. The record is kept for the
// control's whole life and reused for every call, so texts written once stay
// until they are overwritten.
namespace tray
{
constexpr quint32 NIM_ADD = 0;
constexpr quint32 NIM_MODIFY = 1;
constexpr quint32 NIM_DELETE = 2;
constexpr quint32 NIM_SETVERSION = 4;

constexpr quint32 NIF_MESSAGE = 1;
constexpr quint32 NIF_ICON = 2;
constexpr quint32 NIF_TIP = 4;
constexpr quint32 NIF_INFO = 16;

constexpr quint32 NIS_SHAREDICON = 2;
constexpr quint32 NOTIFYICON_VERSION = 3;
constexpr quint32 NOTIFYICONDATAW_V5_SIZE = 936;

constexpr quint32 WM_GETTEXT = 0x0D;
constexpr quint32 WM_GETTEXTLENGTH = 0x0E;
constexpr quint32 WM_TIMER = 0x113;
constexpr quint32 WM_MOUSEMOVE = 0x200;
constexpr quint32 WM_LBUTTONDOWN = 0x201;
constexpr quint32 WM_LBUTTONUP = 0x202;
constexpr quint32 WM_LBUTTONDBLCLK = 0x203;
constexpr quint32 WM_RBUTTONDOWN = 0x204;
constexpr quint32 WM_RBUTTONUP = 0x205;
constexpr quint32 WM_RBUTTONDBLCLK = 0x206;
constexpr quint32 WM_MBUTTONDOWN = 0x207;
constexpr quint32 WM_MBUTTONUP = 0x208;
constexpr quint32 WM_MBUTTONDBLCLK = 0x209;
constexpr quint32 WM_USER = 0x400;
constexpr quint32 WM_TRAYCALLBACK = WM_USER + 1; // 1025

constexpr quint32 NIN_SELECT = WM_USER;
constexpr quint32 NIN_KEYSELECT = WM_USER + 1;
constexpr quint32 NIN_BALLOONSHOW = WM_USER + 2;
constexpr quint32 NIN_BALLOONHIDE = WM_USER + 3;
constexpr quint32 NIN_BALLOONTIMEOUT = WM_USER + 4;
constexpr quint32 NIN_BALLOONUSERCLICK = WM_USER + 5;

constexpr int TipBytes = 256;
constexpr int InfoBytes = 512;
constexpr int InfoTitleBytes = 128;
} // namespace tray

// An icon as the record holds it: a handle (0 = none) and what to draw.
struct TrayIconRef {
    quintptr handle = 0;
    QIcon icon;
};

struct NotifyIconData {
    quint32 cbSize = 0;
    quintptr hWnd = 0;
    quint32 uID = 0;
    quint32 uFlags = 0;
    quint32 uCallbackMessage = 0;
    TrayIconRef hIcon;
    QByteArray szTip = QByteArray(tray::TipBytes, '\0');
    quint32 dwState = 0;
    quint32 dwStateMask = 0;
    QByteArray szInfo = QByteArray(tray::InfoBytes, '\0');
    quint32 uTimeoutOrVersion = 0; // one union in the shell's record
    QByteArray szInfoTitle = QByteArray(tray::InfoTitleBytes, '\0');
    quint32 dwInfoFlags = 0;
};

// Copies the UTF-16 bytes of text into the fixed field: at most size - 2
// bytes, then zeros from where copying stopped to the end, so the field is
// always terminated. An empty text leaves the field untouched.
void StringToFixedBuffer(QByteArray& field, const QString& text);

// The text of a field up to its first zero character.
QString FixedBufferText(const QByteArray& field);

// The whole field as characters, zeros included.
QString FixedBufferChars(const QByteArray& field);
