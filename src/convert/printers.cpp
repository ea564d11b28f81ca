#include "convert/printers.h"
#include "common/paths.h"
#include <QPrinterInfo>
QString pathOfFile(const QString& path)
{
    return pathOfFile(path, Paths::separator().at(0));
}
QString pathOfFile(const QString& path, QChar separator)
{
    const qsizetype at = path.lastIndexOf(separator);
    return at >= 0 ? path.left(at + 1) : QString();
}
QStringList installedPrinterNames()
{
    return QPrinterInfo::availablePrinterNames();
}
namespace PrinterCommands
{
QString properties(const QString& n)
{
    return QStringLiteral("rundll32.exe printui.dll,PrintUIEntry /p /n \"") + n +
           QStringLiteral("\"");
}
QString queue(const QString& n)
{
    return QStringLiteral("rundll32.exe printui.dll,PrintUIEntry /o /n \"") + n +
           QStringLiteral("\"");
}
QString printersFolder()
{
    return QStringLiteral("rundll32.exe shell32.dll,SHHelpShortcuts_RunDLL PrintersFolder");
}
} // namespace PrinterCommands
