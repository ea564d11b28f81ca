#include "server/frmmain.h"

#include "cloud/uccloudsrvr.h"
#include "common/doevents.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "common/settings.h"
#include "dispatch/jobfiles.h"
#include "dispatch/jobqueue.h"
#include "platform/ghostscript.h"
#include "server/jobsocket.h"
#include "server/socketlistener.h"

#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QDateTime>
#include <QDir>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QSystemTrayIcon>
#include <QTableWidget>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

namespace
{
QPushButton* button(const QString& caption, QWidget* parent)
{
    return new QPushButton(caption, parent);
}
} // namespace

frmMain::frmMain(ListenOptions listen, ProgramIds ids, QWidget* parent, JobOptions options)
    : QWidget(parent), m_Ids(std::move(ids)), m_Listen(std::move(listen)), m_Options(options)
{
    setWindowTitle(QStringLiteral("Quorvel"));
    buildControls();
    setupCloud();
    setupTray();
    setupPreferences();
    connectHandlers();
    RunGuarded([this] { Form_Load(); });
}

frmMain::~frmMain()
{
    // Controls still emit while they are destroyed (a focused box ends its
    // editing): no handler may run on a window that is going away.
    for (QObject* child : findChildren<QObject*>())
        child->disconnect(this);
    // Closing the sockets must not run the close handler any more.
    auto sockets = std::move(m_Socket);
    m_Socket.clear();
    for (auto& [index, socket] : sockets) {
        socket->disconnect(this);
        delete socket;
    }
}

