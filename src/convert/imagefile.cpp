#include "convert/imagefile.h"

bool ImageFile::LoadFile(const QString& fileName)
{
    m_fileName = fileName;
    return false;
}

void ImageFile::setActiveFrame(int frame) { m_activeFrame = frame; }
int ImageFile::Width() const { return 0; }
int ImageFile::Height() const { return 0; }
QImage ImageFile::Picture() const { return {}; }
