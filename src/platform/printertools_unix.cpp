#include "platform/printertools.h"
namespace PrinterTools
{
void showProperties(const QString&) {}
void showQueue(const QString&) {}
void showPrinterList() {}
void openFolder(const QString&) {}
QString propertiesTarget(const QString&)
{
    return {};
}
QString queueTarget(const QString&)
{
    return {};
}
QString printerListTarget()
{
    return {};
}
QMap<QString, bool> offlineStates()
{
    return {};
}
bool acceptsJobs(const QString&)
{
    return true;
}
} // namespace PrinterTools