void frmMain::buildControls()
{
    auto* root = new QVBoxLayout(this);

    // Frame2 holds everything the user works with; the others stay hidden.
    Frame2 = new QGroupBox(this);
    root->addWidget(Frame2);
    auto* main = new QGridLayout(Frame2);

    // Identity and cloud.
    auto* idRow = new QHBoxLayout;
    idRow->addWidget(new QLabel(QStringLiteral("Registered User ID :"), Frame2));
    TxtEmailId = new QLineEdit(Frame2);
    TxtEmailId->setObjectName(QStringLiteral("TxtEmailId"));
    idRow->addWidget(TxtEmailId, 1);
    Check1 = new QCheckBox(QStringLiteral("Cloud Print Server-Id :"), Frame2);
    idRow->addWidget(Check1);
    Command2 = button(QStringLiteral("Select Cloud Server"), Frame2);
    Command5 = button(QStringLiteral("Get Cloud Data"), Frame2);
    idRow->addWidget(Command2);
    idRow->addWidget(Command5);
    main->addLayout(idRow, 0, 0, 1, 2);

    // What happens to a job.
    auto* output = new QGroupBox(QStringLiteral("Output"), Frame2);
    auto* out = new QGridLayout(output);
    Option1 = new QRadioButton(QStringLiteral("Save As Pdf"), output);
    Option2 = new QRadioButton(QStringLiteral("Save As Image"), output);
    Option3 = new QRadioButton(QStringLiteral("Print to Printer : =>"), output);
    Option9 = new QRadioButton(QStringLiteral("Print to Cloud Printer"), output);
    Option4 = new QRadioButton(QStringLiteral("Tiff File"), output);
    Option5 = new QRadioButton(QStringLiteral("Jpeg File"), output);
    Option6 = new QRadioButton(QStringLiteral("Grayscale"), output);
    Option7 = new QRadioButton(QStringLiteral("Colour"), output);
    // "Others" (neither TIFF nor JPEG) stays in reach: a chosen file type
    // keeps "Save As Image" selected until it is given up here.
    Option8 = new QRadioButton(QStringLiteral("Others"), output);
    out->addWidget(Option1, 0, 0);
    out->addWidget(Option2, 1, 0);
    out->addWidget(Option4, 1, 1);
    out->addWidget(Option5, 1, 2);
    out->addWidget(Option8, 1, 3);
    out->addWidget(Option6, 2, 1);
    out->addWidget(Option7, 2, 2);
    out->addWidget(Option3, 3, 0);
    out->addWidget(Option9, 4, 0);
    main->addWidget(output, 1, 0);

    // Printers.
    auto* printers = new QGroupBox(QStringLiteral("Printers"), Frame2);
    auto* pr = new QGridLayout(printers);
    List2 = new QListWidget(printers);
    List2->setObjectName(QStringLiteral("List2"));
    FG2 = new QTableWidget(printers);
    FG2->setObjectName(QStringLiteral("FG2"));
    FG2->setColumnCount(2);
    FG2->horizontalHeader()->setVisible(false);
    FG2->verticalHeader()->setVisible(false);
    FG2->setColumnWidth(0, twips(300));
    FG2->setColumnWidth(1, twips(3800));
    FG2->horizontalHeader()->setStretchLastSection(true);
    FG2->setMaximumHeight(110);
    List2->setMaximumHeight(90);
    TxtEdit = new QLineEdit(FG2->viewport());
    TxtEdit->setObjectName(QStringLiteral("TxtEdit"));
    TxtEdit->hide();
    pr->addWidget(List2, 0, 0, 1, 3);
    pr->addWidget(FG2, 1, 0, 1, 3);
    Command4 = button(QStringLiteral("Properties"), printers);
    Command8 = button(QStringLiteral("Queue"), printers);
    Command7 = button(QStringLiteral("Printer Folder"), printers);
    Command9 = new QPushButton(printers);
    Command9->setObjectName(QStringLiteral("Command9"));
    Command9->setToolTip(QStringLiteral("Check the printers again"));
    Command9->setIcon(style()->standardIcon(QStyle::SP_BrowserReload));
    Command3 = button(QStringLiteral("Scan => Network"), printers);
    pr->addWidget(Command4, 2, 0);
    pr->addWidget(Command8, 2, 1);
    pr->addWidget(Command7, 2, 2);
    pr->addWidget(Command9, 3, 0);
    pr->addWidget(Command3, 3, 1, 1, 2);
    main->addWidget(printers, 1, 1);

    // The current job.
    auto* jobRow = new QHBoxLayout;
    TxtPath = new QLineEdit(Frame2);
    TxtPath->setObjectName(QStringLiteral("TxtPath"));
    TxtPath->setReadOnly(true);
    Command6 = button(QStringLiteral("Folder"), Frame2);
    Command1 = button(QStringLiteral("Save And Print"), Frame2);
    jobRow->addWidget(TxtPath, 1);
    jobRow->addWidget(Command6);
    jobRow->addWidget(Command1);
    main->addLayout(jobRow, 2, 0, 1, 2);
    ChkRun = new QCheckBox(QStringLiteral("Run Program on Windows Startup"), Frame2);
    main->addWidget(ChkRun, 3, 0, 1, 2);

    // Connections.
    auto* net = new QGroupBox(QStringLiteral("Connections"), Frame2);
    auto* nl = new QGridLayout(net);
    nl->addWidget(new QLabel(QStringLiteral("Host:"), net), 0, 0);
    lblHostID = new QLabel(net);
    nl->addWidget(lblHostID, 0, 1);
    nl->addWidget(new QLabel(QStringLiteral("IP Address:"), net), 0, 2);
    lblAddress = new QLabel(net);
    nl->addWidget(lblAddress, 0, 3);
    nl->addWidget(new QLabel(QStringLiteral("Connections:"), net), 0, 4);
    lblConnections = new QLabel(QStringLiteral("0"), net);
    nl->addWidget(lblConnections, 0, 5);
    List1 = new QListWidget(net);
    List1->setObjectName(QStringLiteral("List1"));
    List1->setMaximumHeight(130);
    List1->setUniformItemSizes(true); // one line each: no text layout of the whole list per line
    nl->addWidget(List1, 1, 0, 1, 6);
    main->addWidget(net, 4, 0, 1, 2);

    txtLog = new LogBox(Frame2);
    txtLog->setObjectName(QStringLiteral("txtLog"));
    txtLog->setMaximumHeight(90);
    main->addWidget(txtLog, 5, 0, 1, 2);

    // Hidden frames.
    Frame1 = new QGroupBox(QStringLiteral("Systray Frame"), this);
    auto* f1 = new QHBoxLayout(Frame1);
    cmdStartStop = button(QStringLiteral("Start SysTray"), Frame1);
    cmdClignote1 = button(QStringLiteral("&Blink icon"), Frame1);
    cmdAlternanceIcone1 = button(QStringLiteral("&Alternate icons"), Frame1);
    cmdMessage1 = button(QStringLiteral("&Timed message"), Frame1);
    Image5 = new QLabel(Frame1);
    for (QWidget* w : {static_cast<QWidget*>(cmdStartStop), static_cast<QWidget*>(cmdClignote1),
                       static_cast<QWidget*>(cmdAlternanceIcone1),
                       static_cast<QWidget*>(cmdMessage1), static_cast<QWidget*>(Image5)})
        f1->addWidget(w);
    root->addWidget(Frame1);

    Frame3 = new QGroupBox(this); // technical paths of the current job
    auto* f3 = new QVBoxLayout(Frame3);
    Text1 = new QLineEdit(Frame3);
    Text1->setObjectName(QStringLiteral("Text1"));
    Text3 = new QLineEdit(Frame3);
    Text3->setObjectName(QStringLiteral("Text3"));
    f3->addWidget(Text1);
    f3->addWidget(Text3);
    root->addWidget(Frame3);

    Frame7 = new QGroupBox(this); // files waiting in the cloud
    auto* f7 = new QVBoxLayout(Frame7);
    List3 = new QListWidget(Frame7);
    List3->setObjectName(QStringLiteral("List3"));
    f7->addWidget(List3);
    root->addWidget(Frame7);

    Frame8 = new QGroupBox(this); // the printers' status pictures
    auto* f8 = new QHBoxLayout(Frame8);
    picC = new QLabel(Frame8);
    picUnC = new QLabel(Frame8);
    f8->addWidget(picC);
    f8->addWidget(picUnC);
    root->addWidget(Frame8);

    actionGroup = new QButtonGroup(this);
    for (QRadioButton* o : {Option1, Option2, Option3, Option9})
        actionGroup->addButton(o);
    imageTypeGroup = new QButtonGroup(this);
    for (QRadioButton* o : {Option4, Option5, Option8})
        imageTypeGroup->addButton(o);
    colourGroup = new QButtonGroup(this);
    for (QRadioButton* o : {Option6, Option7})
        colourGroup->addButton(o);
    // At start-up a job becomes a grayscale PDF.
    Option1->setChecked(true);
    Option6->setChecked(true);

    Timer1 = new QTimer(this);
    Timer1->setInterval(1000);

    mnuzMonMenu = new QMenu(this);
    mnuSettings = mnuzMonMenu->addAction(QStringLiteral("Settings"));
    mnuzLigne = mnuzMonMenu->addSeparator();
    mnuQuitter = mnuzMonMenu->addAction(QStringLiteral("Exit"));
    mnuzMonMenu->setDefaultAction(mnuSettings);
}

