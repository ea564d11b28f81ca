#pragma once

#include <map>
#include <string>

// Printer tools and printer state, per platform. Windows runs the rundll32
// printer tools and asks the spooler; elsewhere CUPS is asked and its web
// interface shown. The tools answer whether they could be started.
namespace PrinterTools
{
bool showProperties(const std::wstring& printerName); // Command4
bool showQueue(const std::wstring& printerName);      // Command8
bool showPrinterList();                               // Command7
bool openFolder(const std::wstring& folder);          // Command6

// What each tool opens here: a command line on Windows, a URL elsewhere.
std::wstring propertiesTarget(const std::wstring& printerName);
std::wstring queueTarget(const std::wstring& printerName);
std::wstring printerListTarget();

// Off-line state of every printer the system reports: name -> true when
// off-line (Windows: work off-line; CUPS: stopped or not accepting jobs).
// Empty when the system cannot be asked.
std::map<std::wstring, bool> offlineStates();
// False when the queue is known to refuse new jobs (its jobs would be lost).
bool acceptsJobs(const std::wstring& printerName);
// Sends the file to the printer as it is, untouched by any filter (a
// printer language it reads itself). False, with the reason, when the
// system refuses it.
bool printRaw(const std::wstring& printerName, const std::wstring& file, const std::wstring& title,
              std::wstring* why);
} // namespace PrinterTools
