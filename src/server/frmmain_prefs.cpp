// The windows beside the main form: preferences and jobs, reached by
// shortcut, by the background's context menu, or from the command line.
#include "server/frmmain.h"

#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "dispatch/aftersave.h"
#include "dispatch/jobfiles.h"
#include "dispatch/jobqueue.h"
#include "jobs/frmjobs.h"
#include "prefs/frmpreferences.h"
#include "prefs/preferences.h"
#include "server/socketlistener.h"

#include <QContextMenuEvent>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QMenu>
#include <QRegularExpression>
#include <QShortcut>
#include <QTimer>

void frmMain::setupPreferences()
{
    m_AfterSave = new AfterSave([this](const QString& line) { txtLog->append(line); }, this);
    auto* prefs = new QShortcut(QKeySequence(QStringLiteral("Ctrl+,")), this);
    auto* jobs = new QShortcut(QKeySequence(QStringLiteral("Ctrl+J")), this);
    connect(prefs, &QShortcut::activated, this, Guarded([this] { showPreferences(); }));
    connect(jobs, &QShortcut::activated, this, Guarded([this] { showJobs(); }));
    setToolTip(QStringLiteral("Right-click for more. Preferences: Ctrl+, Jobs: Ctrl+J"));
}

void frmMain::contextMenuEvent(QContextMenuEvent* event)
{
    QMenu menu(this);
    menu.addAction(QStringLiteral("Preferences..."), this, Guarded([this] { showPreferences(); }));
    menu.addAction(QStringLiteral("Jobs..."), this, Guarded([this] { showJobs(); }));
    menu.exec(event->globalPos());
}

void frmMain::showPreferences()
{
    if (!m_FrmPreferences) {
        // The port in use may come from --port: the window shows what runs.
        m_FrmPreferences =
            new FrmPreferences({{Prefs::kPort, QString::number(m_Listen.port)}}, this);
        m_FrmPreferences->setWindowFlag(Qt::Window);
        connect(
            m_FrmPreferences, &FrmPreferences::saved, this,
            Guarded([this](const QMap<QString, QString>& changed) { applyPreferences(changed); }));
        connect(m_FrmPreferences, &QDialog::finished, m_FrmPreferences, &QObject::deleteLater);
        connect(m_FrmPreferences, &QObject::destroyed, this,
                [this] { m_FrmPreferences = nullptr; });
    }
    m_FrmPreferences->show();
    m_FrmPreferences->raise();
    m_FrmPreferences->activateWindow();
}

void frmMain::showJobs()
{
    if (!m_FrmJobs) {
        m_FrmJobs = new FrmJobs(this);
        m_FrmJobs->setWindowFlag(Qt::Window);
        m_FrmJobs->setAttribute(Qt::WA_DeleteOnClose);
        connect(m_FrmJobs, &QObject::destroyed, this, [this] { m_FrmJobs = nullptr; });
        m_FrmJobs->resubmit = [this](const QString& path, bool consume) {
            bool taken = false;
            RunGuarded([&] { taken = resubmit(path, consume); });
            return taken;
        };
    }
    m_FrmJobs->reload();
    m_FrmJobs->show();
    m_FrmJobs->raise();
    m_FrmJobs->activateWindow();
}

bool frmMain::resubmit(const QString& path, bool consume)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        txtLog->append(QStringLiteral("%1 cannot be read again: %2")
                           .arg(QDir::toNativeSeparators(path), f.errorString()));
        return false;
    }
    const QByteArray bytes = f.readAll();
    const QString from = QStringLiteral("the jobs window");
    f.close();
    if (m_QueueAll) {
        // Spooled, or held until it can be: either way the queue has it now.
        m_JobQueue->add(bytes, from);
        if (consume)
            WipeFile(path);
        return true;
    }
    // The one buffer may hold a job still coming in: it is never replaced.
    if (!m_JobBuffer.isEmpty()) {
        MsgBox(QStringLiteral("A job is being received: try again once it is done."),
               MsgIcon::Information);
        return false;
    }
    m_JobBuffer = bytes;
    m_ClosingClient = from;
    // Gone before the new job is named: it may take the same name in this second.
    if (consume)
        WipeFile(path);
    Command1_Click();
    return true;
}

void frmMain::openWindow(const QString& name)
{
    if (name == QLatin1String("preferences"))
        showPreferences();
    else if (name == QLatin1String("jobs"))
        showJobs();
}

void frmMain::applyPreferences(const QMap<QString, QString>& changed)
{
    const auto number = [&](const char* key) { return changed.value(QLatin1String(key)).toInt(); };
    if (changed.contains(QStringLiteral("AllowNetworks"))) {
        m_Listen.allowed.clear();
        for (const QString& net :
             changed.value(QStringLiteral("AllowNetworks"))
                 .split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts))
            m_Listen.allowed << QHostAddress::parseSubnet(net);
        txtLog->append(
            m_Listen.allowed.isEmpty()
                ? QStringLiteral("Connections are taken from every network")
                : QStringLiteral("Connections are taken only from %1").arg(m_Listen.allowedText()));
    }
    if (changed.contains(QStringLiteral("MaxConnections")))
        m_Listen.maxConnections = number("MaxConnections");
    if (changed.contains(QStringLiteral("GsCpuSeconds")))
        m_GsLimits.cpuSeconds = number("GsCpuSeconds");
    if (changed.contains(QStringLiteral("GsMemoryMB")))
        m_GsLimits.memoryMB = number("GsMemoryMB");
    if (changed.contains(QStringLiteral("GsWallSeconds")))
        m_GsLimits.wallSeconds = number("GsWallSeconds");
    if (changed.contains(QStringLiteral("CloudAfterFetch")))
        m_CloudDeleteAfterFetch = changed.value(QStringLiteral("CloudAfterFetch")) == "delete";
    if (changed.contains(Prefs::kCloudPoll))
        startCloudPoll(number("CloudPoll"));
    if (changed.contains(Prefs::kJobFolder)) {
        Paths::resetJobFolder();
        txtLog->append(QStringLiteral("Jobs are kept in %1%2")
                           .arg(Paths::ensureJobFolder(),
                                m_JobQueue ? QStringLiteral(" from the next start (the job queue "
                                                            "keeps its folder while it runs)")
                                           : QString()));
    }
    for (const char* later : {"JobQueue", "Workers", "IppPort", "Output", "Colour"})
        if (changed.contains(QLatin1String(later)))
            txtLog->append(QStringLiteral("Setting %1 is taken at the next start").arg(later));
    if (!changed.contains(Prefs::kPort) && !changed.contains(QStringLiteral("ListenAddress")))
        return;
    // The one time the listener closes: a person asked for another port or address.
    if (changed.contains(Prefs::kPort))
        m_Listen.port = quint16(changed.value(Prefs::kPort).toUInt());
    if (changed.contains(QStringLiteral("ListenAddress"))) {
        const QString address = changed.value(QStringLiteral("ListenAddress")).trimmed();
        m_Listen.address =
            address.isEmpty() ? QHostAddress(QHostAddress::Any) : QHostAddress(address);
    }
    txtLog->append(QStringLiteral("The listener restarts on %1 port %2, as the preferences now say")
                       .arg(m_Listen.address == QHostAddress::Any ? QStringLiteral("every address")
                                                                  : m_Listen.address.toString())
                       .arg(m_Listen.port));
    m_Socket0.reset();
    RunGuarded([this] { startListening(); });
}