void frmMain::connectHandlers()
{
    connect(Option1, &QRadioButton::clicked, this, Guarded([this] { Option1_Click(); }));
    connect(Option2, &QRadioButton::clicked, this, Guarded([this] { Option2_Click(); }));
    connect(Option3, &QRadioButton::clicked, this, Guarded([this] { Option3_Click(); }));
    connect(Option4, &QRadioButton::clicked, this, Guarded([this] { Option4_Click(); }));
    connect(Option5, &QRadioButton::clicked, this, Guarded([this] { Option5_Click(); }));
    connect(Option9, &QRadioButton::clicked, this, Guarded([this] { Option9_Click(); }));
    connect(Command1, &QPushButton::clicked, this, Guarded([this] { Command1_Click(); }));
    connect(Command3, &QPushButton::clicked, this, Guarded([this] { Command3_Click(); }));
    connect(Command4, &QPushButton::clicked, this, Guarded([this] { Command4_Click(); }));
    connect(Command6, &QPushButton::clicked, this, Guarded([this] { Command6_Click(); }));
    connect(Command7, &QPushButton::clicked, this, Guarded([this] { Command7_Click(); }));
    connect(Command8, &QPushButton::clicked, this, Guarded([this] { Command8_Click(); }));
    connect(Command9, &QPushButton::clicked, this, Guarded([this] { Command9_Click(); }));
    connect(Timer1, &QTimer::timeout, this, Guarded([this] { Timer1_Timer(); }));
    connect(cmdStartStop, &QPushButton::clicked, this, Guarded([this] { cmdStartStop_Click(); }));
    connect(cmdClignote1, &QPushButton::clicked, this, Guarded([this] { cmdClignote1_Click(); }));
    connect(cmdAlternanceIcone1, &QPushButton::clicked, this,
            Guarded([this] { cmdAlternanceIcone1_Click(); }));
    connect(cmdMessage1, &QPushButton::clicked, this, Guarded([this] { cmdMessage1_Click(); }));
    connect(ChkRun, &QCheckBox::clicked, this, Guarded([this] { ChkRun_Click(); }));
    connect(mnuSettings, &QAction::triggered, this, Guarded([this] { mnuSettings_Click(); }));
    connect(mnuQuitter, &QAction::triggered, this, Guarded([this] { mnuQuitter_Click(); }));
    connect(TxtEmailId, &QLineEdit::editingFinished, this,
            Guarded([this] { TxtEmailId_Validate(); }));
    connectPrinterList(); // List2 mouse-up and key-up
    connect(FG2, &QTableWidget::currentCellChanged, this, Guarded([this] { FG2_RowColChange(); }));
    // A change made by the program counts too (the load guards against it).
    connect(Check1, &QCheckBox::toggled, this, Guarded([this] { Check1_Click(); }));
    connect(Command5, &QPushButton::clicked, this, Guarded([this] { Command5_Click(); }));
    connect(Command2, &QPushButton::clicked, this, Guarded([this] { Command2_Click(); }));
}

