#include "ipp/ippprinter.h"

#include "common/paths.h"
#include "platform/quitsignals.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QPointer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <grp.h>
#include <map>
#include <mutex>
#include <thread>
#include <unistd.h>

#include <cups/raster.h>
#include <pappl/pappl.h>

namespace
{
// What the printer takes; PWG raster and URF come line by line through the raster callbacks.
constexpr const char* kFiledFormats[] = {"application/pdf", "application/postscript", "image/jpeg",
                                         "image/png", "application/octet-stream"};
constexpr const char* kDriver = "quorvel";
constexpr const char* kDeviceId =
    "MFG:Quorvel;MDL:Quorvel;CMD:PDF,POSTSCRIPT,JPEG,PNG,PWGRASTER,URF;";
constexpr int kLibraryLogBytes = 1 << 20;
constexpr std::size_t kRememberedJobs = 1024;

// The library's spool device: documents never leave through it.
bool deviceOpen(pappl_device_t*, const char*, const char*)
{
    return true;
}
void deviceClose(pappl_device_t*) {}
ssize_t deviceRead(pappl_device_t*, void*, size_t)
{
    return 0;
}
ssize_t deviceWrite(pappl_device_t*, const void*, size_t bytes)
{
    return ssize_t(bytes);
}
pappl_preason_t deviceStatus(pappl_device_t*)
{
    return PAPPL_PREASON_NONE;
}

// The address of the client whose request this library thread is answering.
thread_local QString t_peer;

QString text(const char* s)
{
    return s ? QString::fromUtf8(s) : QString();
}
} // namespace

struct IppPrinter::Private {
    // One job's wait for the program's verdict, shared with a second start of the same job.
    struct Waiting {
        bool done = false;
        JobOutcome outcome;
    };
    // A raster job being written back as one PWG raster file.
    struct Raster {
        QString path;
        int fd = -1;
        cups_raster_t* stream = nullptr;
        unsigned lines = 0; // of the page being written
        bool failed = false;
        bool cut = false; // a page ended before its last line
    };

    IppPrinter* owner = nullptr;
    Config config;
    Host host;
    pappl_system_t* system = nullptr;
    std::thread loop;
    // Shared with the verdicts, which may come after this printer is gone.
    struct Sync {
        std::mutex mutex;
        std::condition_variable changed;
        bool stopping = false;
    };
    std::shared_ptr<Sync> sync = std::make_shared<Sync>();
    std::mutex& mutex = sync->mutex;
    std::condition_variable& changed = sync->changed;
    bool& stopping = sync->stopping;
    std::map<int, std::shared_ptr<Waiting>> jobs; // by job-id, kept a while after they end
    std::deque<int> ended;
    std::atomic<quint64> parts{0};
    std::map<int, QString> senders; // job-id -> the address that created it

    // From any thread: a line in the program's log.
    void log(const QString& line)
    {
        QPointer<IppPrinter> to = owner;
        QMetaObject::invokeMethod(
            owner,
            [to, line] {
                if (to && to->d->host.log)
                    to->d->host.log(line);
            },
            Qt::QueuedConnection);
    }

    QString partName(int id)
    {
        return Paths::join(config.spoolFolder, QStringLiteral("ipp-%1-%2-%3.part")
                                                   .arg(QCoreApplication::applicationPid())
                                                   .arg(id)
                                                   .arg(++parts));
    }

    // On the library's job thread: hands the file over and waits for the job's end.
    bool handOff(pappl_job_t* job, const QString& source, bool ours, const char* format);
    void finish(pappl_job_t* job, const JobOutcome& outcome);

