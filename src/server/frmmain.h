#pragma once

#include "common/int16.h"
#include "common/log.h"
#include "server/jobbuffer.h"

#include <QByteArray>
#include <QString>
#include <QWidget>
#include <array>
#include <map>
#include <memory>

class QButtonGroup;
class QCheckBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QAction;
class QPushButton;
class QRadioButton;
class QTableWidget;
class QTimer;
class SocketListener;
class JobSocket;
class ctlSysTrayBalloon;
class UcCloudSrvr;
class ImageFile;

// The main window: job state, output options, connection log, printer list,
// the TCP listener and the tray icon. Its handlers are split by concern over
// frmmain*.cpp files.
class frmMain : public QWidget
{
    Q_OBJECT
public:
    explicit frmMain(quint16 port = 9100, QWidget* parent = nullptr);
    ~frmMain() override;

    // --- start-up and window (frmmain.cpp) ---
    void Form_Load();
    bool isListening() const;
    bool isLoaded() const { return m_Loaded; }
    QByteArray jobBuffer() const { return m_JobBuffer.view(); }
    int connectionCount() const { return m_ConnCount; }
    const QString& statusText() const { return m_StatusText; }
    const QString& lastRequestId() const { return m_LastRequestId; }
    const QString& fileName() const { return m_FileName; }
    const QString& ghostscriptPath() const { return m_GsPath; }

    void Option1_Click();
    void Option2_Click();
    void Option3_Click();
    void Option4_Click();
    void Option5_Click();
    void Option9_Click();
    void mnuQuitter_Click();
    void mnuSettings_Click();
    void TxtEmailId_Validate();

    // --- cloud actions (frmmain_cloud.cpp) ---
    void Check1_Click();
    void Command2_Click();
    void Command5_Click();
    void UcCloudSrvr1_ValidateUser(bool found);
    void UcCloudSrvr1_ServerInfoReturn(const QString& fileList);
    void UcCloudSrvr1_CloudFileReceived(const QString& data);
    bool userValidated() const { return m_UserValidate; }

    // --- TCP job intake (frmmain_intake.cpp) ---
    void Socket_ConnectionRequest(int Index, qintptr requestID);
    void Socket_DataArrival(int Index, qint64 bytesTotal);
    void Socket_Close(int Index);

    // --- job dispatch (frmmain_dispatch.cpp) ---
    void Command1_Click();

    // --- conversion (frmmain_convert.cpp); printing (frmmain_print.cpp) ---
    void SavePSFile(const QByteArray& PSString);
    void DoChangeOption();
    void DoConvertPs2PdfImage();
    void DoWait4FilePS2PDFCreated(const QString& FileName);
    bool IsFileTiffPDFLocked(const QString& FileName);
    void PrintTiff(const QString& TiffFilePath);
    bool TiffLoadFile(const QString& FileName);
    void SelectPrinterByName(const QString& name);

    // --- printer list and tools (frmmain_printers.cpp) ---
    void PopulateListControlWithPrinters(QListWidget* ListControl);
    QString List2Text() const; // the chosen printer's name, as the list shows it
    void List2_MouseUp();
    void List2_KeyUp();
    void FG2_RowColChange();
    void Timer1_Timer();
    void Command3_Click();
    void Command4_Click();
    void Command6_Click();
    void Command7_Click();
    void Command8_Click();
    void Command9_Click();
    // Row r of FG2 (1-based; row 0 is no row) and its table entry.
    const QString& printerTableName(int r) const { return m_PrinterTable.at(r).name; }
    const QString& printerTableStatus(int r) const { return m_PrinterTable.at(r).status; }
    const QString& printerName() const { return m_PrinterName; }

    // --- tray host and start-up entry (frmmain_tray.cpp) ---
    void cmdStartStop_Click();
    void cmdClignote1_Click();
    void cmdAlternanceIcone1_Click();
    void cmdMessage1_Click();
    void ctlSysTrayBalloon1_DblClick(int Button);
    void ctlSysTrayBalloon1_MouseUp(int Button);
    void ctlSysTrayBalloon1_PgmError(const QString& Source, int Code, const QString& Description);
    void ChkRun_Click();

