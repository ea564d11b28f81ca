// Qt's side of the native notification area: texts, lists and icons are
// converted here, the window system is spoken to by the platform.
#include "tray/nativetrayshell.h"

#include "platform/nativesystrayshell.h"

#include <QImage>
#include <QWidget>
#include <cstring>

namespace
{
NativeTray::Icon nativeIcon(const TrayIconRef& ref)
{
    NativeTray::Icon icon;
    icon.handle = ref.handle;
    if (ref.icon.isNull())
        return icon;
    icon.pixels = [qicon = ref.icon](int size) {
        const QImage image = qicon.pixmap(size, size)
                                 .toImage()
                                 .scaled(size, size)
                                 .convertToFormat(QImage::Format_ARGB32_Premultiplied);
        std::vector<std::uint32_t> pixels(size_t(size) * size_t(size));
        for (int y = 0; y < size; ++y)
            std::memcpy(pixels.data() + size_t(y) * size_t(size), image.constScanLine(y),
                        size_t(size) * 4);
        return pixels;
    };
    return icon;
}

class NativeTrayShell : public SysTrayShell
{
public:
    explicit NativeTrayShell(std::unique_ptr<NativeTray> tray) : m_tray(std::move(tray)) {}

    quintptr window() const override { return m_tray->window(); }

    int notifyIcon(quint32 message, const NotifyIconData& d) override
    {
        NativeTray::Record r;
        r.hWnd = d.hWnd;
        r.uID = d.uID;
        r.uFlags = d.uFlags;
        r.uCallbackMessage = d.uCallbackMessage;
        r.hIcon = nativeIcon(d.hIcon);
        r.szTip = d.szTip.toStdString();
        r.dwState = d.dwState;
        r.dwStateMask = d.dwStateMask;
        r.szInfo = d.szInfo.toStdString();
        r.uTimeoutOrVersion = d.uTimeoutOrVersion;
        r.szInfoTitle = d.szInfoTitle.toStdString();
        r.dwInfoFlags = d.dwInfoFlags;
        return m_tray->notifyIcon(message, r);
    }

    quintptr findTaskbarWindow() override { return m_tray->findTaskbarWindow(); }
    quintptr subclass(WindowProc proc) override
    {
        return m_tray->subclass([proc = std::move(proc)](std::uintptr_t h, std::uint32_t msg,
                                                         std::uintptr_t w, std::intptr_t l) {
            return std::intptr_t(proc(quintptr(h), msg, quintptr(w), qintptr(l)));
        });
    }
    void unsubclass(quintptr previous) override { m_tray->unsubclass(previous); }
    qintptr callPrevious(quintptr previous, quintptr h, quint32 msg, quintptr w, qintptr l) override
    {
        return m_tray->callPrevious(previous, h, msg, w, l);
    }
    quintptr setTimer(quintptr id, quint32 periodMs) override
    {
        return m_tray->setTimer(id, periodMs);
    }
    void killTimer(quintptr id) override { m_tray->killTimer(id); }
    void setForegroundWindow() override { m_tray->setForegroundWindow(); }
    QList<quintptr> topLevelWindows() override
    {
        QList<quintptr> windows;
        for (std::uintptr_t w : m_tray->topLevelWindows())
            windows.append(w);
        return windows;
    }
    QString className(quintptr window) override
    {
        const std::string name = m_tray->className(window);
        return QString::fromLatin1(name.data(), qsizetype(name.size()));
    }
    QString balloonClassName() const override
    {
        return QString::fromStdString(m_tray->balloonClassName());
    }
    qintptr sendMessage(quintptr window, quint32 msg, quintptr w, qintptr l) override
    {
        return m_tray->sendMessage(window, msg, w, l);
    }
    QString windowText(quintptr window, int maxChars) override
    {
        return QString::fromStdWString(m_tray->windowText(window, maxChars));
    }

private:
    std::unique_ptr<NativeTray> m_tray;
};
} // namespace

std::unique_ptr<SysTrayShell> createNativeSysTrayShell(QWidget* control)
{
    auto tray = createNativeTray([control] { return std::uintptr_t(control->winId()); },
                                 [control] { return std::uintptr_t(control->window()->winId()); });
    if (!tray)
        return nullptr;
    return std::make_unique<NativeTrayShell>(std::move(tray));
}
