#pragma once

#include <QHostAddress>
#include <QList>
#include <QPair>

// Where the listener listens and whom it lets in.
struct ListenOptions {
    ListenOptions(quint16 port = 9100) : port(port) {}
    quint16 port;
    QHostAddress address = QHostAddress::Any; // --listen: one address, or all of them
    QList<QPair<QHostAddress, int>> allowed;  // --allow NETWORK/BITS; empty lets everyone in
    int maxConnections = 256;                 // --max-connections: more are refused

    bool allows(const QHostAddress& peer) const
    {
        if (allowed.isEmpty())
            return true;
        for (const auto& [network, bits] : allowed)
            if (peer.isInSubnet(network, bits))
                return true;
        return false;
    }
    QString allowedText() const
    {
        QStringList nets;
        for (const auto& [network, bits] : allowed)
            if (!network.isNull()) // a bad setting, which lets no one in
                nets << network.toString() + u'/' + QString::number(bits);
        return nets.join(QStringLiteral(", "));
    }
};
