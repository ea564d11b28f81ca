#pragma once

// What the tests share: fixture settings, ports, jobs, tools, CUPS and a private main window.

#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "server/frmmain.h"

#include <QApplication>
#include <QByteArray>
#include <QCheckBox>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMap>
#include <QPoint>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QRect>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <memory>
#include <vector>

// What a service fixture wrote into $QUORVEL_TEST_STATE/NAME.env (KEY=VALUE lines).
inline QMap<QString, QString> serviceEnv(const QString& name)
{
    QMap<QString, QString> env;
    QFile f(qEnvironmentVariable("QUORVEL_TEST_STATE") + QStringLiteral("/") + name +
            QStringLiteral(".env"));
    if (!f.open(QIODevice::ReadOnly))
        return env;
    for (const QByteArray& raw : f.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        const qsizetype eq = line.indexOf(u'=');
        if (eq > 0)
            env.insert(line.left(eq), line.mid(eq + 1));
    }
    return env;
}

// Every byte value once, 0 to 255.
inline QByteArray allByteValues()
{
    QByteArray bytes(256, 0);
    for (int i = 0; i < 256; ++i)
        bytes[i] = char(i);
    return bytes;
}

// A TCP port that nothing listens on right now.
inline quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// A client's PostScript job of Letter pages, each with text, colour fills and a gray ramp.
inline QByteArray makePsJob(int pages)
{
    const QByteArray n = QByteArray::number(pages);
    QByteArray ps = "%!PS-Adobe-3.0\n%%Creator: quorvel tests\n%%Title: test job " + n +
                    " pages\n%%Pages: " + n +
                    "\n%%BoundingBox: 0 0 612 792\n%%EndComments\n"
                    "%%BeginProlog\n/F { findfont exch scalefont setfont } bind def\n"
                    "%%EndProlog\n";
    for (int i = 1; i <= pages; ++i) {
        const QByteArray p = QByteArray::number(i);
        ps += "%%Page: " + p + " " + p +
              "\n<< /PageSize [612 792] >> setpagedevice\ngsave\n"
              "24 /Helvetica-Bold F 72 720 moveto (Test page " +
              p + " of " + n +
              ") show\n"
              "10 /Times-Roman F\n"
              "0 1 40 { /y exch def 72 680 y 14 mul sub moveto (The quick brown fox jumps "
              "over the lazy dog 0123456789 line ) show y 3 string cvs show } for\n"
              "1 0 0 setrgbcolor 72 72 150 100 rectfill\n"
              "0 0.6 0 setrgbcolor 250 72 150 100 rectfill\n"
              "0 0 1 setrgbcolor 428 72 112 100 rectfill\n"
              "0 1 99 { /k exch def k 99 div setgray 72 k 4.68 mul add 190 4.68 40 rectfill } "
              "for\n"
              "0 setgray 2 setlinewidth 72 240 moveto 540 240 lineto stroke\n"
              "grestore\nshowpage\n";
    }
    return ps + "%%EOF\n";
}

// What a program prints (stdout, then stderr), or "" when it cannot be run.
inline QString runTool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(60000))
        return QString();
    return QString::fromLocal8Bit(p.readAllStandardOutput() + p.readAllStandardError());
}

inline QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
}

inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

inline QStringList rowTexts(const QListWidget* list)
{
    QStringList texts;
    for (int i = 0; i < list->count(); ++i)
        texts << list->item(i)->text();
    return texts;
}

inline int pdfPages(const QString& path)
{
    for (const QString& line : runTool(QStringLiteral("pdfinfo"), {path}).split(u'\n'))
        if (line.startsWith(QLatin1String("Pages:")))
            return line.mid(6).trimmed().toInt();
    return -1;
}

