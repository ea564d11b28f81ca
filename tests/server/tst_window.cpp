// The main window as it loads: controls, captions, settings, option groups.
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "freeport.h"
#include "server/frmmain.h"
#include "server/globals.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

class TestWindow : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        SettingsStore::setFolder(m_dir->filePath(QStringLiteral("settings")));
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m.text; });
    }
    void cleanup()
    {
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }

    void loadsWithCaptionsAndHiddenFrames()
    {
        frmMain form(freePort());
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        QVERIFY(form.isLoaded());
        QVERIFY(form.Frame2->isVisible());
        for (QGroupBox* f : {form.Frame1, form.Frame3, form.Frame7, form.Frame8})
            QVERIFY(!f->isVisible());
        QCOMPARE(form.Frame1->title(), QStringLiteral("Systray Frame"));
        const QList<std::pair<QAbstractButton*, const char*>> captions = {
            {form.Command1, "Save And Print"},
            {form.Command2, "Select Cloud Server"},
            {form.Command3, "Scan => Network"},
            {form.Command4, "Properties"},
            {form.Command5, "Get Cloud Data"},
            {form.Command6, "Folder"},
            {form.Command7, "Printer Folder"},
            {form.Command8, "Queue"},
            {form.Option1, "Save As Pdf"},
            {form.Option2, "Save As Image"},
            {form.Option3, "Print to Printer : =>"},
            {form.Option4, "Tiff File"},
            {form.Option5, "Jpeg File"},
            {form.Option6, "Grayscale"},
            {form.Option7, "Colour"},
            {form.Option8, "Others"},
            {form.Option9, "Print to Cloud Printer"},
            {form.ChkRun, "Run Program on Windows Startup"},
            {form.Check1, "Cloud Print Server-Id :"}};
        for (const auto& [button, caption] : captions)
            QCOMPARE(button->text(), QString::fromUtf8(caption));
        // A job becomes a grayscale PDF until the user chooses otherwise.
        QVERIFY(form.Option1->isChecked());
        QVERIFY(form.Option6->isChecked());
        QVERIFY(form.Option8->isChecked()); // neither TIFF nor JPEG chosen
        QVERIFY(form.fileName().startsWith(QStringLiteral("File_")));
        QCOMPARE(form.fileName().size(), 18); // File_yyMMdd_hhmmss
        QVERIFY(!form.ghostscriptPath().isEmpty());
        QVERIFY(m_messages.isEmpty());
    }

    void optionGroupsAreIndependent()
    {
        frmMain form(freePort());
        form.Option7->click();
        QVERIFY(form.Option7->isChecked() && !form.Option6->isChecked());
        QVERIFY(form.Option1->isChecked()); // the action stays
        form.Option3->click();
        QVERIFY(form.Option3->isChecked() && !form.Option1->isChecked());
        QVERIFY(form.Option7->isChecked());

        // A file type holds "Save As Image" until "Others" gives it up.
        form.Option5->click();
        QVERIFY(form.Option2->isChecked());
        form.Option1->click();
        QVERIFY(form.Option2->isChecked() && !form.Option1->isChecked());
        form.Option8->click();
        form.Option1->click();
        QVERIFY(form.Option1->isChecked() && form.Option8->isChecked());
    }

    void cloudOptionNeedsBothIds()
    {
        {
            SettingsStore::put(QStringLiteral("CloudClientUserId"), QStringLiteral("user"));
            SettingsStore::put(QStringLiteral("CloudClientServerId"), QStringLiteral("  "));
            frmMain form(freePort());
            QVERIFY(!form.Option9->isEnabled());
        }
        SettingsStore::put(QStringLiteral("CloudClientServerId"), QStringLiteral("srv"));
        frmMain form(freePort());
        QVERIFY(form.Option9->isEnabled());
    }

    void userValidationAndEmailId()
    {
        Globals::UserEMailId() = QStringLiteral("ann@example.org");
        SettingsStore::put(QStringLiteral("UserValidate"), QStringLiteral("ann@example.org"));
        {
            frmMain form(freePort());
            QCOMPARE(form.TxtEmailId->text(), QStringLiteral("ann@example.org"));
            QVERIFY(form.Check1->isChecked());
            // A blank id changes nothing; another id is kept.
            form.TxtEmailId->setText(QStringLiteral("   "));
            form.TxtEmailId_Validate();
            QCOMPARE(SettingsStore::get(QStringLiteral("EMailId")), QString());
            form.TxtEmailId->setText(QStringLiteral("bob@example.org"));
            form.TxtEmailId_Validate();
            QCOMPARE(SettingsStore::get(QStringLiteral("EMailId")),
                     QStringLiteral("bob@example.org"));
            QCOMPARE(Globals::UserEMailId(), QStringLiteral("bob@example.org"));
        }
        frmMain other(freePort()); // "bob" is not the validated id
        QVERIFY(!other.Check1->isChecked());
        Globals::UserEMailId().clear();
    }

    void portInUseIsReportedAndLoadGoesOn()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::Any, 0));
        frmMain form(squatter.serverPort());
        QVERIFY(!form.isListening());
        QVERIFY(form.isLoaded());
        QCOMPARE(m_messages.size(), 1);
        QVERIFY2(m_messages[0].startsWith(QStringLiteral("Run-time error '10048'")),
                 qPrintable(m_messages[0]));
    }

    void minimisedWindowStaysWithoutTray()
    {
        // No notification area here: hiding would leave no way back.
        frmMain form(freePort());
        form.show();
        QVERIFY(QTest::qWaitForWindowExposed(&form));
        form.setWindowState(Qt::WindowMinimized);
        QTest::qWait(50);
        QVERIFY(form.isVisible());
        form.ctlSysTrayBalloon1_DblClick(1); // restore
        QVERIFY(form.isVisible());
        QVERIFY(!(form.windowState() & Qt::WindowMinimized));
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_messages;
};

QTEST_MAIN(TestWindow)
#include "tst_window.moc"
