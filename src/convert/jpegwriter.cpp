#include "convert/jpegwriter.h"
#include "convert/cdibsection.h"
bool SaveJPG(const cDIBSection&, const QString&, int)
{
    return false;
}
