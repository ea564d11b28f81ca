#pragma once

#include <QString>
#include <QStringList>

// The folder part of a path with its final separator, or "" when the path
// holds none. The separator is the platform's ("/" here, "\" on Windows).
QString pathOfFile(const QString& path);
QString pathOfFile(const QString& path, QChar separator);

// The printers the system knows, in its order.
QStringList installedPrinterNames();