// Another process that keeps the file open (bash redirection ">>" or "<")
// until this goes away.
struct FileHolder {
    QProcess p;
    explicit FileHolder(const QString& path, const char* redirect = ">>")
    {
        p.start(QStringLiteral("bash"),
                {QStringLiteral("-c"),
                 QStringLiteral("exec 3%1\"$1\"; echo ready; exec sleep 60").arg(redirect),
                 QStringLiteral("holder"), path});
        p.waitForReadyRead(10000);
    }
    ~FileHolder()
    {
        p.kill();
        p.waitForFinished(10000);
    }
};

// The queues of the cups fixture: cups-pdf (printed pages land as PDF files
// in CUPS_PDF_OUT), a file queue and one that rejects jobs.
struct Cups {
    QMap<QString, QString> env = serviceEnv(QStringLiteral("cups"));
    QString value(const char* key) const { return env.value(QLatin1String(key)); }
    QString pdfQueue() const { return value("CUPS_PDF_QUEUE"); }
    QString fileQueue() const { return value("CUPS_FILE_QUEUE"); }
    QString rejectQueue() const { return value("CUPS_REJECT_QUEUE"); }
    QStringList printed() const
    {
        return QDir(value("CUPS_PDF_OUT")).entryList({QStringLiteral("*.pdf")}, QDir::Files);
    }
    // cups-pdf keeps a PDF private (0600) until it is complete.
    QString newCompletePdf(const QStringList& before) const
    {
        for (const QString& name : printed()) {
            const QFileInfo info(value("CUPS_PDF_OUT") + QStringLiteral("/") + name);
            if (!before.contains(name) && (info.permissions() & QFile::ReadOther))
                return info.filePath();
        }
        return QString();
    }
};

// A test main on the private scheduler, set before anything asks CUPS.
#define QUORVEL_CUPS_TEST_MAIN(TestClass)                                                          \
    int main(int argc, char* argv[])                                                               \
    {                                                                                              \
        const Cups cups;                                                                           \
        if (!cups.env.isEmpty()) {                                                                 \
            qputenv("CUPS_SERVER", cups.value("CUPS_SERVER").toLocal8Bit());                       \
            qputenv("IPP_PORT", cups.value("CUPS_PORT").toLocal8Bit());                            \
        }                                                                                          \
        QApplication app(argc, argv);                                                              \
        QApplication::setQuitOnLastWindowClosed(false);                                            \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }

// A main window on a free port, in its own program folder (a blank in its name tries quoting)
// and settings (put before start() is what it loads); every message shown is recorded.
struct TestServer {
    QTemporaryDir root;
    QString folder = root.path() + QStringLiteral("/program folder");
    quint16 port = freePort();
    std::vector<Message> messages;
    std::unique_ptr<frmMain> window;

    TestServer()
    {
        QDir().mkpath(folder);
        Paths::setProgramFolder(folder);
        SettingsStore::setFolder(root.filePath(QStringLiteral("settings")));
        setMsgRecorder([this](const Message& m) { messages.push_back(m); });
    }
    ~TestServer()
    {
        // Ghostscript closes its output a moment before it exits.
        if (window)
            QTRY_VERIFY_WITH_TIMEOUT(window->findChildren<QProcess*>().isEmpty(), 60000);
        window.reset();
        setMsgRecorder({});
        SettingsStore::setFolder(QString());
    }
    frmMain& start(ProgramIds ids = {QString(), QStringLiteral("quorvel-test")})
    {
        window = std::make_unique<frmMain>(port, std::move(ids));
        return *window;
    }
    void put(const char* key, const QString& value)
    {
        SettingsStore::put(QLatin1String(key), value);
    }

    QString jobFolder() const { return Paths::jobFolder(); }
    QString jobPath(const QString& name) const { return jobFolder() + QDir::separator() + name; }
    QStringList jobFiles() const
    {
        return QDir(jobFolder()).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }
    // Every message shown, for failure output.
    QString shown() const
    {
        QStringList texts;
        for (const Message& m : messages)
            texts << m.text;
        return texts.join(u'|');
    }
};