    static bool filterDocument(pappl_job_t* job, pappl_device_t*, void* data);
    static http_status_t authorize(pappl_client_t* client, const char*, gid_t, void* data);
    static void event(pappl_system_t*, pappl_printer_t*, pappl_job_t* job, pappl_event_t event,
                      void* data);
    static bool driver(pappl_system_t*, const char*, const char*, const char*,
                       pappl_pr_driver_data_t* driver, ipp_t**, void* data);
    static bool rasterStart(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*);
    static bool rasterPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*,
                           unsigned);
    static bool rasterLine(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*, unsigned,
                           const unsigned char* line);
    static bool rasterPageEnd(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*,
                              unsigned)
    {
        auto* raster = static_cast<Raster*>(papplJobGetData(job));
        if (raster && raster->lines < options->header.cupsHeight)
            raster->failed = raster->cut = true;
        return raster && !raster->failed;
    }
    static bool rasterEnd(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*);
    static bool status(pappl_printer_t*) { return true; }
    // The raster callbacks get no data pointer: the driver's extension holds it.
    static Private* of(pappl_job_t* job)
    {
        pappl_pr_driver_data_t data;
        return static_cast<Private*>(
            papplPrinterGetDriverData(papplJobGetPrinter(job), &data)->extension);
    }
    QByteArray page; // the library serves it from here
    pappl_printer_t* printer = nullptr;
    // Jobs the library ended before their document was handed over (a full disk) send no
    // event: a look now and then finds them, for the log.
    void sweep();
};

void IppPrinter::Private::sweep()
{
    std::vector<int> ids;
    {
        std::lock_guard lock(mutex);
        for (const auto& [id, from] : senders)
            ids.push_back(id);
    }
    for (const int id : ids) {
        pappl_job_t* job = papplPrinterFindJob(printer, id);
        const ipp_jstate_t state = job ? papplJobGetState(job) : IPP_JSTATE_ABORTED;
        if (state < IPP_JSTATE_CANCELED)
            continue;
        std::lock_guard lock(mutex);
        if (!senders.erase(id) || jobs.count(id))
            continue; // handed over meanwhile
        if (state != IPP_JSTATE_COMPLETED)
            log(QStringLiteral("IPP job %1 is refused before it was kept (%2): the client was "
                               "told, and nothing of it is kept")
                    .arg(id)
                    .arg(text(ippEnumString("job-state", state))));
    }
}

bool IppPrinter::Private::handOff(pappl_job_t* job, const QString& source, bool ours,
                                  const char* format)
{
    const int id = papplJobGetID(job);
    std::shared_ptr<Waiting> waiting;
    bool again = false;
    {
        std::lock_guard lock(mutex);
        auto& slot = jobs[id];
        again = bool(slot);
        if (!slot)
            slot = std::make_shared<Waiting>();
        waiting = slot;
    }
    if (again) { // the library started this job twice: the first start's verdict holds
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return waiting->done || stopping; });
        return waiting->done && waiting->outcome.status != JobOutcome::Status::Failed;
    }

    const auto fail = [&](const QString& why) {
        std::lock_guard lock(mutex);
        waiting->outcome = {JobOutcome::Status::Failed, why, {}, -1};
        waiting->done = true;
        changed.notify_all();
        return false;
    };
    // The library removes its document when this returns: the spool gets its own name.
    const QString part = partName(id);
    const QByteArray sourceName = QFile::encodeName(source), partFile = QFile::encodeName(part);
    const bool placed = ours ? ::rename(sourceName.constData(), partFile.constData()) == 0
                             : ::link(sourceName.constData(), partFile.constData()) == 0 ||
                                   QFile::copy(source, part);
    if (!placed) {
        log(QStringLiteral("IPP job %1 is refused: its document cannot be kept in %2 (%3)")
                .arg(id)
                .arg(QDir::toNativeSeparators(config.spoolFolder),
                     QString::fromLocal8Bit(std::strerror(errno))));
        finish(job, {JobOutcome::Status::Failed, QStringLiteral("not kept"), {}, -1});
        return fail(QStringLiteral("its document cannot be kept"));
    }
    if (const int fd = ::open(partFile.constData(), O_RDONLY | O_CLOEXEC); fd >= 0) {
        ::fsync(fd); // the job exists once its bytes are on the disk
        ::close(fd);
    }

    Document doc;
    doc.partPath = part;
    doc.format = text(format);
    doc.id = id;
    doc.user = text(papplJobGetUsername(job));
    doc.title = text(papplJobGetName(job));
    doc.bytes = QFileInfo(part).size();
    {
        std::lock_guard lock(mutex);
        if (const auto sender = senders.find(id); sender != senders.end()) {
            doc.client = sender->second;
            senders.erase(sender);
        }
    }

    QPointer<IppPrinter> printer = owner;
    QMetaObject::invokeMethod(
        owner,
        [printer, doc, waiting] {
            if (!printer)
                return;
            Private* self = printer->d.get();
            self->host.print(doc, [sync = self->sync, waiting](const JobOutcome& outcome) {
                std::lock_guard lock(sync->mutex);
                waiting->outcome = outcome;
                waiting->done = true;
                sync->changed.notify_all();
            });
        },
        Qt::QueuedConnection);

    JobOutcome outcome;
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return waiting->done || stopping; });
        if (!waiting->done) {
            waiting->outcome = {JobOutcome::Status::Failed,
                                QStringLiteral("the print server stopped first"),
                                {},
                                -1};
            waiting->done = true;
        }
        outcome = waiting->outcome;
        ended.push_back(id);
        while (ended.size() > kRememberedJobs) {
            jobs.erase(ended.front());
            ended.pop_front();
        }
    }
    finish(job, outcome);
    return outcome.status == JobOutcome::Status::Done ||
           outcome.status == JobOutcome::Status::KeptUnconverted;
}

