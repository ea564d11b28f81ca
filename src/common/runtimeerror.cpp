#include "common/runtimeerror.h"

#include "common/log.h"
#include "common/msgbox.h"

QString DescriptionOf(int number)
{
    switch (number) {
    case rt::Overflow:
        return QStringLiteral("Overflow");
    case rt::SubscriptOutOfRange:
        return QStringLiteral("Subscript out of range");
    case rt::BadFileNameOrNumber:
        return QStringLiteral("Bad file name or number");
    case rt::FileNotFound:
        return QStringLiteral("File not found");
    case rt::PermissionDenied:
        return QStringLiteral("Permission denied");
    case rt::PathNotFound:
        return QStringLiteral("Path not found");
    case rt::ObjectAlreadyLoaded:
        return QStringLiteral("Object already loaded");
    case rt::ObjectRequired:
        return QStringLiteral("Object required");
    default:
        return QStringLiteral("Application-defined or object-defined error");
    }
}

void RaiseError(int number, const QString& description)
{
    throw RuntimeError(number, description);
}
void RaiseError(int number)
{
    throw RuntimeError(number, DescriptionOf(number));
}

void ReportRuntimeError(const RuntimeError& error)
{
    const QString text =
        QStringLiteral("Run-time error '%1': %2").arg(error.number()).arg(error.description());
    if (msgMode() == MsgMode::Gui)
        Log::line(text); // a headless MsgBox logs it already
    MsgBox(text, MsgIcon::Critical);
}

void ReportPassedOver(int number, const QString& description)
{
    Log::line(QStringLiteral("Passed over: Run-time error '%1': %2").arg(number).arg(description));
}
