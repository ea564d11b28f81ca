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