void IppPrinter::Private::finish(pappl_job_t* job, const JobOutcome& outcome)
{
    if (outcome.pages > 0) {
        papplJobSetImpressions(job, outcome.pages);
        papplJobSetImpressionsCompleted(job, outcome.pages);
    }
    using Status = JobOutcome::Status;
    const QString said = outcome.status == Status::Done
                             ? QStringLiteral("Done: %1").arg(outcome.outputs.join(", "))
                         : outcome.status == Status::KeptUnconverted
                             ? QStringLiteral("Kept as it came: %1").arg(outcome.outputs.join(", "))
                             : QStringLiteral("Not done: %1").arg(outcome.reason);
    papplJobSetMessage(job, "%s", said.left(255).toUtf8().constData());
}

bool IppPrinter::Private::filterDocument(pappl_job_t* job, pappl_device_t*, void* data)
{
    auto* self = static_cast<Private*>(data);
    return self->handOff(job, text(papplJobGetFilename(job)), false, papplJobGetFormat(job));
}

bool IppPrinter::Private::rasterStart(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*)
{
    auto* self = of(job);
    auto* raster = new Raster;
    raster->path = self->partName(papplJobGetID(job)) + QStringLiteral(".pwg");
    raster->fd = ::open(QFile::encodeName(raster->path).constData(),
                        O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (raster->fd >= 0)
        raster->stream = cupsRasterOpen(raster->fd, CUPS_RASTER_WRITE_PWG);
    papplJobSetData(job, raster);
    if (!raster->stream) {
        self->log(QStringLiteral("IPP job %1 is refused: its raster file cannot be made in %2")
                      .arg(papplJobGetID(job))
                      .arg(QDir::toNativeSeparators(self->config.spoolFolder)));
        raster->failed = true;
    }
    return !raster->failed;
}

bool IppPrinter::Private::rasterPage(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*,
                                     unsigned)
{
    auto* raster = static_cast<Raster*>(papplJobGetData(job));
    if (raster)
        raster->lines = 0;
    if (raster && raster->stream && !cupsRasterWriteHeader2(raster->stream, &options->header))
        raster->failed = true;
    return raster && !raster->failed;
}

bool IppPrinter::Private::rasterLine(pappl_job_t* job, pappl_pr_options_t* options, pappl_device_t*,
                                     unsigned, const unsigned char* line)
{
    auto* raster = static_cast<Raster*>(papplJobGetData(job));
    const unsigned bytes = options->header.cupsBytesPerLine;
    if (raster)
        ++raster->lines;
    if (raster && raster->stream &&
        cupsRasterWritePixels(raster->stream, const_cast<unsigned char*>(line), bytes) != bytes)
        raster->failed = true; // a full disk: the job is not kept in part
    return raster && !raster->failed;
}

bool IppPrinter::Private::rasterEnd(pappl_job_t* job, pappl_pr_options_t*, pappl_device_t*)
{
    auto* self = of(job);
    std::unique_ptr<Raster> raster(static_cast<Raster*>(papplJobGetData(job)));
    papplJobSetData(job, nullptr);
    if (!raster)
        return false;
    if (raster->stream)
        cupsRasterClose(raster->stream);
    if (raster->fd >= 0 && (::fsync(raster->fd) != 0 || ::close(raster->fd) != 0))
        raster->failed = true;
    // The library ends the job here also when it could not read the raster: what was written
    // back is then part of a job, never the job.
    if (raster->cut || papplJobIsCanceled(job) ||
        papplJobGetReasons(job) & PAPPL_JREASON_DOCUMENT_FORMAT_ERROR) {
        self->log(QStringLiteral("IPP job %1 is not kept: %2, so the job is aborted")
                      .arg(papplJobGetID(job))
                      .arg(raster->cut ? QStringLiteral("its raster data end inside a page")
                                       : QStringLiteral("its raster data cannot be read")));
        raster->failed = true;
    }
    if (raster->failed) {
        QFile::remove(raster->path);
        std::lock_guard lock(self->mutex); // said once: not again as refused
        self->jobs.emplace(papplJobGetID(job), std::make_shared<Waiting>(Waiting{true, {}}));
        return false;
    }
    return self->handOff(job, raster->path, true, "image/pwg-raster");
}

http_status_t IppPrinter::Private::authorize(pappl_client_t* client, const char*, gid_t, void* data)
{
    // Asked before a job is made, on the thread that then makes it: the job's sender is known.
    auto* self = static_cast<Private*>(data);
    const http_addr_t* address = httpGetAddress(papplClientGetHTTP(client));
    QHostAddress peer(reinterpret_cast<const sockaddr*>(address));
    if (bool ok = false; peer.protocol() == QAbstractSocket::IPv6Protocol) {
        const QHostAddress v4(peer.toIPv4Address(&ok));
        if (ok)
            peer = v4;
    }
    t_peer = peer.toString();
    if (self->config.listen.allows(peer))
        return HTTP_STATUS_CONTINUE;
    self->log(QStringLiteral("IPP request from %1 refused: only %2 may print here")
                  .arg(peer.toString(), self->config.listen.allowedText()));
    return HTTP_STATUS_FORBIDDEN;
}

void IppPrinter::Private::event(pappl_system_t*, pappl_printer_t*, pappl_job_t* job,
                                pappl_event_t event, void* data)
{
    auto* self = static_cast<Private*>(data);
    if (!job)
        return;
    const int id = papplJobGetID(job);
    std::lock_guard lock(self->mutex);
    // Made on the thread of the request that created it, whose address authorize() saw.
    if (!(event & PAPPL_EVENT_JOB_CREATED))
        return;
    self->senders[id] = t_peer;
    while (self->senders.size() > kRememberedJobs) // jobs cancelled before they started
        self->senders.erase(self->senders.begin());
}

bool IppPrinter::Private::driver(pappl_system_t*, const char*, const char*, const char*,
                                 pappl_pr_driver_data_t* d, ipp_t** attrs, void* data)
{
    d->extension = data;
    // Shown in the connection log: the one display a print server has.
    d->identify_cb = [](pappl_printer_t* printer, pappl_identify_actions_t, const char* message) {
        pappl_pr_driver_data_t own;
        static_cast<Private*>(papplPrinterGetDriverData(printer, &own)->extension)
            ->log(QStringLiteral("An IPP client asks this printer to show itself%1")
                      .arg(message && *message ? QStringLiteral(": ") + text(message) : QString()));
    };
    d->identify_default = d->identify_supported = PAPPL_IDENTIFY_ACTIONS_DISPLAY;
    d->printfile_cb = nullptr;
    d->rstartjob_cb = rasterStart;
    d->rstartpage_cb = rasterPage;
    d->rwriteline_cb = rasterLine;
    d->rendpage_cb = rasterPageEnd;
    d->rendjob_cb = rasterEnd;
    d->status_cb = status;
    d->format = "application/pdf";
    std::snprintf(d->make_and_model, sizeof d->make_and_model, "Quorvel print server");
    d->ppm = 30;
    d->ppm_color = 30;
    d->kind = PAPPL_KIND_DOCUMENT | PAPPL_KIND_PHOTO;
    d->color_supported =
        PAPPL_COLOR_MODE_AUTO | PAPPL_COLOR_MODE_COLOR | PAPPL_COLOR_MODE_MONOCHROME;
    d->color_default = PAPPL_COLOR_MODE_AUTO;
    d->content_default = PAPPL_CONTENT_AUTO;
    d->quality_default = IPP_QUALITY_NORMAL;
    d->scaling_default = PAPPL_SCALING_AUTO;
    d->raster_types = PAPPL_PWG_RASTER_TYPE_BLACK_1 | PAPPL_PWG_RASTER_TYPE_SGRAY_8 |
                      PAPPL_PWG_RASTER_TYPE_SRGB_8;
    d->sides_supported = PAPPL_SIDES_ONE_SIDED;
    d->sides_default = PAPPL_SIDES_ONE_SIDED;
    d->orient_default = IPP_ORIENT_PORTRAIT;
    d->num_resolution = 2;
    d->x_resolution[0] = d->y_resolution[0] = 150;
    d->x_resolution[1] = d->y_resolution[1] = 300;
    d->x_default = d->y_default = 300;
    d->left_right = d->bottom_top = 423; // 1/6 in, as most office printers
    static const char* const media[] = {"iso_a4_210x297mm", "na_letter_8.5x11in",
                                        "na_legal_8.5x14in", "iso_a5_148x210mm"};
    d->num_media = 4;
    for (int i = 0; i < 4; ++i)
        d->media[i] = media[i];
    d->num_source = 1;
    d->source[0] = "auto";
    d->num_type = 1;
    d->type[0] = "stationery";
    pappl_media_col_t& m = d->media_default;
    std::snprintf(m.size_name, sizeof m.size_name, "%s", media[0]);
    m.size_width = 21000;
    m.size_length = 29700;
    m.left_margin = m.right_margin = m.top_margin = m.bottom_margin = 423;
    std::snprintf(m.source, sizeof m.source, "auto");
    std::snprintf(m.type, sizeof m.type, "stationery");
    d->media_ready[0] = m;
    // What the library leaves to the driver: pages as sent, one side, no preferred values.
    *attrs = ippNew();
    ippAddBoolean(*attrs, IPP_TAG_PRINTER, "preferred-attributes-supported", 0);
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "print-rendering-intent-default",
                 nullptr, "auto");
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "print-rendering-intent-supported",
                 nullptr, "auto");
    ippAddString(*attrs, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, "pwg-raster-document-sheet-back",
                 nullptr, "normal");
    return true;
}

