#pragma once

#include "cloud/cloudfetchrecord.h"
#include "common/int16.h"
#include "common/log.h"
#include "common/twips.h"
#include "convert/conversion.h"
#include "dispatch/job.h"
#include "server/jobbuffer.h"
#include "server/listenoptions.h"
#include "server/programids.h"
#include "server/runoptions.h"

#include <QByteArray>
#include <QMap>
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
class FrmClSrLst;
class JobDispatcher;
class JobQueue;
class IppPrinter;
class AfterSave;
class FrmPreferences;
class FrmJobs;
class QContextMenuEvent;

// The main window: job state, output options, connection log, printer list,
// the TCP listener and the tray icon. Its handlers are split by concern over
// frmmain*.cpp files.
class frmMain : public QWidget
{
    Q_OBJECT
public:
    explicit frmMain(ListenOptions listen = {}, ProgramIds ids = ProgramIds::load(),
                     QWidget* parent = nullptr, JobOptions options = {});
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
    const ProgramIds& programIds() const { return m_Ids; }
    // The Output box, read in one place: everything else branches on this.
    OutputChoice outputChoice() const;

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
    // Without a window: the user check of an id, "Get Cloud Data" now, and
    // "Get Cloud Data" every few seconds.
    void registerUser(const QString& id);
    // A poll fetches only files it has not fetched before; "Get Cloud Data" the first listed.
    void fetchCloudJobs(bool poll = false);
    void startCloudPoll(int seconds);
    // CloudAfterFetch "delete": a fetched file leaves the share once its job is safe here.
    void setCloudDeleteAfterFetch(bool remove) { m_CloudDeleteAfterFetch = remove; }
    const CloudFetchRecord& cloudFetched() const { return m_CloudFetched; }
    // Where "Print to Cloud Printer" uploads: set at start-up and by the server list editor.
    void setCloudDestination(const QString& userId, const QString& serverId);
    const QString& cloudClientUserId() const { return m_CloudClientUserId; }
    const QString& cloudClientServerId() const { return m_CloudClientServerId; }
    FrmClSrLst* serverListEditor() const { return m_FrmClSrLst; }

    // --- TCP job intake (frmmain_intake.cpp) ---
    void Socket_ConnectionRequest(int Index, qintptr requestID);
    void Socket_DataArrival(int Index, qint64 bytesTotal);
    void Socket_Close(int Index);

    // --- job dispatch (frmmain_dispatch.cpp): the window's side of the
    // road; the road itself is JobDispatcher's ---
    void Command1_Click();
    void SavePSFile(const Job& job, const QByteArray& PSString);
    void DoChangeOption();
    std::shared_ptr<const GsRun> DoConvertPs2PdfImage(const Job& job);
    void DoWait4FilePS2PDFCreated(const QString& FileName);
    bool IsFileTiffPDFLocked(const QString& FileName);
    void PrintTiff(const QString& TiffFilePath);
    bool TiffLoadFile(const QString& FileName); // true when the TIFF loads now
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

    // --- preferences and jobs windows (frmmain_prefs.cpp): Ctrl+, and Ctrl+J, the
    // background's context menu, --preferences and --jobs ---
    void showPreferences();
    void showJobs();
    void openWindow(const QString& name); // "preferences" or "jobs"
    // A kept file (print again) or a failed job's PostScript (retry, consumed) as a new job.
    bool resubmit(const QString& path, bool consume = false);
    FrmPreferences* preferencesWindow() const { return m_FrmPreferences; }
    FrmJobs* jobsWindow() const { return m_FrmJobs; }
    // Takes what the preferences changed into the running program.
    void applyPreferences(const QMap<QString, QString>& changed);
    quint16 listenPort() const { return m_Listen.port; }
    AfterSave* afterSave() const { return m_AfterSave; }

