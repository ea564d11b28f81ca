#pragma once

#include "testsupport.h"

#include <QByteArray>
#include <QDir>
#include <QImage>
#include <QPoint>
#include <QProcess>
#include <QRect>
#include <QString>
#include <QStringList>

// Tests of the notification area run on the xtray fixture's display (Xvfb
// with trayer). Call useXtrayDisplay() in main before the application exists.
inline bool useXtrayDisplay()
{
    const QString display = serviceEnv(QStringLiteral("xtray")).value(QStringLiteral("DISPLAY"));
    if (display.isEmpty())
        return false;
    qputenv("DISPLAY", display.toUtf8());
    qputenv("QT_QPA_PLATFORM", "xcb");
    return true;
}

// Runs the fixture script: "kill-trayer" or "start-trayer".
inline bool xtrayCommand(const QString& command)
{
    const QString script =
        qEnvironmentVariable("QUORVEL_TEST_SUPPORT") + QStringLiteral("/xtray.sh");
    return QProcess::execute(QStringLiteral("bash"),
                             {script, command, qEnvironmentVariable("QUORVEL_TEST_STATE")}) == 0;
}

inline bool xdotool(const QStringList& args)
{
    return QProcess::execute(QStringLiteral("xdotool"), args) == 0;
}

// Clicks BUTTON (1 left, 2 middle, 3 right) REPEAT times at P.
inline bool clickAt(const QPoint& p, int button, int repeat = 1)
{
    return xdotool({QStringLiteral("mousemove"), QString::number(p.x()), QString::number(p.y()),
                    QStringLiteral("click"), QStringLiteral("--repeat"), QString::number(repeat),
                    QStringLiteral("--delay"), QStringLiteral("80"), QString::number(button)});
}

// A screenshot of the whole display (ImageMagick's import), kept under the
// build tree as NAME.png.
inline QImage screenshot(const QString& name)
{
    const QString folder = qEnvironmentVariable("QUORVEL_SCREENSHOTS");
    QDir().mkpath(folder);
    const QString file = folder + u'/' + name + QStringLiteral(".png");
    if (QProcess::execute(QStringLiteral("import"),
                          {QStringLiteral("-window"), QStringLiteral("root"), file}) != 0)
        return QImage();
    return QImage(file);
}

// Keeps the part RECT of SHOT as NAME_crop.png beside the screenshots.
inline bool saveCrop(const QImage& shot, const QRect& rect, const QString& name)
{
    return shot.copy(rect).save(qEnvironmentVariable("QUORVEL_SCREENSHOTS") + u'/' + name +
                                QStringLiteral("_crop.png"));
}

// Pixels within rect whose colour is close to colour.
inline int countColour(const QImage& image, const QRect& rect, QRgb colour, int tolerance = 24)
{
    int count = 0;
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QRgb p = image.pixel(x, y);
            if (qAbs(qRed(p) - qRed(colour)) <= tolerance &&
                qAbs(qGreen(p) - qGreen(colour)) <= tolerance &&
                qAbs(qBlue(p) - qBlue(colour)) <= tolerance)
                ++count;
        }
    return count;
}
