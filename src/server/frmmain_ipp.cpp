// The IPP printer: a second way in to the same job queue.
#include "common/paths.h"
#include "dispatch/jobqueue.h"
#include "server/frmmain.h"

#include <QDir>
#include <QTextEdit>

#ifdef QUORVEL_HAVE_IPP
#include "ipp/dnssd.h"
#include "ipp/ippprinter.h"

void frmMain::startIpp(int port, int workers)
{
    IppPrinter::Config config;
    config.port = quint16(port);
    config.listen = m_Listen;
    config.spoolFolder = m_JobQueue->spoolFolder();
    config.libraryFolder = Paths::join(m_JobQueue->spoolFolder(), QStringLiteral("ipp"));
    // Its name on the LAN follows the installation, which names this computer to its users.
    config.name = QStringLiteral("Quorvel %1").arg(m_Ids.installationId).left(63);
    config.workers = workers;
    IppPrinter::Host host;
    host.log = [this](const QString& line) { txtLog->append(line); };
    host.print = [this](const IppPrinter::Document& doc, IppPrinter::Verdict verdict) {
        // Beside the 9100 connections in the connection log.
        addStatus(QStringLiteral("IPP job %1 from %2, user \"%3\", title \"%4\": %5, %6 bytes")
                      .arg(doc.id)
                      .arg(doc.client, doc.user, doc.title, doc.format)
                      .arg(doc.bytes));
        m_JobQueue->adopt(doc.partPath, {doc.client, doc.title, doc.user, std::move(verdict)});
    };
    m_Ipp = new IppPrinter(config, host, this);
    QString why;
    if (!m_Ipp->start(&why)) {
        addStatus(QStringLiteral("No IPP printer: %1").arg(why));
        delete std::exchange(m_Ipp, nullptr);
        return;
    }
    // The library advertises its printer itself; the raw port beside it is the program's.
    auto* dnssd = new DnsSdAdvertiser([this](const QString& line) { addStatus(line); }, m_Ipp);
    dnssd->advertise(config.name, QStringLiteral("_pdl-datastream._tcp"), m_Listen.port,
                     pdlDatastreamTxt(QStringLiteral("Quorvel print server")));
    addStatus(QStringLiteral("IPP printer \"%1\" at ipp://%2:%3/ipp/print")
                  .arg(config.name, m_Listen.address == QHostAddress::Any
                                        ? QStringLiteral("HOST")
                                        : m_Listen.address.toString())
                  .arg(port));
}
#else
void frmMain::startIpp(int port, int)
{
    addStatus(
        QStringLiteral("No IPP printer on port %1: this build of Quorvel has none").arg(port));
}
#endif