    // --- controls, named as the window shows them (docs/main-window.md) ---
    QGroupBox* Frame1 = nullptr;                     // hidden: the tray test buttons
    QGroupBox* Frame2 = nullptr;                     // everything the user works with
    QGroupBox* Frame3 = nullptr;                     // hidden: the current job's paths
    QGroupBox* Frame7 = nullptr;                     // hidden: the cloud controls and files
    QGroupBox* Frame8 = nullptr;                     // hidden: the printer status pictures
    QPushButton* Command1 = nullptr;                 // "Save And Print": dispatch the buffer now
    QPushButton* Command2 = nullptr;                 // "Select Cloud Server"
    QPushButton* Command3 = nullptr;                 // "Scan => Network": the network scan window
    QPushButton* Command4 = nullptr;                 // "Properties" of the chosen printer
    QPushButton* Command5 = nullptr;                 // "Get Cloud Data": fetch a waiting cloud job
    QPushButton* Command6 = nullptr;                 // "Folder": open the job folder
    QPushButton* Command7 = nullptr;                 // "Printer Folder": the system's printer list
    QPushButton* Command8 = nullptr;                 // "Queue" of the chosen printer
    QPushButton* Command9 = nullptr;                 // check the printers' states again
    QPushButton* cmdStartStop = nullptr;             // "Start SysTray" (hidden)
    QPushButton* cmdClignote1 = nullptr;             // "&Blink icon" (hidden)
    QPushButton* cmdAlternanceIcone1 = nullptr;      // "&Alternate icons" (hidden)
    QPushButton* cmdMessage1 = nullptr;              // "&Timed message" (hidden)
    QRadioButton* Option1 = nullptr;                 // "Save As Pdf"
    QRadioButton* Option2 = nullptr;                 // "Save As Image"
    QRadioButton* Option3 = nullptr;                 // "Print to Printer : =>"
    QRadioButton* Option4 = nullptr;                 // "Tiff File": keep the TIFF
    QRadioButton* Option5 = nullptr;                 // "Jpeg File": export JPEG pages
    QRadioButton* Option6 = nullptr;                 // "Grayscale"
    QRadioButton* Option7 = nullptr;                 // "Colour"
    QRadioButton* Option8 = nullptr;                 // "Others": neither TIFF nor JPEG
    QRadioButton* Option9 = nullptr;                 // "Print to Cloud Printer"
    QButtonGroup* actionGroup = nullptr;             // Option1, 2, 3, 9
    QButtonGroup* imageTypeGroup = nullptr;          // Option4, 5, 8
    QButtonGroup* colourGroup = nullptr;             // Option6, 7
    QCheckBox* ChkRun = nullptr;                     // "Run Program on Windows Startup"
    QCheckBox* Check1 = nullptr;                     // "Cloud Print Server-Id :": register this id
    QListWidget* List1 = nullptr;                    // the connection log
    QListWidget* List2 = nullptr;                    // the printers; the chosen one gets print jobs
    QListWidget* List3 = nullptr;                    // hidden: files waiting on the share
    QTableWidget* FG2 = nullptr;                     // the printers with their on-line state
    QLineEdit* TxtPath = nullptr;                    // the current job's output file (shown)
    QLineEdit* Text1 = nullptr;                      // hidden: the current job's .ps file
    QLineEdit* Text3 = nullptr;                      // hidden: the Ghostscript command line
    QLineEdit* TxtEmailId = nullptr;                 // "Registered User ID :"
    QLineEdit* TxtEdit = nullptr;                    // the printer grid's cell editor (unused)
    LogBox* txtLog = nullptr;                        // the log box
    QLabel* lblAddress = nullptr;                    // this computer's IP address
    QLabel* lblHostID = nullptr;                     // this computer's name
    QLabel* lblConnections = nullptr;                // open connections
    QLabel* Image5 = nullptr;                        // hidden: the tray's alternate icon
    QLabel* picC = nullptr;                          // hidden: on-line picture
    QLabel* picUnC = nullptr;                        // hidden: off-line picture
    QTimer* Timer1 = nullptr;                        // one-shot printer state check
    QMenu* mnuzMonMenu = nullptr;                    // the tray icon's menu
    QAction* mnuSettings = nullptr;                  // "Settings": show the window
    QAction* mnuzLigne = nullptr;                    // separator
    QAction* mnuQuitter = nullptr;                   // "Exit"
    ctlSysTrayBalloon* ctlSysTrayBalloon1 = nullptr; // the tray icon
    UcCloudSrvr* UcCloudSrvr1 = nullptr;             // receives: user check, cloud job list, fetch
    UcCloudSrvr* UcCloudSrvr2 = nullptr;             // sends: cloud job upload

signals:
    // Long work under way: page done of total; total 0 while the count is not known.
    void progressed(const QString& job, int done, int total);
    // A cloud job being fetched: bytes so far, of total (-1: not known).
    void fetchProgressed(qint64 received, qint64 total);

protected:
    void changeEvent(QEvent* event) override; // Form_Resize: minimised goes to the tray
    void showEvent(QShowEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override; // "Preferences...", "Jobs..."

private:
    void buildControls();
    void setupPreferences(); // frmmain_prefs.cpp
    void connectHandlers();
    void setupCloud();         // frmmain_cloud.cpp
    void setupTray();          // frmmain_tray.cpp
    bool startupEntryExists(); // frmmain_tray.cpp
    void showMainFrameOnly();
    void restoreUserValidated();
    void loadCloudDestination();
    void startListening();
    bool admitConnection(qintptr requestID);
    // frmmain_cloud.cpp: a job's own bytes to the chosen cloud server.
    void uploadToCloud(const Job& job, const QByteArray& bytes);
    void settleJobOptions();
    // The IPP printer on this port, feeding the job queue; logged when it cannot start.
    void startIpp(int port, int workers);
    int newElementIndex() const; // frmmain_intake.cpp
    JobSocket* loadSocket(int index);
    void addStatus(const QString& text, bool log = true);
    void connectPrinterList(); // frmmain_printers.cpp
    JobDispatcher dispatcher();
    // Every job's end, in both modes: its line in the log box and its history row.
    void jobEnded(const Job& job, const JobOutcome& outcome);
    void showProgress(const QString& job, int done, int total); // frmmain_tray.cpp; total -1: ended
    void showFetchProgress(qint64 received, qint64 total);      // frmmain_tray.cpp
    void lookUpClient(const QString& address);
    void sendToCloud(const Job& job);                           // frmmain_cloud.cpp
    bool fetchFirstCloudFile();                                 // frmmain_cloud.cpp
    void registrationEnded(bool found);                         // frmmain_cloud.cpp
    void nextCloudStep();                                       // frmmain_cloud.cpp
    void settleCloudFile(const DirEntry& file, bool safe);      // frmmain_cloud.cpp
    void fillPrinterGrid(QListWidget* ListControl);             // frmmain_printers.cpp
    void markPrinterStates(const QMap<QString, bool>& offline); // frmmain_printers.cpp
    void choosePrinterRow(Int16 newRow);                        // frmmain_printers.cpp
    void acceptConnection();                                    // frmmain_intake.cpp
    void unloadSocket(int Index);                               // frmmain_intake.cpp

    // start-up state
    bool m_Loaded = false;
    bool m_Loading = false;
    bool m_UserValidate = false;
    bool m_Registering = false; // a user check asked for on the command line
    // A fetch asked for during the check: none, only a poll's, or a person's (which wins).
    enum class Deferred { None, Poll, Manual } m_FetchAfterRegistration = Deferred::None;
    ProgramIds m_Ids;
    ListenOptions m_Listen;
    Int16 m_ListenPort;
    QString m_GsPath;
    QString m_PrinterName;
    QString m_FileName;
    QString m_CloudClientUserId;
    QString m_CloudClientServerId;
    JobOptions m_Options;
    GsLimits m_GsLimits;
    GhostscriptVersionProbe m_GsVersion; // asked at start-up, awaited by the first dispatch
    bool m_GsNeedsSafer = false;
    JobQueue* m_JobQueue = nullptr;             // --job-queue, or IPP jobs only
    bool m_QueueAll = false;                    // --job-queue: every job goes through it
    IppPrinter* m_Ipp = nullptr;                // --ipp
    bool m_Dispatched = false;                  // a job has been named since start-up
    QString m_ClosingClient;                    // the connection whose close dispatches the buffer
    QMap<QString, QString> m_ClientNames;       // address -> reverse DNS name, looked up at connect
    FrmClSrLst* m_FrmClSrLst = nullptr;         // made at the first "Select Cloud Server"
    FrmPreferences* m_FrmPreferences = nullptr; // made when first asked for
    FrmJobs* m_FrmJobs = nullptr;
    AfterSave* m_AfterSave = nullptr;
    QTimer* m_CloudPoll = nullptr;

    // One fetch of waiting cloud files at a time, from the listing to the last delete.
    struct CloudFetch {
        bool active = false; // polls wait while it is, a fetched job's dispatch included
        bool poll = false;   // only files not fetched before
        QList<DirEntry> todo;
        QList<DirEntry> toDelete;
        DirEntry current; // being fetched; no path when the name matched no listed file
    } m_CloudFetch;
    CloudFetchRecord m_CloudFetched;
    bool m_CloudDeleteAfterFetch = false;

    // intake state
    JobBuffer m_JobBuffer;
    QByteArray m_SpoolChunk; // --job-queue: the bounded buffer between a socket and its spool file
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
};
