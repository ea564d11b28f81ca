#include "netscan/frmnetscan.h"

#include "common/doevents.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/runtimeerror.h"
#include "netscan/netviewparser.h"
#include "platform/netscancommand.h"

#include <QCloseEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

FrmNetScan::FrmNetScan(QWidget* mainWindow)
    : QWidget(mainWindow, Qt::Window), m_MainWindow(mainWindow)
{
    setWindowTitle(QStringLiteral("Network"));
    setAttribute(Qt::WA_DeleteOnClose);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);

    Text2 = new QPlainTextEdit(this);
    Text2->setReadOnly(true);
    Text2->setFont(fixed);
    lstComps = new QListWidget(this);
    lstComps->setFont(fixed);
    List1 = new QListWidget(this);
    List1->setFont(fixed);
    Command1 = new QPushButton(QStringLiteral("Scan"), this);

    auto* lists = new QHBoxLayout;
    lists->addWidget(lstComps, 1);
    lists->addWidget(List1, 2);
    auto* root = new QVBoxLayout(this);
    root->addWidget(Text2, 1);
    root->addLayout(lists, 2);
    root->addWidget(Command1);
    resize(560, 420);

    connect(Command1, &QPushButton::clicked, this, Guarded([this] { Command1_Click(); }));
    connect(List1, &QListWidget::itemClicked, this, Guarded([this] { List1_Click(); }));
    connect(lstComps, &QListWidget::itemClicked, this, Guarded([this] { lstComps_Click(); }));

    RunGuarded([this] { Form_Load(); });
}

FrmNetScan::~FrmNetScan()
{
    Form_Unload();
}

void FrmNetScan::closeEvent(QCloseEvent* event)
{
    RunGuarded([this] { Form_Unload(); });
    QWidget::closeEvent(event);
}

void FrmNetScan::Form_Load()
{
    if (m_MainWindow) // beside the main window, to its right
        move(m_MainWindow->frameGeometry().topRight() + QPoint(8, 0));
    m_ProgramFolder = Paths::programFolder();
    m_LogPath = Paths::join(m_ProgramFolder, QStringLiteral("log.txt"));
    SocketsInitialize();
}

void FrmNetScan::Form_Unload()
{
    if (m_Unloaded)
        return;
    m_Unloaded = true;
    SocketsCleanup();
}

void FrmNetScan::SocketsInitialize()
{
    for (const std::string& message : ::SocketsInitialize())
        MsgBox(QString::fromStdString(message));
}

void FrmNetScan::SocketsCleanup()
{
    const QString message = QString::fromStdString(::SocketsCleanup());
    if (!message.isEmpty())
        MsgBox(message);
}

QString FrmNetScan::ProcessShells(const QString& command)
{
    if (command == QStringLiteral("net view"))
        return QString::fromStdWString(NetViewOutput());
    return QString();
}

void FrmNetScan::Command1_Click()
{
    ScanOutput(ProcessShells(QStringLiteral("net view")));
}

void FrmNetScan::ScanOutput(const QString& output)
{
    Text2->setPlainText(output);
    lstComps->clear();
    const NetViewNames found = ParseNetView(output, [] { DoEvents(); });
    lstComps->addItems(found.names);
    m_NameWidth = found.nameWidth;
    for (int i = 0; i < 3; ++i)
        DoEvents();
    List1->clear();
    for (int i = 0; i < lstComps->count(); ++i)
        Command1click(lstComps->item(i)->text());
    List1->setCurrentRow(0);
    lstComps->setCurrentRow(0);
    lstComps->setFocus();
    for (int i = 0; i < 3; ++i)
        DoEvents();
}

void FrmNetScan::Command1click(const QString& name)
{
    const QString address =
        QString::fromStdString(LookupFirstIPv4(TrimBlanks(name).toStdWString()));
    if (address.isEmpty()) {
        List1->addItem(QString()); // keeps the two lists in step
        return;
    }
    List1->addItem(NetScanLine(name, m_NameWidth, address));
}

void FrmNetScan::List1_Click()
{
    lstComps->setCurrentRow(List1->currentRow());
}

void FrmNetScan::lstComps_Click()
{
    List1->setCurrentRow(lstComps->currentRow());
}
