#pragma once

#include "dispatch/job.h"
#include "server/listenoptions.h"

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

// An IPP Everywhere printer at ipp://HOST:PORT/ipp/print, on the IPP library's own
// threads: nothing of the program runs there. Each document becomes a complete file in the
// spool folder and crosses to the event loop by a queued call; the library's job waits for
// the program's verdict, so "completed" means the output exists.
class IppPrinter : public QObject
{
    Q_OBJECT
public:
    struct Document {
        QString partPath; // complete and synced, in the spool folder: the receiver's now
        QString format;   // document-format as the job has it
        QString client;   // the sender's address
        QString user, title;
        int id = 0; // job-id
        qint64 bytes = 0;
    };
    using Verdict = std::function<void(const JobOutcome&)>; // any thread, once
    struct Host {
        std::function<void(const QString&)> log;
        std::function<void(const Document&, Verdict)> print; // from the event loop
    };
    struct Config {
        quint16 port = 8631;
        ListenOptions listen;  // address, allowed networks and connection cap; not its port
        QString spoolFolder;   // the queue's spool folder: documents are linked there
        QString libraryFolder; // the library's own documents and log
        QString name;          // the printer's name on the LAN
        int workers = 1;
    };
    IppPrinter(Config config, Host host, QObject* parent = nullptr);
    ~IppPrinter() override; // waiting jobs are answered, the library's threads end
    // Listening once true; why says what failed.
    bool start(QString* why);

    struct Private;

private:
    std::unique_ptr<Private> d;
};