bool frmMain::isListening() const
{
    return m_Socket0 && m_Socket0->isListening();
}

void frmMain::Form_Load()
{
    m_Loaded = false;
    // Asked first: Ghostscript answers while the rest loads.
    m_GsPath = QString::fromStdWString(ghostscriptProgram(Paths::programFolder().toStdWString()));
    m_GsVersion.start(m_GsPath, [this](const QString& version) {
        m_GsNeedsSafer = GhostscriptNeedsSafer(version);
        if (m_GsNeedsSafer)
            txtLog->append(QStringLiteral("Ghostscript %1 is older than 9.50 and not safe by "
                                          "default: -dSAFER is added to its command lines")
                               .arg(version));
    });
    showMainFrameOnly();
    m_UserValidate = false;
    TxtEmailId->setText(m_Ids.userEMailId);
    cmdStartStop_Click(); // the tray icon
    restoreUserValidated();
    // A port that cannot be opened is reported; the rest of the window still loads.
    RunGuarded([this] { startListening(); });
    m_PrinterName = SettingsStore::get(QStringLiteral("Name"));
    PopulateListControlWithPrinters(List2);
    loadCloudDestination();
    const QString afterFetch = SettingsStore::get(QStringLiteral("CloudAfterFetch")).trimmed();
    m_CloudDeleteAfterFetch = afterFetch.compare(QLatin1String("delete"), Qt::CaseInsensitive) == 0;
    if (!afterFetch.isEmpty() && !m_CloudDeleteAfterFetch &&
        afterFetch.compare(QLatin1String("keep"), Qt::CaseInsensitive) != 0)
        Log::line(QStringLiteral("Setting CloudAfterFetch: keep or delete, not \"%1\"; fetched "
                                 "files are kept on the share")
                      .arg(afterFetch),
                  true);
    Paths::ensureJobFolder();
    m_FileName = jobBaseName();
    settleJobOptions();
    DoChangeOption();
    // Start-up sets the box without writing the entry back.
    m_Loading = true;
    ChkRun->setChecked(startupEntryExists());
    m_Loading = false;
    m_Loaded = true;
}

