// The tray icon's host side and the start-up entry.
#include "server/frmmain.h"

#include "common/doevents.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "jobs/frmjobs.h"
#include "platform/startupentry.h"
#include "tray/ctlsystrayballoon.h"

#include <QAction>
#include <QCheckBox>
#include <QCoreApplication>
#include <QCursor>
#include <QFileInfo>
#include <QGroupBox>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSystemTrayIcon>

namespace
{
QString executableName()
{
    return QFileInfo(QCoreApplication::applicationFilePath()).completeBaseName();
}

// The second picture of the demonstration buttons lives beside Image5.
QLabel* blinkPicture(QGroupBox* frame)
{
    return frame->findChild<QLabel*>(QStringLiteral("Image6"));
}
} // namespace

void frmMain::setupTray()
{
    Image5->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel.png")));
    auto* image6 = new QLabel(Frame1);
    image6->setObjectName(QStringLiteral("Image6"));
    image6->setPixmap(QPixmap(QStringLiteral(":/tray/icons/quorvel_blink.png")));
    image6->hide();

    ctlSysTrayBalloon1 = new ctlSysTrayBalloon(this);
    auto* t = ctlSysTrayBalloon1;
    connect(t, &ctlSysTrayBalloon::DblClick, this,
            Guarded([this](int Button) { ctlSysTrayBalloon1_DblClick(Button); }));
    connect(t, &ctlSysTrayBalloon::MouseUp, this,
            Guarded([this](int Button) { ctlSysTrayBalloon1_MouseUp(Button); }));
    connect(t, &ctlSysTrayBalloon::PgmError, this,
            Guarded([this](const QString& Source, int Code, const QString& Description) {
                ctlSysTrayBalloon1_PgmError(Source, Code, Description);
            }));
    // MouseMove, Click, BalloonClosed, BalloonClicked, BalloonShow and
    // BalloonTimeOut need nothing from the window.
}

void frmMain::cmdStartStop_Click()
{
    if (cmdStartStop->text() != QStringLiteral("Stop SysTray")) {
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            Log::line(QStringLiteral("No notification area on this display: Quorvel runs without "
                                     "its tray icon until one appears"));
        ctlSysTrayBalloon1->IconPicture(Image5);
        ctlSysTrayBalloon1->setTooltip(QStringLiteral("Quorvel"));
        ctlSysTrayBalloon1->SysTrayAddIcon();
        cmdStartStop->setText(QStringLiteral("Stop SysTray"));
    } else {
        ctlSysTrayBalloon1->SysTrayRemoveIcon();
        cmdStartStop->setText(QStringLiteral("Start SysTray"));
    }
}

void frmMain::showProgress(const QString& job, int done, int total)
{
    // The tray control keeps its old text when given an empty one: the name goes back explicitly.
    const QString text = total < 0 ? QString()
                         : total > 0
                             ? QStringLiteral("Converting %1 of %2 pages").arg(done).arg(total)
                             : QStringLiteral("Converting job %1").arg(job);
    ctlSysTrayBalloon1->setTooltip(text.isEmpty() ? QStringLiteral("Quorvel") : text);
    if (m_FrmJobs)
        m_FrmJobs->setProgress(text);
    if (total < 0)
        return;
    emit progressed(job, done, total);
    if (total > 0)
        DoEvents(); // the window answers between pages; a run's start is no place for a second job
}

void frmMain::showFetchProgress(qint64 received, qint64 total)
{
    const auto kb = [](qint64 bytes) { return QString::number((bytes + 1023) / 1024); };
    const QString text =
        total > 0
            ? QStringLiteral("Fetching the cloud job: %1 of %2 KB").arg(kb(received), kb(total))
            : QStringLiteral("Fetching the cloud job: %1 KB").arg(kb(received));
    ctlSysTrayBalloon1->setTooltip(text);
    if (m_FrmJobs)
        m_FrmJobs->setProgress(text);
    emit fetchProgressed(received, total);
}

void frmMain::cmdClignote1_Click()
{
    if (ctlSysTrayBalloon1->BlinkIsRunning()) {
        ctlSysTrayBalloon1->BlinkStop();
    } else {
        ctlSysTrayBalloon1->BlinkIconPicture(blinkPicture(Frame1));
        ctlSysTrayBalloon1->BlinkStart(500);
    }
}

void frmMain::cmdAlternanceIcone1_Click()
{
    // Alternates the standard icon between the two pictures.
    const bool alternate = !cmdAlternanceIcone1->property("alternate").toBool();
    cmdAlternanceIcone1->setProperty("alternate", alternate);
    ctlSysTrayBalloon1->IconPicture(alternate ? blinkPicture(Frame1) : Image5);
}

void frmMain::cmdMessage1_Click()
{
    ctlSysTrayBalloon1->BalloonTipShow(
        QStringLiteral("Quorvel"), QStringLiteral("This message closes after 5 seconds."), 1, 5000);
}

void frmMain::ctlSysTrayBalloon1_DblClick(int /*Button*/)
{
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void frmMain::ctlSysTrayBalloon1_MouseUp(int /*Button*/)
{
    mnuzMonMenu->setDefaultAction(mnuSettings);
    mnuzMonMenu->popup(QCursor::pos());
}

void frmMain::ctlSysTrayBalloon1_PgmError(const QString& Source, int Code,
                                          const QString& Description)
{
    MsgBox(QStringLiteral("(1) Erreur ") + QString::number(Code) + QStringLiteral(" - ") +
               Description,
           MsgIcon::Critical,
           QStringLiteral("ctlSysTrayBalloon1") + QStringLiteral(", procédure ") + u'"' + Source +
               u'"');
}

bool frmMain::startupEntryExists()
{
    return RunEntryExists(executableName().toStdWString());
}

void frmMain::ChkRun_Click()
{
    if (m_Loading)
        return;
    const std::wstring failure =
        RunEntrySet(executableName().toStdWString(),
                    QCoreApplication::applicationDirPath().toStdWString(), ChkRun->isChecked());
    if (!failure.empty())
        MsgBox(QString::fromStdWString(failure));
}