// Sends a job the way a network client does: connect, write everything,
// close. Returns at once; the socket goes away once the server has it all.
inline QTcpSocket* sendJob(quint16 port, const QByteArray& data, bool close = true)
{
    auto* c = new QTcpSocket;
    QObject::connect(c, &QTcpSocket::connected, c, [c, data, close] {
        c->write(data);
        if (close)
            c->disconnectFromHost(); // after the pending bytes
    });
    QObject::connect(c, &QTcpSocket::disconnected, c, &QObject::deleteLater);
    QObject::connect(c, &QTcpSocket::errorOccurred, c, [c](QAbstractSocket::SocketError e) {
        if (e != QAbstractSocket::RemoteHostClosedError)
            qWarning("client: %s", qPrintable(c->errorString()));
        c->deleteLater();
    });
    c->connectToHost(QHostAddress::LocalHost, port);
    return c;
}

// The program itself, headless on a free port, with its own folder and settings; log() is all
// it has printed since it started. The log goes to a file: a pipe that nobody drains while the
// test waits would stall the program.
struct HeadlessQuorvel {
    QTemporaryDir home;
    quint16 port = freePort();
    QProcess process;

    HeadlessQuorvel() { process.setProcessChannelMode(QProcess::MergedChannels); }
    ~HeadlessQuorvel() { stop(); }
    QString jobFolder() const { return home.filePath(QStringLiteral("ImagesPdfExport")); }
    void put(const QString& key, const QVariant& value)
    {
        QSettings(home.filePath(QStringLiteral("settings/Quorvel.ini")), QSettings::IniFormat)
            .setValue(QStringLiteral("Quorvel/") + key, value);
    }
    // Starts it with ARGS and waits until it listens.
    bool start(QStringList args = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QUORVEL_SETTINGS_DIR"),
                   home.filePath(QStringLiteral("settings")));
        process.setProcessEnvironment(env);
        // A new log: the last run's lines must not answer a wait of this one.
        QFile::remove(home.filePath(QStringLiteral("log.txt")));
        process.setStandardOutputFile(home.filePath(QStringLiteral("log.txt")));
        process.start(qEnvironmentVariable("QUORVEL_BINARY"),
                      args << QStringLiteral("--headless") << QStringLiteral("--port")
                           << QString::number(port) << QStringLiteral("--program-folder")
                           << home.path());
        return waitForLog(QStringLiteral("Listening to port"));
    }
    QString log() const
    {
        return QString::fromLocal8Bit(readFile(home.filePath(QStringLiteral("log.txt"))));
    }
    bool waitForLog(const QString& text, int ms = 10000)
    {
        QDeadlineTimer deadline(ms);
        while (!log().contains(text) && !deadline.hasExpired())
            QTest::qWait(20);
        return log().contains(text);
    }
    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(10000))
            process.kill();
        process.waitForFinished(5000);
    }
};

// Sends FILE as document-format TYPE by IPP Print-Job to URI with ipptool, waiting out busy
// answers, then waits until the job has ended; true when it completed. said: ipptool's words.
inline bool ippPrint(const QString& uri, const QString& file, const QString& type,
                     const QString& title = QStringLiteral("job"), QString* said = nullptr,
                     int jobs = 1)
{
    const QString test = qEnvironmentVariable("QUORVEL_TEST_SUPPORT") + "/ipp-print.test";
    QStringList args{QStringLiteral("240"),
                     QStringLiteral("ipptool"),
                     QStringLiteral("-tv"),
                     QStringLiteral("-T"),
                     QStringLiteral("60"),
                     QStringLiteral("-f"),
                     file,
                     QStringLiteral("-d"),
                     QStringLiteral("type=") + type,
                     QStringLiteral("-d"),
                     QStringLiteral("title=") + title,
                     QStringLiteral("-d"),
                     QStringLiteral("poll=0.2"),
                     uri};
    for (int job = 0; job < jobs; ++job) // each file given is run in turn
        args << test;
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("timeout"), args);
    p.waitForFinished(250000);
    if (said)
        *said = QString::fromLocal8Bit(p.readAll());
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

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
