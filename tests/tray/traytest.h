#pragma once
// Shared by the tray tests: the shipped icons, the icon's place on screen and
// every signal of the control written down as one line.
#include "tray/ctlsystrayballoon.h"
#include "tray/qtsystrayshell.h"

#include <QLabel>
#include <QStringList>
#include <QSystemTrayIcon>
#include <memory>

// A label holding :/tray/icons/NAME.png (or nothing with an empty name).
inline std::unique_ptr<QLabel> iconLabel(const QString& name = QString())
{
    auto label = std::make_unique<QLabel>();
    if (!name.isEmpty())
        label->setPixmap(QPixmap(QStringLiteral(":/tray/icons/%1.png").arg(name)));
    return label;
}

inline QtSysTrayShell* trayShell(ctlSysTrayBalloon* t)
{
    return static_cast<QtSysTrayShell*>(t->shell());
}

inline QRect trayIconRect(ctlSysTrayBalloon* t)
{
    QSystemTrayIcon* icon = trayShell(t)->trayIcon();
    return icon ? icon->geometry() : QRect();
}

inline QString pgmError(const QString& source, int code, const QString& text)
{
    return QStringLiteral("PgmError(%1,%2,%3)").arg(source).arg(code).arg(text);
}

// Appends each event of t to events: "Click", "MouseDown(1)", pgmError(...).
inline void recordTrayEvents(ctlSysTrayBalloon* t, QObject* context, QStringList& events)
{
    QStringList* e = &events;
    auto plain = [&](void (ctlSysTrayBalloon::*signal)(), const char* name) {
        QObject::connect(t, signal, context, [e, name] { *e << QLatin1String(name); });
    };
    auto button = [&](void (ctlSysTrayBalloon::*signal)(int), const char* name) {
        QObject::connect(t, signal, context, [e, name](int b) {
            *e << QStringLiteral("%1(%2)").arg(QLatin1String(name)).arg(b);
        });
    };
    plain(&ctlSysTrayBalloon::MouseMove, "MouseMove");
    plain(&ctlSysTrayBalloon::Click, "Click");
    plain(&ctlSysTrayBalloon::BalloonClosed, "BalloonClosed");
    plain(&ctlSysTrayBalloon::BalloonClicked, "BalloonClicked");
    plain(&ctlSysTrayBalloon::BalloonShow, "BalloonShow");
    plain(&ctlSysTrayBalloon::BalloonTimeOut, "BalloonTimeOut");
    button(&ctlSysTrayBalloon::DblClick, "DblClick");
    button(&ctlSysTrayBalloon::MouseDown, "MouseDown");
    button(&ctlSysTrayBalloon::MouseUp, "MouseUp");
    QObject::connect(t, &ctlSysTrayBalloon::PgmError, context,
                     [e](const QString& s, int c, const QString& d) { *e << pgmError(s, c, d); });
}
