#pragma once

#include "common/int16.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <functional>

// The computer names in the text of "net view" ("\\NAME   remark" lines and
// a closing "The command completed..." line), and the aligned list lines.
struct NetViewNames {
    QStringList names; // as cut, blanks kept (trimmed when used)
    Int16 nameWidth;   // longest trimmed name + 2
};

// pump runs between two parts (pending window messages).
NetViewNames ParseNetView(const QString& output, const std::function<void()>& pump = {});

// name, blanks up to nameWidth, "| ", address.
QString NetScanLine(const QString& name, int nameWidth, const QString& address);

// Leading and trailing spaces only, as the scan counts them.
QString TrimBlanks(const QString& text);

inline quint8 hibyte(quint16 value)
{
    return quint8(value >> 8);
}
inline quint8 lobyte(quint16 value)
{
    return quint8(value & 0xFF);
}
