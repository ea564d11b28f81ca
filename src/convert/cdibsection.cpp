#include "convert/cdibsection.h"
bool cDIBSection::Create(qint32, qint32)
{
    return false;
}
bool cDIBSection::CreateDIB(qint32, qint32, quintptr& h)
{
    h = 0;
    return false;
}
void cDIBSection::CreateFromPicture(const QImage&) {}
void cDIBSection::LoadPictureBlt(const QImage&, qint32, qint32, qint32, qint32, Rop) {}
void cDIBSection::PaintPicture(QImage&, qint32, qint32, qint32, qint32, qint32, qint32, Rop) const
{
}
void cDIBSection::PaintPicture(QPainter&, qint32, qint32, qint32, qint32, qint32, qint32, Rop) const
{
}
qint32 cDIBSection::BytesPerScanLine(qint32 w)
{
    return (w * 3 + 3) & ~3;
}
QImage cDIBSection::toImage() const
{
    return {};
}
void cDIBSection::ClearUp() {}
bool cDIBSection::allocate(qint32, qint32, bool, quintptr&)
{
    return false;
}
