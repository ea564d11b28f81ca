#pragma once

#include <QString>
#include <QStringList>

// The folder part of a path with its final separator, or "" when the path
// holds none. The separator is the platform's ("/" here, "\" on Windows).
QString pathOfFile(const QString& path);
QString pathOfFile(const QString& path, QChar separator);

// The printers the system knows, in its order.
QStringList installedPrinterNames();

// The command lines the printer tools run on Windows.
namespace PrinterCommands
{
QString properties(const QString& printerName); // rundll32 ... /p /n "NAME"
QString queue(const QString& printerName);      // rundll32 ... /o /n "NAME"
QString printersFolder();
} // namespace PrinterCommands