IppPrinter::IppPrinter(Config config, Host host, QObject* parent)
    : QObject(parent), d(std::make_unique<Private>())
{
    d->owner = this;
    d->config = std::move(config);
    d->host = std::move(host);
}

IppPrinter::~IppPrinter()
{
    if (!d->system)
        return;
    {
        std::lock_guard lock(d->mutex);
        d->stopping = true;
        d->changed.notify_all();
    }
    papplSystemShutdown(d->system);
    // The library's loop notices the shutdown at its next wake-up, up to half a minute away
    // when idle: a connection wakes it now.
    QTcpSocket knock;
    const QHostAddress& address = d->config.listen.address;
    knock.connectToHost(address == QHostAddress::Any || address == QHostAddress::AnyIPv4 ||
                                address == QHostAddress::AnyIPv6
                            ? QHostAddress(QHostAddress::LocalHost)
                            : address,
                        d->config.port);
    knock.waitForConnected(1000);
    knock.abort();
    if (d->loop.joinable())
        d->loop.join();
    papplSystemDelete(d->system);
}

bool IppPrinter::start(QString* why)
{
    // The library keeps no state between runs: what an earlier run left is not a job.
    QDir library(d->config.libraryFolder);
    if (library.exists())
        library.removeRecursively();
    if (!QDir().mkpath(d->config.libraryFolder) || !QDir().mkpath(d->config.spoolFolder)) {
        *why = QStringLiteral("%1 cannot be made")
                   .arg(QDir::toNativeSeparators(d->config.libraryFolder));
        return false;
    }
    static std::once_flag scheme;
    std::call_once(scheme, [] {
        papplDeviceAddScheme("quorvel", PAPPL_DEVTYPE_CUSTOM_LOCAL, nullptr, deviceOpen,
                             deviceClose, deviceRead, deviceWrite, deviceStatus, nullptr);
    });
    const QByteArray folder = QFile::encodeName(d->config.libraryFolder);
    const QByteArray logFile = QFile::encodeName(library.filePath(QStringLiteral("ipp.log")));
    d->system = papplSystemCreate(PAPPL_SOPTIONS_NO_TLS, "Quorvel", d->config.port, "_print",
                                  folder.constData(), logFile.constData(), PAPPL_LOGLEVEL_WARN,
                                  nullptr, false);
    if (!d->system) {
        *why = QStringLiteral("the IPP library could not start");
        return false;
    }
    papplSystemSetMaxLogSize(d->system, kLibraryLogBytes);
    papplSystemSetMaxClients(d->system, d->config.listen.maxConnections);
    const QHostAddress& address = d->config.listen.address;
    const QByteArray listenOn = address == QHostAddress::Any || address == QHostAddress::AnyIPv4 ||
                                        address == QHostAddress::AnyIPv6
                                    ? QByteArray()
                                    : address.toString().toLatin1();
    if (!papplSystemAddListeners(d->system, listenOn.isEmpty() ? nullptr : listenOn.constData())) {
        *why = QStringLiteral("port %1 cannot be listened to (%2)")
                   .arg(d->config.port)
                   .arg(QString::fromLocal8Bit(std::strerror(errno)));
        papplSystemDelete(std::exchange(d->system, nullptr));
        return false;
    }
    // Printing asks whom the printer's group lets in: the answer is the allowed networks.
    papplSystemSetAuthCallback(d->system, "Basic", Private::authorize, d.get());
    papplSystemSetEventCallback(d->system, Private::event, d.get());
    for (const char* format : kFiledFormats)
        papplSystemAddMIMEFilter(d->system, format, "application/pdf", Private::filterDocument,
                                 d.get());
    static pappl_pr_driver_t drivers[] = {{kDriver, "Quorvel", kDeviceId, nullptr}};
    papplSystemSetPrinterDrivers(d->system, 1, drivers, nullptr, nullptr, Private::driver, d.get());
    pappl_printer_t* printer =
        papplPrinterCreate(d->system, 0, "Quorvel", kDriver, kDeviceId, "quorvel://spool");
    if (!printer) {
        *why = QStringLiteral("the printer could not be made");
        papplSystemDelete(std::exchange(d->system, nullptr));
        return false;
    }
    d->printer = printer;
    auto* sweep = new QTimer(this);
    connect(sweep, &QTimer::timeout, this, [this] { d->sweep(); });
    sweep->start(2000);
    papplPrinterSetDNSSDName(printer, d->config.name.toUtf8().constData());
    if (const group* own = getgrgid(getgid()))
        papplPrinterSetPrintGroup(printer, own->gr_name);
    papplPrinterSetMaxActiveJobs(printer, qMax(1, d->config.workers));
    d->page =
        QStringLiteral("<!DOCTYPE html><html><head><title>%1</title></head><body><h1>%1</h1>"
                       "<p>A Quorvel print server. Print to <code>ipp://HOST:%2/ipp/print</code>"
                       "; jobs become files or relayed prints as its user chose.</p></body>"
                       "</html>")
            .arg(d->config.name.toHtmlEscaped())
            .arg(d->config.port)
            .toUtf8();
    papplSystemAddResourceData(d->system, "/", "text/html", d->page.constData(),
                               size_t(d->page.size()));
    d->loop = std::thread([system = d->system] { papplSystemRun(system); });
    for (int i = 0; i < 500 && !papplSystemIsRunning(d->system); ++i)
        QThread::msleep(10);
    // The library's run takes over SIGINT and SIGTERM: they end the program's loop again.
    quitOnTerminationSignals();
    return true;
}