void frmMain::settleJobOptions()
{
    const auto setting = [](const char* key, std::optional<int> chosen, int fallback) {
        bool ok = false;
        const int v = SettingsStore::get(QLatin1String(key)).toInt(&ok);
        return chosen.value_or(ok && v >= 0 ? v : fallback);
    };
    const GsLimits defaults;
    m_GsLimits = {setting("GsCpuSeconds", m_Options.cpuSeconds, defaults.cpuSeconds),
                  setting("GsMemoryMB", m_Options.memoryMB, defaults.memoryMB),
                  setting("GsWallSeconds", m_Options.wallSeconds, defaults.wallSeconds)};

    const QString word = SettingsStore::get(QStringLiteral("JobQueue")).trimmed().toLower();
    const bool fromSetting =
        word == QLatin1String("1") || word == QLatin1String("true") || word == QLatin1String("yes");
    m_QueueAll = m_Options.jobQueue.value_or(fromSetting);
    // IPP jobs always take the queue: the one buffer has no safe place for them.
    int ippPort = 0;
    if (m_Options.ippPort) {
        ippPort = *m_Options.ippPort;
    } else if (const QString value = SettingsStore::get(QStringLiteral("IppPort")).trimmed();
               !value.isEmpty()) {
        bool ok = false;
        ippPort = value.toInt(&ok);
        if (!ok || ippPort < 0 || ippPort > 65535) {
            Log::line(QStringLiteral("Setting IppPort: a port from 1 to 65535, or 0 for none, "
                                     "not \"%1\"; there is no IPP printer")
                          .arg(value),
                      true);
            ippPort = 0;
        }
    }
    if (!m_QueueAll && ippPort == 0)
        return;
    int workers = m_Options.workers.value_or(0);
    if (!m_Options.workers) {
        const QString value = SettingsStore::get(QStringLiteral("Workers")).trimmed();
        bool ok = false;
        workers = value.toInt(&ok);
        if (!value.isEmpty() && (!ok || workers < 1 || workers > 256))
            Log::line(QStringLiteral("Setting Workers: a number from 1 to 256, not \"%1\"; "
                                     "the number of cores is used")
                          .arg(value),
                      true);
        if (!ok || workers < 1 || workers > 256)
            workers = QThread::idealThreadCount();
    }
    const QString folder = Paths::ensureJobFolder();
    m_JobQueue = new JobQueue(
        folder,
        {[this] { return dispatcher(); }, [this] { return outputChoice(); },
         [this](const QString& line) { txtLog->append(line); },
         [this](const Job& job, const QByteArray& bytes) { uploadToCloud(job, bytes); },
         [this](const Job& job, const QString& commandLine) {
             m_FileName = job.baseName;
             Text1->setText(job.psPath);
             if (!job.outputPath.isEmpty())
                 TxtPath->setText(job.outputPath);
             Text3->setText(commandLine);
         },
         [this](const Job& job, const JobOutcome& outcome) { jobEnded(job, outcome); },
         [this](const QString& address) { return m_ClientNames.value(address); }},
        workers, this);
    addStatus((m_QueueAll ? QStringLiteral("Job queue: each connection is a job of its own, "
                                           "spooled in %1; %2 converting at once")
                          : QStringLiteral("Job queue for IPP jobs, spooled in %1; %2 "
                                           "converting at once"))
                  .arg(QDir::toNativeSeparators(m_JobQueue->spoolFolder()))
                  .arg(workers));
    m_JobQueue->resume();
    if (ippPort > 0)
        startIpp(ippPort, workers);
}

void frmMain::showMainFrameOnly()
{
    Frame1->hide();
    Frame3->hide();
    Frame7->hide();
    Frame8->hide();
    adjustSize();
    resize(Frame2->sizeHint() + QSize(twips(300), twips(700)));
}

void frmMain::restoreUserValidated()
{
    // An empty id was never validated.
    if (!m_Ids.userEMailId.isEmpty() &&
        SettingsStore::get(QStringLiteral("UserValidate")) == m_Ids.userEMailId) {
        Check1->setChecked(true);
        m_UserValidate = true;
    }
}

void frmMain::loadCloudDestination()
{
    setCloudDestination(SettingsStore::get(QStringLiteral("CloudClientUserId")),
                        SettingsStore::get(QStringLiteral("CloudClientServerId")));
}

void frmMain::setCloudDestination(const QString& userId, const QString& serverId)
{
    m_CloudClientUserId = userId;
    m_CloudClientServerId = serverId;
    Option9->setEnabled(!m_CloudClientUserId.trimmed().isEmpty() &&
                        !m_CloudClientServerId.trimmed().isEmpty());
    // Crosswise, as the sending control has always been given them.
    UcCloudSrvr2->setUcCloudUserId(m_CloudClientServerId);
    UcCloudSrvr2->setUcCloudServerId(m_CloudClientUserId);
}

void frmMain::Option1_Click()
{
    DoChangeOption();
}
void frmMain::Option2_Click()
{
    DoChangeOption();
}
void frmMain::Option3_Click()
{
    DoChangeOption();
}
void frmMain::Option4_Click()
{
    DoChangeOption();
}
void frmMain::Option5_Click()
{
    DoChangeOption();
}
void frmMain::Option9_Click()
{
    DoChangeOption();
}

void frmMain::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    List1->scrollToBottom(); // the newest connections, as while it was hidden
}

void frmMain::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    // The window lives on in the tray; without a tray it stays on the task bar,
    // or nothing could bring it back.
    if (event->type() == QEvent::WindowStateChange && (windowState() & Qt::WindowMinimized) &&
        QSystemTrayIcon::isSystemTrayAvailable())
        QTimer::singleShot(0, this, &QWidget::hide);
}

void frmMain::mnuQuitter_Click()
{
    close();
    QApplication::quit();
}

void frmMain::mnuSettings_Click()
{
    ctlSysTrayBalloon1_DblClick(1);
}

void frmMain::TxtEmailId_Validate()
{
    if (TxtEmailId->text().trimmed().isEmpty())
        return;
    m_Ids.userEMailId = TxtEmailId->text();
    SettingsStore::put(QStringLiteral("EMailId"), TxtEmailId->text());
}
