// Job intake over real TCP connections on 127.0.0.1.
#include "common/msgbox.h"
#include "common/paths.h"
#include "freeport.h"
#include "server/frmmain.h"

#include <QDir>
#include <QLabel>
#include <QListWidget>
#include <QRadioButton>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

namespace
{
std::unique_ptr<QTcpSocket> connectClient(quint16 port)
{
    auto s = std::make_unique<QTcpSocket>();
    s->connectToHost(QHostAddress::LocalHost, port);
    if (!s->waitForConnected(5000))
        return nullptr;
    return s;
}

void send(QTcpSocket& s, const QByteArray& data)
{
    s.write(data);
    while (s.bytesToWrite() > 0)
        s.waitForBytesWritten(5000);
}

QStringList items(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}
} // namespace

class TestIntake : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        Paths::setProgramFolder(m_dir->path());
        m_messages.clear();
        setMsgRecorder([this](const Message& m) { m_messages << m.text; });
        m_port = freePort();
        m_form = std::make_unique<frmMain>(m_port);
        QVERIFY(m_form->isListening());
    }
    void cleanup()
    {
        m_form.reset();
        setMsgRecorder({});
    }

    void listenerStatusLine()
    {
        QCOMPARE(m_form->List1->item(0)->text(),
                 QStringLiteral("Listening to port: ") + QString::number(m_port));
        QVERIFY(QDir(m_dir->filePath(QStringLiteral("ImagesPdfExport"))).exists());
        QCOMPARE(m_form->lblConnections->text(), QStringLiteral("0"));
        QVERIFY(!m_form->lblHostID->text().isEmpty());
    }

    void connectAndCloseWithoutData()
    {
        auto c = connectClient(m_port);
        QVERIFY(c);
        QTRY_COMPARE(m_form->connectionCount(), 1);
        QCOMPARE(m_form->lblConnections->text(), QStringLiteral("1"));
        const QString id = m_form->lastRequestId();
        QVERIFY(id.toLongLong() > 0); // the accepted socket's descriptor
        c->disconnectFromHost();
        QTRY_COMPARE(m_form->connectionCount(), 0);
        QCOMPARE(m_form->lblConnections->text(), QStringLiteral("0"));
        const QStringList log = items(m_form->List1);
        QCOMPARE(log.size(), 3);
        QCOMPARE(log[1],
                 QStringLiteral("Connection request id ") + id + QStringLiteral(" from 127.0.0.1"));
        QCOMPARE(log[2], QStringLiteral("Connection closed: 127.0.0.1"));
        // Nothing was dispatched: no job file, no message.
        QVERIFY(m_form->jobBuffer().isEmpty());
        QCOMPARE(QDir(Paths::jobFolder()).entryList(QDir::Files), QStringList());
        QVERIFY(m_messages.isEmpty());
    }

    void twoClientsShareOneBuffer()
    {
        auto a = connectClient(m_port);
        auto b = connectClient(m_port);
        QVERIFY(a && b);
        QTRY_COMPARE(m_form->connectionCount(), 2);
        send(*a, "%!PS-A1 ");
        QTRY_COMPARE(m_form->jobBuffer(), QByteArray("%!PS-A1 "));
        send(*b, "%!PS-B1 ");
        QTRY_COMPARE(m_form->jobBuffer(), QByteArray("%!PS-A1 %!PS-B1 "));
        send(*a, "A2");
        QTRY_COMPARE(m_form->jobBuffer(), QByteArray("%!PS-A1 %!PS-B1 A2"));
        a->disconnectFromHost();
        QTRY_COMPARE(m_form->connectionCount(), 1);
        b->disconnectFromHost();
        QTRY_COMPARE(m_form->connectionCount(), 0);
    }

    void binaryPayloadIsKeptByteForByte()
    {
        QByteArray payload;
        for (int round = 0; round < 4096; ++round)
            for (int b = 0; b < 256; ++b)
                payload.append(char((b * 7 + round) & 0xff)); // 1 MiB, every byte value
        payload.prepend(QByteArray("%!PS\n\0\r\n\xff\xfe", 10));
        auto c = connectClient(m_port);
        QVERIFY(c);
        send(*c, payload);
        QTRY_COMPARE_WITH_TIMEOUT(m_form->jobBuffer().size(), payload.size(), 20000);
        QVERIFY(m_form->jobBuffer() == payload);
    }

    void outOfOrderCloseCollidesWithLoadedElement()
    {
        auto c1 = connectClient(m_port);
        QTRY_COMPARE(m_form->connectionCount(), 1);
        auto c2 = connectClient(m_port);
        QTRY_COMPARE(m_form->connectionCount(), 2);
        auto c3 = connectClient(m_port);
        QTRY_COMPARE(m_form->connectionCount(), 3);
        QVERIFY(c1 && c2 && c3);
        send(*c2, "from two ");
        QTRY_COMPARE(m_form->jobBuffer(), QByteArray("from two "));
        c1->disconnectFromHost(); // element 1 goes; elements 2 and 3 stay
        QTRY_COMPARE(m_form->connectionCount(), 2);
        // The close may have dispatched the data; note what is there now.
        const QByteArray before = m_form->jobBuffer();

        // The next connection becomes element 3, which is still loaded.
        auto c4 = connectClient(m_port);
        QVERIFY(c4);
        QTRY_COMPARE(m_messages.size(), 1);
        QVERIFY2(
            m_messages[0].startsWith(QStringLiteral("Run-time error '360': Object already loaded")),
            qPrintable(m_messages[0]));
        QCOMPARE(m_form->connectionCount(), 3); // counted before the load failed
        // The refused connection is closed by the server.
        QTRY_COMPARE(c4->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(m_form->jobBuffer(), before);

        // The program goes on: the open connections still deliver.
        send(*c3, "from three");
        QTRY_COMPARE(m_form->jobBuffer(), before + "from three");
        c3->disconnectFromHost();
        c2->disconnectFromHost();
        QTRY_COMPARE(m_form->connectionCount(), 1);
        QCOMPARE(m_form->lblConnections->text(), QStringLiteral("1"));
        auto c5 = connectClient(m_port); // element 2, free again
        QVERIFY(c5);
        QTRY_COMPARE(m_form->connectionCount(), 2);
        QCOMPARE(m_messages.size(), 1);
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<frmMain> m_form;
    QStringList m_messages;
    quint16 m_port = 0;
};

QTEST_MAIN(TestIntake)
#include "tst_intake.moc"