    // --- controls, named as the window shows them ---
    QGroupBox *Frame1 = nullptr, *Frame2 = nullptr, *Frame3 = nullptr, *Frame7 = nullptr,
              *Frame8 = nullptr;
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr,
                *Command5 = nullptr, *Command6 = nullptr, *Command7 = nullptr, *Command8 = nullptr,
                *Command9 = nullptr;
    QPushButton *cmdStartStop = nullptr, *cmdClignote1 = nullptr, *cmdAlternanceIcone1 = nullptr,
                *cmdMessage1 = nullptr;
    QRadioButton *Option1 = nullptr, *Option2 = nullptr, *Option3 = nullptr, *Option4 = nullptr,
                 *Option5 = nullptr, *Option6 = nullptr, *Option7 = nullptr, *Option8 = nullptr,
                 *Option9 = nullptr;
    QButtonGroup *actionGroup = nullptr, *imageTypeGroup = nullptr, *colourGroup = nullptr;
    QCheckBox *ChkRun = nullptr, *Check1 = nullptr;
    QListWidget *List1 = nullptr, *List2 = nullptr, *List3 = nullptr;
    QTableWidget* FG2 = nullptr;
    QLineEdit *TxtPath = nullptr, *Text1 = nullptr, *Text3 = nullptr, *TxtEmailId = nullptr,
              *TxtEdit = nullptr;
    LogBox* txtLog = nullptr;
    QLabel *lblAddress = nullptr, *lblHostID = nullptr, *lblConnections = nullptr;
    QLabel *Image5 = nullptr, *picC = nullptr, *picUnC = nullptr;
    QTimer* Timer1 = nullptr;
    QMenu* mnuzMonMenu = nullptr;
    QAction *mnuSettings = nullptr, *mnuzLigne = nullptr, *mnuQuitter = nullptr;
    ctlSysTrayBalloon* ctlSysTrayBalloon1 = nullptr;
    UcCloudSrvr *UcCloudSrvr1 = nullptr, *UcCloudSrvr2 = nullptr;

protected:
    void changeEvent(QEvent* event) override; // Form_Resize: minimised goes to the tray

private:
    // The window was laid out in twips: 15 to a pixel at 96 dpi.
    static constexpr int twips(int t) { return t / 15; }
    void buildControls();
    void connectHandlers();
    void setupCloud();         // frmmain_cloud.cpp
    void setupTray();          // frmmain_tray.cpp
    bool startupEntryExists(); // frmmain_tray.cpp
    void startListening();
    JobSocket* loadSocket(int index);
    void addStatus(const QString& text);
    void connectPrinterList(); // frmmain_printers.cpp

    // start-up state
    bool m_Loaded = false;
    bool m_Loading = false;
    bool m_UserValidate = false;
    quint16 m_RequestedPort;
    Int16 m_ListenPort;
    QString m_GsPath;
    QString m_PrinterName;
    QString m_FileName;
    QString m_CloudClientUserId;
    QString m_CloudClientServerId;

    // intake state
    JobBuffer m_JobBuffer;
    Int16 m_ConnCount;
    QString m_StatusText;
    QString m_LastRequestId;
    std::unique_ptr<SocketListener> m_Socket0;
    std::map<int, JobSocket*> m_Socket; // elements 1.. of the socket array
    JobSocket* m_PendingRequest = nullptr;

    // printer list: FG2 row r shows m_PrinterTable[r]; entry 0 stays empty
    struct PrinterRow {
        QString name;
        QString status;
    };
    std::array<PrinterRow, 101> m_PrinterTable;
    Int16 m_CurGridRow;
    Int16 m_PrevGridRow;
    bool m_InRowChange = false;

    // the image object: the TIFF of the last job, frame by frame
    std::unique_ptr<ImageFile> m_ImageFile;
};
