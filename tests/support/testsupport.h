#pragma once

#include <QFile>
#include <QMap>
#include <QString>
#include <QStringList>

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
