#pragma once

#include "common/int16.h"
#include "tray/notifyicondata.h"
#include "tray/systrayshell.h"

#include <QString>
#include <QVariant>
#include <QWidget>
#include <memory>

class QLabel;

// One icon in the notification area with balloon tips, blinking and a
// machine-wide instance number. It turns the shell's notifications into
// events and never lets an error reach its host: failures come out as
// PgmError(source, code, description), with French texts for usage errors.
class ctlSysTrayBalloon : public QWidget
{
    Q_OBJECT
public:
    // The shell defaults to the desktop's notification area.
    explicit ctlSysTrayBalloon(QWidget* parent = nullptr,
                               std::unique_ptr<SysTrayShell> shell = nullptr);
    ~ctlSysTrayBalloon() override;

    // Properties
    void IconPicture(QLabel* NewValue);
    void BlinkIconPicture(QLabel* NewValue);
    void setTooltip(const QString& Message128);
    QString Tooltip();
    bool BlinkIsRunning() const { return m_BlinkRunning; }
    qint32 ID() const { return m_InstanceNumber; }

    // Methods
    bool SysTrayAddIcon();
    QVariant SysTrayRemoveIcon();
    bool BalloonTipShow(const QString& Title64Unicode, const QString& Message256Unicode,
                        qint32 Style, qint32 Timeout_mSec);
    void BalloonTipShowLast();
    void BalloonTipClose();
    void BlinkStart(qint32 CycleMilliSeconds);
    void BlinkStop();

    // The window procedure, reached through the shell only.
    qintptr CallBackProc(quintptr hwnd, quint32 uMsg, quintptr wParam, qintptr lParam);

    // Read-only views of the state the shell is given.
    qint32 iconId() const { return m_IconId; }
    qint32 taskbarTimerId() const { return m_IconId + 1; }
    qint32 balloonTimerId() const { return m_IconId + 2; }
    qint32 blinkTimerId() const { return m_IconId + 3; }
    bool isLoaded() const { return m_Loaded; }
    const NotifyIconData& notificationRecord() const { return m_Nid; }
    SysTrayShell* shell() const { return m_Shell.get(); }

    static const char* const SectionName; // "Tessivane_ctlSysTrayBalloon"

signals:
    void MouseMove();
    void Click();
    void DblClick(int Button);
    void MouseDown(int Button);
    void MouseUp(int Button);
    void BalloonClosed();
    void BalloonClicked();
    void BalloonShow();
    void BalloonTimeOut();
    void PgmError(const QString& Source, int Code, const QString& Description);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    friend struct ctlSysTrayBalloonTestAccess;

    void UserControl_ReadProperties();
    qint32 SingletonIncrement(const QString& name);
    qint32 SingletonDecrement(const QString& name);
    bool Initialize();
    bool SysTrayIconRefresh();
    void BlinkSwapIcons();
    quintptr FindBalloonWindow(QString searched);
    void TaskbarWatchTick();
    void StartSubclass();
    void StopSubclass();
    void StartTimer(quintptr id, qint32 period, bool& running);
    void StopTimer(quintptr id, bool& running);

    // Runs body under the routine's error trap: a run-time error becomes
    // PgmError(source, number, description) and the failed value is returned.
    template <typename R, typename F> R trapped(const char* source, R failed, F&& body);

    std::unique_ptr<SysTrayShell> m_Shell;

    qint32 m_InstanceNumber = 0;
    qint32 m_IconId = 996;
    bool m_TaskbarWatchRunning = false;
    bool m_BalloonTimerRunning = false;
    bool m_BlinkRunning = false;
    bool m_ClosingBalloon = false;
    bool m_Loaded = false;
    TrayIconRef m_StandardIcon;
    TrayIconRef m_BlinkIcon;
    QString m_LastTitle, m_LastMessage;
    qint32 m_LastStyle = 0, m_LastTimeout = 0;
    qint32 m_BlinkCycle = 0;
    bool m_BlinkPhase = false; // kept across stops
    quintptr m_PrevWndProc = 0;
    quintptr m_TaskbarWnd = 0;
    NotifyIconData m_Nid;

    bool m_CounterTaken = false; // never set: the count is never given back
    Int16 m_IncrementGuard;
    Int16 m_DecrementGuard;
};
