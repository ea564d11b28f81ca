#pragma once

#include <QMap>
#include <QString>

// Printer tools and printer state, per platform. Windows runs the rundll32
// printer tools and asks the spooler; elsewhere CUPS is asked and its web
// interface shown.
namespace PrinterTools
{
void showProperties(const QString& printerName); // Command4
void showQueue(const QString& printerName);      // Command8
void showPrinterList();                          // Command7
void openFolder(const QString& folder);          // Command6

// What each tool opens here: a command line on Windows, a URL elsewhere.
QString propertiesTarget(const QString& printerName);
QString queueTarget(const QString& printerName);
QString printerListTarget();

// Off-line state of every printer the system reports: name -> true when
// off-line (Windows: work off-line; CUPS: stopped or not accepting jobs).
// Empty when the system cannot be asked.
QMap<QString, bool> offlineStates();
// False when the queue is known to refuse new jobs (its jobs would be lost).
bool acceptsJobs(const QString& printerName);
} // namespace PrinterTools
