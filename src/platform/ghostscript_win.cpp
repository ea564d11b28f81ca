#include "platform/ghostscript.h"

#include "common/paths.h"

QString ghostscriptProgram()
{
    return Paths::programFolder() + QStringLiteral("\\bin\\gswin32c.exe");
}
