// Measuring tool of the dispatch benchmark.
//   job PAGES FILE               writes a PostScript job of PAGES Letter pages
//   send PORT FILE FOLDER        sends FILE over TCP, closes, and prints the seconds from
//                                the close until FOLDER holds no .ps any more (the job is done)
//   gs pdf|tiff|colour OUT PS    runs Ghostscript with the program's command line; prints
//                                wall seconds and CPU seconds
//   cpu PID                      prints the CPU seconds of all threads of PID
#include "common/paths.h"
#include "convert/conversion.h"
#include "platform/ghostscript.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{
double cpuSeconds(const QString& pid)
{
    // schedstat: nanoseconds on a CPU, per thread.
    double total = 0;
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString& t : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile f(tasks + QLatin1Char('/') + t + QStringLiteral("/schedstat"));
        if (f.open(QIODevice::ReadOnly))
            total += f.readAll().split(' ').value(0).toDouble() / 1e9;
    }
    return total;
}

bool holdsPs(const QString& folder)
{
    return !QDir(folder).entryList({QStringLiteral("*.ps")}, QDir::Files).isEmpty();
}

int send(quint16 port, const QString& file, const QString& folder)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray data = f.readAll();
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0)
        return 1;
    for (qsizetype off = 0; off < data.size();) {
        const ssize_t n = write(s, data.constData() + off, size_t(data.size() - off));
        if (n <= 0)
            return 1;
        off += n;
    }
    close(s);
    QElapsedTimer t;
    t.start();
    // The .ps appears once the server has the whole job, and goes once it is done.
    while (!holdsPs(folder) && t.elapsed() < 10000)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    while (holdsPs(folder))
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    std::printf("%.4f\n", double(t.nsecsElapsed()) / 1e9);
    return 0;
}

int runGs(const QString& kind, const QString& out, const QString& ps)
{
    const GsOutput o = kind == QLatin1String("pdf")    ? GsOutput::Pdf
                       : kind == QLatin1String("tiff") ? GsOutput::ImageGray
                                                       : GsOutput::ImageColour;
    const QString gsPath =
        QString::fromStdWString(ghostscriptProgram(Paths::programFolder().toStdWString()));
    QStringList args = QProcess::splitCommand(GhostscriptCommandLine(o, gsPath, out, ps));
    const QString program = args.takeFirst();
    rusage before{}, after{};
    getrusage(RUSAGE_CHILDREN, &before);
    QElapsedTimer t;
    t.start();
    QProcess gs;
    gs.start(program, args);
    gs.waitForFinished(-1);
    const double wall = double(t.nsecsElapsed()) / 1e9;
    getrusage(RUSAGE_CHILDREN, &after);
    auto secs = [](const timeval& v) { return double(v.tv_sec) + double(v.tv_usec) / 1e6; };
    const double cpu =
        secs(after.ru_utime) - secs(before.ru_utime) + secs(after.ru_stime) - secs(before.ru_stime);
    std::printf("%.4f %.4f\n", wall, cpu);
    return gs.exitCode();
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList a = app.arguments();
    if (a.size() == 4 && a[1] == QLatin1String("job")) {
        QFile f(a[3]);
        return f.open(QIODevice::WriteOnly) && f.write(makePsJob(a[2].toInt())) > 0 ? 0 : 1;
    }
    if (a.size() == 5 && a[1] == QLatin1String("send"))
        return send(quint16(a[2].toUInt()), a[3], a[4]);
    if (a.size() == 5 && a[1] == QLatin1String("gs"))
        return runGs(a[2], a[3], a[4]);
    if (a.size() == 3 && a[1] == QLatin1String("cpu")) {
        std::printf("%.6f\n", cpuSeconds(a[2]));
        return 0;
    }
    std::fprintf(stderr, "usage: see the head of dispatch_probe.cpp\n");
    return 2;
}
